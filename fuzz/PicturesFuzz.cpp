// PicturesFuzz.cpp - any bytes as Y4M or raw pictures, from a file, from a pipe, read ahead, and two inputs in a row.
#include <algorithm>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/Fuzz.h"
#include "tools/Exit.h"
#include "tools/Input.h"

using namespace vorn;

namespace {

constexpr size_t MOST_BYTES = 16384; // what a pipe takes in without a reader
constexpr uint64_t MOST_PIXELS = 1 << 14;

struct Pictures {
    bool opened = false;
    PictureFormat format;
    std::optional<uint64_t> foretold;
    std::vector<std::vector<uint8_t>> frames;
    ReadResult last = ReadResult::DONE;
};

void CheckText(const std::string& text) {
    Require(!text.empty() && text.find('\n') == std::string::npos, "a failure is one line: " + text);
}

// Reads everything. A failure is an answer, too.
Pictures ReadAll(const InputOptions& options, bool ahead, uint64_t limit) {
    Pictures pictures;
    try {
        std::unique_ptr<FrameSource> source = OpenFrames(options);
        if (ahead) source = ReadAhead(std::move(source), limit);
        pictures.opened = true;
        pictures.format = source->format;
        pictures.foretold = source->frames;
        std::vector<uint8_t> picture(size_t{source->format.width} * source->format.height * 4);
        while ((pictures.last = source->Read(picture.data())) == ReadResult::DONE) pictures.frames.push_back(picture);
        if (pictures.last == ReadResult::CUT) CheckText(source->problem);
        Require(pictures.last != ReadResult::STOPPED, "nobody sent a signal");
        if (pictures.last == ReadResult::END)
            Require(source->Read(picture.data()) == ReadResult::END, "behind the end nothing comes");
    } catch (const Failure& failure) {
        CheckText(failure.text);
        Require(failure.code >= EXIT_FAILED && failure.code <= EXIT_EXISTS, "a failure has its code");
    }
    return pictures;
}

// A file in memory under a name that can be opened.
struct MemoryFile {
    int descriptor = memfd_create("pictures", 0);
    std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    MemoryFile(const uint8_t* data, size_t size) {
        Require(descriptor >= 0 && write(descriptor, data, size) == ssize_t(size), "there is memory");
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
};

// A pipe that holds all of the data, with nobody left to write.
struct FullPipe {
    int ends[2] = {-1, -1};
    std::string name;
    FullPipe(const uint8_t* data, size_t size) {
        Require(pipe(ends) == 0 && write(ends[1], data, size) == ssize_t(size), "a pipe takes the data");
        close(ends[1]);
        name = "/proc/self/fd/" + std::to_string(ends[0]);
    }
    ~FullPipe() { close(ends[0]); }
    FullPipe(const FullPipe&) = delete;
};

// Whether the head of Y4M speaks of pictures too large for a fuzzer's time: room for one is made before it is read.
bool IsLarge(const uint8_t* data, size_t size) {
    uint64_t pixels = 1;
    for (size_t i = 0; i + 1 < size && data[i] != '\n'; i++) {
        if (data[i] != ' ' || (data[i + 1] != 'W' && data[i + 1] != 'H')) continue;
        uint64_t number = 0;
        for (size_t k = i + 2; k < size && data[k] >= '0' && data[k] <= '9' && number < 100000; k++)
            number = number * 10 + data[k] - '0';
        pixels *= std::max<uint64_t>(number, 1); // may be named twice; then too careful
    }
    return pixels > MOST_PIXELS;
}

void ExpectSame(const Pictures& a, const Pictures& b) {
    Require(a.opened == b.opened && a.last == b.last && a.frames == b.frames, "a pipe gives what a file gives");
    Require(a.format.width == b.format.width && a.format.height == b.format.height && a.format.grey == b.format.grey &&
                a.format.rate.numerator == b.format.rate.numerator,
            "a pipe has the format of the file");
}

void ReadEveryWay(InputOptions options, const uint8_t* data, size_t size, uint64_t limit) {
    const MemoryFile file(data, size);
    options.names = {file.name};
    const Pictures once = ReadAll(options, false, 0);
    if (once.opened) Require(once.foretold && *once.foretold == once.frames.size(), "the count of frames was foretold");
    FullPipe pipe(data, size), second(data, size);
    options.names = {pipe.name};
    ExpectSame(once, ReadAll(options, false, 0));
    options.names = {second.name};
    const Pictures ahead = ReadAll(options, true, limit);
    ExpectSame(once, ahead);
    if (ahead.foretold) Require(*ahead.foretold == ahead.frames.size(), "the count read ahead is right");
    options.names = {file.name, file.name};
    const Pictures twice = ReadAll(options, false, 0);
    const size_t times = once.last == ReadResult::END ? 2 : 1; // a cut input is the last
    Require(twice.frames.size() == once.frames.size() * times, "two inputs follow one another");
    if (!options.raw.empty() && once.opened) {
        const size_t bytes = once.frames.empty() ? 0 : once.frames[0].size();
        for (size_t i = 0; i < once.frames.size(); i++)
            Require(std::memcmp(once.frames[i].data(), data + i * bytes, bytes) == 0, "raw pictures stay as they are");
    }
}

} // namespace

// The last two bytes choose; the others are what is read.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > MOST_BYTES) return 0;
    const uint32_t way = size > 1 ? data[--size] : 0;
    const uint32_t detail = size > 1 ? data[--size] : 0;
    InputOptions options;
    if (way % 4 == 3) {
        options.raw = std::to_string(1 + detail % 16) + "x" + std::to_string(1 + detail / 16);
        options.rate = std::string("30000/1001");
    } else if (IsLarge(data, size)) {
        return 0;
    }
    if (way % 4 == 2) options.rate = std::string("25/1");
    ReadEveryWay(options, data, size, detail * 256);
    return 0;
}
