// Decode.cpp - `vorn decode`: a movie's pictures as Y4M, raw or PNG, and its sound as WAV.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/FileName.h"
#include "tools/Interrupt.h"
#include "tools/MovieFile.h"
#include "tools/Output.h"
#include "tools/Png.h"
#include "tools/Sound.h"

namespace vorn {

namespace {

struct FrameRange {
    uint32_t first;
    uint32_t end; // behind the last
};

// "N", "N-M" or "N-"; M is the last one taken. Frames are counted from 0.
FrameRange ChooseFrames(const DecodeOptions& options, const reader::Movie& movie) {
    const uint32_t frames = movie.header.frames;
    if (options.frames.empty()) return {0, frames};
    const std::string_view text = options.frames;
    const size_t dash = text.find('-');
    uint64_t first = 0;
    uint64_t last = UINT32_MAX;
    bool good = ParseNumber(text.substr(0, dash), UINT32_MAX - 1, &first);
    if (dash == std::string_view::npos)
        last = first;
    else if (dash + 1 != text.size())
        good = good && ParseNumber(text.substr(dash + 1), UINT32_MAX - 1, &last);
    else if (frames != 0)
        last = frames - 1;
    if (!good || last < first)
        throw Failure{EXIT_USAGE, fmt::format("--frame {}: a frame (N), or a range of them (N-M, N-) is wanted", text)};
    if (last >= frames)
        throw Failure{EXIT_USAGE,
                      fmt::format("--frame {}: {} has {} frames, counted from 0", text, options.movie, frames)};
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(last + 1)};
}

// Whether the part of a result that came before damage may be written. A complete older file stays rather than giving way to
// it, and nothing makes no file.
bool KeepsPart(const std::string& target, bool any) {
    return target == "-" || (any && !FileStands(target));
}

// ---- Pictures in one file ------------------------------------------------------------------------------------------

// The picture proper of a plane, row by row.
void WriteRows(OutputFile* file, const reader::DecodedPlane& plane, uint32_t width, uint32_t height) {
    for (uint32_t y = 0; y < height; y++) file->Write(plane.samples.data() + size_t(y) * plane.width, width);
}

void WriteY4mFrame(OutputFile* file, const reader::Movie& movie, const FrameWalk& walk) {
    const uint32_t width = movie.header.width;
    const uint32_t height = movie.header.height;
    file->Write("FRAME\n", 6);
    WriteRows(file, walk.Plane(reader::PLANE_Y), width, height);
    if (!movie.hasChroma) return;
    WriteRows(file, walk.Plane(reader::PLANE_CB), (width + 1) / 2, (height + 1) / 2);
    WriteRows(file, walk.Plane(reader::PLANE_CR), (width + 1) / 2, (height + 1) / 2);
}

void WriteY4mHead(OutputFile* file, const reader::Movie& movie) {
    const VornFileHeader& header = movie.header;
    const std::string head =
        fmt::format("YUV4MPEG2 W{} H{} F{}:{} Ip A1:1 C{}\n", header.width, header.height, header.rateNumerator,
                    header.rateDenominator, movie.hasChroma ? "420jpeg" : "mono");
    file->Write(head.data(), head.size());
}

int DecodePictures(const DecodeOptions& options, const reader::Movie& movie, const std::string& target, bool y4m) {
    const FrameRange range = ChooseFrames(options, movie);
    OutputFile file(target, options.force);
    if (y4m) WriteY4mHead(&file, movie);
    FrameWalk walk(options.movie, movie, range.first);
    Progress progress(options.quiet, range.end - range.first, {});
    std::vector<uint8_t> bgra;
    for (uint32_t frame = range.first; frame < range.end; frame++) {
        try {
            walk.Next();
        } catch (const Failure& failure) {
            if (!KeepsPart(target, frame != range.first))
                throw Failure{failure.code, fmt::format("{}; {} was not written", failure.text, options.output)};
            file.Finish();
            throw Failure{failure.code, fmt::format("{}; {} has the {} frames before", failure.text, options.output,
                                                    frame - range.first)};
        }
        if (y4m) {
            WriteY4mFrame(&file, movie, walk);
        } else {
            walk.ToBgra(&bgra);
            file.Write(bgra.data(), bgra.size());
        }
        progress.Update(frame + 1 - range.first, 0);
    }
    file.Finish();
    return EXIT_DONE;
}

// ---- Pictures in PNG files -----------------------------------------------------------------------------------------

void WritePicture(OutputFile* file, const std::string& name, const reader::Movie& movie, const FrameWalk& walk) {
    std::vector<uint8_t> bgra;
    walk.ToBgra(&bgra);
    const auto png = PngBytes(name, bgra.data(), movie.header.width, movie.header.height, movie.hasAlpha);
    file->Write(png.data(), png.size());
}

int DecodePng(const DecodeOptions& options, const reader::Movie& movie, const std::string& target) {
    const FrameRange range = ChooseFrames(options, movie);
    if (range.end - range.first != 1)
        throw Failure{EXIT_USAGE,
                      fmt::format("-o {}: holds one picture, not {}; --frame N says which, or give a folder "
                                  "or a name like shots/%04d.png",
                                  options.output, range.end - range.first)};
    FrameWalk walk(options.movie, movie, range.first);
    walk.Next();
    OutputFile file(target, options.force);
    WritePicture(&file, options.output, movie, walk);
    file.Finish();
    return EXIT_DONE;
}

// A file for each frame. They get their names when all of them are complete.
class PngRow {
public:
    explicit PngRow(const DecodeOptions& given) : options(given) {
        if (ParseNumberedName(options.output, &names)) return;
        std::string folder = options.output;
        while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
        names = {folder == "/" ? folder : folder + '/', 6, ".png"};
        if (IsFolder(folder)) return;
        if (mkdir(folder.c_str(), 0777) != 0)
            throw Failure{EXIT_FAILED, fmt::format("{}: can't be created ({})", folder, std::strerror(errno))};
        made = folder;
    }
    ~PngRow() {
        files.clear();
        if (!made.empty()) rmdir(made.c_str()); // if nothing has come into it
    }
    PngRow(const PngRow&) = delete;
    PngRow& operator=(const PngRow&) = delete;

    void CheckNames(const FrameRange& range) const {
        for (uint32_t frame = range.first; frame < range.end; frame++)
            CheckOutput(names.Name(frame), {options.movie}, options.force, false);
    }
    void Add(const reader::Movie& movie, const FrameWalk& walk) {
        const std::string name = names.Name(walk.Number());
        auto file =
            std::make_unique<OutputFile>(CheckOutput(name, {options.movie}, options.force, false), options.force);
        WritePicture(file.get(), name, movie, walk);
        file->Complete();
        files.push_back(std::move(file));
    }
    // Whether what came before damage may be published: nothing older gives way to it.
    bool IsNew(const FrameRange& range) const {
        for (uint32_t frame = range.first; frame < range.end; frame++)
            if (FileStands(names.Name(frame))) return false;
        return true;
    }
    void Publish() {
        for (const auto& file : files) file->Publish();
    }

private:
    const DecodeOptions& options;
    NumberedName names;
    std::string made; // the folder, if there was none
    std::vector<std::unique_ptr<OutputFile>> files;
};

int DecodePngs(const DecodeOptions& options, const reader::Movie& movie) {
    const FrameRange range = ChooseFrames(options, movie);
    CountInterrupts(); // there may be more files than a signal could remove
    PngRow row(options);
    row.CheckNames(range);
    FrameWalk walk(options.movie, movie, range.first);
    Progress progress(options.quiet, range.end - range.first, {});
    for (uint32_t frame = range.first; frame < range.end; frame++) {
        if (InterruptCount() > 0)
            throw Failure{EXIT_FAILED, fmt::format("{}: stopped by a signal; nothing is left", options.output)};
        try {
            walk.Next();
        } catch (const Failure& failure) {
            if (frame == range.first || !row.IsNew(range))
                throw Failure{failure.code, fmt::format("{}; {} was not written", failure.text, options.output)};
            row.Publish();
            throw Failure{failure.code, fmt::format("{}; {} has the {} frames before", failure.text, options.output,
                                                    frame - range.first)};
        }
        row.Add(movie, walk);
        progress.Update(frame + 1 - range.first, 0);
    }
    row.Publish();
    return EXIT_DONE;
}

// ---- Sound ---------------------------------------------------------------------------------------------------------

size_t FindTrack(const DecodeOptions& options, const reader::Movie& movie) {
    std::string known;
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        if (movie.tracks[t].id == options.track) return t;
        known += fmt::format("{}{}", t == 0 ? "" : ", ", movie.tracks[t].id);
    }
    throw Failure{EXIT_USAGE, fmt::format("--audio {}: {} has {}", options.track, options.movie,
                                          known.empty() ? "no sound" : "the tracks " + known)};
}

// Leaves the sound of some frames.
void CutSound(const FrameRange& range, const reader::Movie& movie, reader::TrackSound* sound) {
    const VornFileHeader& header = movie.header;
    const auto place = [&](uint32_t frame) {
        const double samples = std::floor(double(frame) * sound->kind.sampleRate * header.rateDenominator /
                                          std::max(1u, header.rateNumerator));
        const double all = static_cast<double>(sound->samples.size() / sound->kind.channels);
        return static_cast<std::ptrdiff_t>(std::min(samples, all)) * sound->kind.channels;
    };
    if (range.end < header.frames) sound->samples.resize(static_cast<size_t>(place(range.end)));
    sound->samples.erase(sound->samples.begin(), sound->samples.begin() + place(range.first));
}

int DecodeSound(const DecodeOptions& options, const reader::Movie& movie, const std::string& target) {
    const size_t track = FindTrack(options, movie);
    const FrameRange range = ChooseFrames(options, movie);
    reader::TrackSound sound;
    reader::Violations violations;
    const bool whole = DecodeTrack(movie, static_cast<uint32_t>(track), &sound, &violations);
    if (sound.kind.sampleRate == 0 || sound.samples.size() * 2 > UINT32_MAX - 64)
        throw Failure{EXIT_FAILED, fmt::format("{}: track {} can't be written as WAV", options.movie, options.track)};
    const std::string broken = fmt::format("{}: track {} breaks off after {} samples", options.movie, options.track,
                                           sound.samples.size() / sound.kind.channels);
    CutSound(range, movie, &sound);
    if (!whole && !KeepsPart(target, !sound.samples.empty()))
        throw Failure{EXIT_DAMAGED, fmt::format("{}; {} was not written", broken, options.output)};
    OutputFile file(target, options.force);
    WriteWavHead(&file, sound.kind.sampleRate, sound.kind.channels, static_cast<uint32_t>(sound.samples.size() * 2));
    WriteSamples(&file, sound.samples.data(), sound.samples.size());
    file.Finish();
    if (!whole) throw Failure{EXIT_DAMAGED, fmt::format("{}; {} has them", broken, options.output)};
    return EXIT_DONE;
}

// ---- What is wanted ------------------------------------------------------------------------------------------------

enum class Kind { Y4M, BGRA, PNG, PNG_ROW, WAV, UNKNOWN };

// By --as if it is given, else by the output's name; standard output is Y4M, or WAV with --audio.
Kind ChooseKind(const DecodeOptions& options) {
    const std::string extension = LowerExtension(options.output);
    std::string kind = options.kind;
    NumberedName name;
    const bool row = options.output != "-" && (options.output.back() == '/' || IsFolder(options.output) ||
                                               ParseNumberedName(options.output, &name));
    if (kind.empty() && options.output == "-") kind = options.track >= 0 ? "wav" : "y4m";
    if (kind.empty() && !extension.empty()) kind = extension.substr(1);
    if (kind.empty() && row) kind = "png";
    if ((kind == "wav") != (options.track >= 0)) return Kind::UNKNOWN;
    if (kind == "y4m") return Kind::Y4M;
    if (kind == "bgra") return Kind::BGRA;
    if (kind == "wav") return Kind::WAV;
    if (kind == "png") return row ? Kind::PNG_ROW : Kind::PNG;
    return Kind::UNKNOWN;
}

} // namespace

int RunDecode(const DecodeOptions& options) {
    if (options.output.empty()) throw Failure{EXIT_USAGE, "-o: the output's name is empty"};
    const Kind kind = ChooseKind(options);
    if (kind == Kind::UNKNOWN)
        throw Failure{EXIT_USAGE,
                      fmt::format("-o {}: {}", options.output,
                                  options.track >= 0 ? "sound is written as .wav"
                                                     : "pictures are written as .y4m, .bgra or .png, or into a folder; "
                                                       "sound as .wav with --audio ID; --as KIND says which")};
    const bool named = options.output != "-" && kind != Kind::PNG_ROW;
    const std::string target =
        named ? CheckOutput(options.output, {options.movie}, options.force, false) : options.output;
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, false, &movie, &violations);
    switch (kind) {
    case Kind::WAV:
        return DecodeSound(options, movie, target);
    case Kind::PNG:
        return DecodePng(options, movie, target);
    case Kind::PNG_ROW:
        return DecodePngs(options, movie);
    default:
        return DecodePictures(options, movie, target, kind == Kind::Y4M);
    }
}

} // namespace vorn
