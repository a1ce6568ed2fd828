// Y4mInput.cpp - pictures from Y4M: a line of text that starts with YUV4MPEG2, then frames of planes Y, Cb, Cr, each with a
// line of its own that starts with FRAME.
#include <algorithm>
#include <cstring>

#include "tools/Colour.h"
#include "tools/Exit.h"
#include "tools/Input.h"

namespace vorn {

namespace {

constexpr size_t HEADER_LIMIT = 4096; // bytes of a header line
constexpr size_t FRAME_LIMIT = 256;   // bytes of a frame's line
constexpr char ACCEPTED[] = "8-bit C420, C420jpeg, C420mpeg2, C420paldv, C422, C444 and Cmono are read";

// How the planes of one chroma format lie in a frame.
struct Sampling {
    const char* name;
    bool colour;
    ChromaLayout layout;
};

const Sampling SAMPLINGS[] = {
    {"420", true, {Siting::MIDDLE, Siting::MIDDLE, Siting::MIDDLE}},
    {"420jpeg", true, {Siting::MIDDLE, Siting::MIDDLE, Siting::MIDDLE}},
    {"420mpeg2", true, {Siting::FIRST, Siting::MIDDLE, Siting::MIDDLE}},
    // Cr on the first line of each pair, Cb on the second.
    {"420paldv", true, {Siting::FIRST, Siting::SECOND, Siting::FIRST}},
    {"422", true, {Siting::FIRST, Siting::FULL, Siting::FULL}},
    {"444", true, {Siting::FULL, Siting::FULL, Siting::FULL}},
    {"mono", false, {}},
};

class Y4mSource : public FrameSource {
public:
    explicit Y4mSource(const std::string& fileName) : input(fileName) {
        name = input.Name();
        ReadHeader();
        CheckPictureSize(name, format);
        const bool wide = sampling->layout.across == Siting::FULL;
        const bool tall = sampling->layout.downCb == Siting::FULL;
        lumaBytes = size_t(format.width) * format.height;
        chromaWidth = wide ? format.width : (format.width + 1) / 2;
        chromaBytes = sampling->colour ? size_t(chromaWidth) * (tall ? format.height : (format.height + 1) / 2) : 0;
        format.grey = !sampling->colour;
        planes.resize(lumaBytes + chromaBytes * 2);
        if (input.Seekable()) frames = CountFrames();
    }

    ReadResult Read(uint8_t* bgra) override {
        const ReadResult result = ReadPlanes();
        if (result != ReadResult::DONE) return result;
        PlanarPicture picture;
        picture.width = format.width;
        picture.height = format.height;
        picture.y = planes.data();
        picture.pitch = format.width;
        if (sampling->colour) {
            picture.cb = planes.data() + lumaBytes;
            picture.cr = picture.cb + chromaBytes;
            picture.chromaPitch = chromaWidth;
            picture.layout = sampling->layout;
        }
        PlanesToBgra(picture, bgra);
        return ReadResult::DONE;
    }

    ReadResult Skip() override { return ReadPlanes(); }

private:
    // The next frame, as it is in the file.
    ReadResult ReadPlanes() {
        const uint64_t place = input.Position();
        std::string line;
        ReadResult result = input.ReadLine(&line, FRAME_LIMIT);
        if (result == ReadResult::END || result == ReadResult::STOPPED) return result;
        if (result == ReadResult::CUT && line.size() < FRAME_LIMIT) return Cut("ends in the line of frame {}", place);
        if (result == ReadResult::CUT || !IsFrameLine(line))
            return Cut("no FRAME line where frame {} should start", place);
        result = input.Read(planes.data(), planes.size());
        if (result == ReadResult::STOPPED) return result;
        if (result != ReadResult::DONE) return Cut("ends in frame {}", place);
        count++;
        return ReadResult::DONE;
    }

    static bool IsFrameLine(const std::string& line) { return line == "FRAME" || line.rfind("FRAME ", 0) == 0; }

    ReadResult Cut(const char* what, uint64_t place) {
        problem = fmt::format("{}: {} (byte {})", name, fmt::format(fmt::runtime(what), count), place);
        if (!input.error.empty()) problem += fmt::format(": {}", input.error);
        return ReadResult::CUT;
    }

    void ReadHeader() {
        std::string line;
        const ReadResult result = input.ReadLine(&line, HEADER_LIMIT);
        if (result == ReadResult::STOPPED) throw Failure{EXIT_FAILED, fmt::format("{}: stopped before it began", name)};
        if (result == ReadResult::END)
            throw Failure{EXIT_DAMAGED, fmt::format("{}: is empty; Y4M or PNG is wanted", name)};
        if (line.rfind("\x89PNG", 0) == 0)
            throw Failure{EXIT_FAILED, fmt::format("{}: is PNG, which is read from files only; name them", name)};
        if (line.rfind("YUV4MPEG2", 0) != 0 || (line.size() > 9 && line[9] != ' '))
            throw Failure{
                EXIT_DAMAGED,
                fmt::format("{}: neither Y4M (it doesn't start with YUV4MPEG2) nor PNG; for raw pictures give "
                            "--raw WIDTHxHEIGHT",
                            name)};
        if (result == ReadResult::CUT) throw Failure{EXIT_DAMAGED, fmt::format("{}: its header line has no end", name)};
        for (size_t at = 9; at < line.size();) {
            const size_t end = std::min(line.find(' ', at + 1), line.size());
            if (end > at + 1) ReadParameter(line.substr(at + 1, end - at - 1));
            at = end;
        }
        if (format.width == 0) throw Failure{EXIT_DAMAGED, fmt::format("{}: its header has no width (W)", name)};
        if (format.height == 0) throw Failure{EXIT_DAMAGED, fmt::format("{}: its header has no height (H)", name)};
        if (sampling == nullptr) sampling = &SAMPLINGS[1];
    }

    [[noreturn]] void BadParameter(int code, const std::string& parameter, std::string_view wanted) const {
        throw Failure{code, fmt::format("{}: header parameter {}: {}", name, parameter, wanted)};
    }

    uint32_t ReadLength(const std::string& parameter) const {
        uint64_t value = 0;
        if (!ParseNumber(std::string_view(parameter).substr(1), 65535, &value) || value == 0)
            BadParameter(EXIT_DAMAGED, parameter, "a number from 1 to 65535 is wanted");
        return static_cast<uint32_t>(value);
    }

    void ReadParameter(const std::string& parameter) {
        const std::string value = parameter.substr(1);
        switch (parameter[0]) {
        case 'W':
            format.width = ReadLength(parameter);
            break;
        case 'H':
            format.height = ReadLength(parameter);
            break;
        case 'F':
            ReadFrameRate(parameter, value);
            break;
        case 'C':
            ReadChroma(parameter, value);
            break;
        case 'I': // the fields of an interlaced picture are coded as the one picture that they make together
            if (value.size() != 1 || std::strchr("ptbm?", value[0]) == nullptr)
                BadParameter(EXIT_DAMAGED, parameter, "Ip, It, Ib, Im or I? is wanted");
            break;
        case 'A':
            break; // the shape of a pixel has no place in a movie
        case 'X':
            if (value == "COLORRANGE=FULL")
                BadParameter(EXIT_FAILED, parameter, "only studio range (black 16, white 235) is read");
            break;
        default:
            BadParameter(EXIT_DAMAGED, parameter, "not known; W, H, F, I, A, C and X are");
            break;
        }
    }

    void ReadFrameRate(const std::string& parameter, const std::string& value) {
        if (value == "0:0") return; // not known
        const size_t colon = value.find(':');
        uint64_t n = 0;
        uint64_t d = 0;
        if (colon == std::string::npos || !ParseNumber(std::string_view(value).substr(0, colon), UINT32_MAX, &n) ||
            !ParseNumber(std::string_view(value).substr(colon + 1), UINT32_MAX, &d) || n == 0 || d == 0)
            BadParameter(EXIT_DAMAGED, parameter, "frames per second as N:D are wanted, both from 1 to 4294967295");
        format.rate = {static_cast<uint32_t>(n), static_cast<uint32_t>(d)};
    }

    void ReadChroma(const std::string& parameter, const std::string& value) {
        for (const Sampling& known : SAMPLINGS)
            if (value == known.name) sampling = &known;
        if (sampling == nullptr || value != sampling->name) BadParameter(EXIT_FAILED, parameter, ACCEPTED);
    }

    // Steps from one frame's line to the next.
    uint64_t CountFrames() const {
        uint64_t found = 0;
        for (uint64_t at = input.Position();; found++) {
            char line[FRAME_LIMIT + 1];
            const size_t got = input.Peek(at, reinterpret_cast<uint8_t*>(line), sizeof line);
            const char* end = static_cast<const char*>(std::memchr(line, '\n', got));
            if (end == nullptr || !IsFrameLine(std::string(line, static_cast<size_t>(end - line)))) return found;
            at += static_cast<uint64_t>(end - line) + 1 + planes.size();
            if (at > input.Size()) return found;
        }
    }

    ByteInput input;
    const Sampling* sampling = nullptr;
    size_t lumaBytes = 0;
    size_t chromaBytes = 0; // of one plane
    uint32_t chromaWidth = 0;
    std::vector<uint8_t> planes; // Y, Cb, Cr of the frame in hand
    uint64_t count = 0;          // complete frames so far
};

} // namespace

std::unique_ptr<FrameSource> OpenY4m(const std::string& name) {
    return std::make_unique<Y4mSource>(name);
}

} // namespace vorn
