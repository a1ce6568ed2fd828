// Decode.cpp - `vorn decode`: a movie's pictures as Y4M, raw or PNG, and its sound as WAV.
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/Output.h"
#include "tools/Png.h"
#include "tools/Sound.h"

namespace vorn {

namespace {

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

// Whether the part of a result that came before damage may be written. A complete older file stays rather than giving way to
// it, and nothing makes no file.
bool KeepsPart(const std::string& target, bool any) {
    return target == "-" || (any && !FileStands(target));
}

struct FrameRange {
    uint32_t first;
    uint32_t end; // behind the last
};

FrameRange ChooseFrames(const DecodeOptions& options, const reader::Movie& movie) {
    if (options.frame < 0) return {0, movie.header.frames};
    if (options.frame >= movie.header.frames)
        throw Failure{EXIT_USAGE, fmt::format("--frame {}: {} has frames 0 to {}", options.frame, options.movie,
                                              int64_t(movie.header.frames) - 1)};
    const auto frame = static_cast<uint32_t>(options.frame);
    return {frame, frame + 1};
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

int DecodePng(const DecodeOptions& options, const reader::Movie& movie, const std::string& target) {
    if (options.frame < 0)
        throw Failure{EXIT_USAGE, fmt::format("-o {}: PNG holds one picture; --frame N says which", options.output)};
    const FrameRange range = ChooseFrames(options, movie);
    FrameWalk walk(options.movie, movie, range.first);
    walk.Next();
    std::vector<uint8_t> bgra;
    walk.ToBgra(&bgra);
    WritePng(target, bgra.data(), movie.header.width, movie.header.height, movie.hasAlpha, options.force);
    return EXIT_DONE;
}

int DecodeSound(const DecodeOptions& options, const reader::Movie& movie, const std::string& target) {
    size_t found = 0;
    std::string known;
    while (found < movie.tracks.size() && movie.tracks[found].id != options.track) {
        known += fmt::format("{}{}", found == 0 ? "" : ", ", movie.tracks[found].id);
        found++;
    }
    if (found == movie.tracks.size())
        throw Failure{EXIT_USAGE, fmt::format("--audio {}: {} has {}", options.track, options.movie,
                                              known.empty() ? "no sound" : "the tracks " + known)};
    reader::TrackSound sound;
    reader::Violations violations;
    const bool whole = DecodeTrack(movie, static_cast<uint32_t>(found), &sound, &violations);
    const size_t bytes = sound.samples.size() * 2;
    if (sound.kind.sampleRate == 0 || bytes > UINT32_MAX - 64)
        throw Failure{EXIT_FAILED, fmt::format("{}: track {} can't be written as WAV", options.movie, options.track)};
    if (!whole && !KeepsPart(target, !sound.samples.empty()))
        throw Failure{EXIT_DAMAGED,
                      fmt::format("{}: track {} breaks off after {} samples; {} was not written", options.movie,
                                  options.track, sound.samples.size() / sound.kind.channels, options.output)};
    OutputFile file(target, options.force);
    WriteWavHead(&file, sound.kind.sampleRate, sound.kind.channels, static_cast<uint32_t>(bytes));
    for (const int16_t sample : sound.samples) {
        const uint8_t pair[2] = {static_cast<uint8_t>(sample), static_cast<uint8_t>(sample >> 8)};
        file.Write(pair, 2);
    }
    file.Finish();
    if (!whole)
        throw Failure{EXIT_DAMAGED,
                      fmt::format("{}: track {} breaks off after {} samples; {} has them", options.movie, options.track,
                                  sound.samples.size() / sound.kind.channels, options.output)};
    return EXIT_DONE;
}

} // namespace

int RunDecode(const DecodeOptions& options) {
    const std::string extension = LowerExtension(options.output);
    const bool y4m = options.output == "-" || extension == ".y4m";
    const bool isSound = options.track >= 0;
    const bool known =
        isSound ? extension == ".wav" || options.output == "-" : y4m || extension == ".bgra" || extension == ".png";
    if (!known)
        throw Failure{EXIT_USAGE,
                      fmt::format("-o {}: {}", options.output,
                                  isSound
                                      ? "sound is written as .wav"
                                      : "pictures are written as .y4m, .bgra or .png, sound as .wav with --audio N")};
    const std::string target =
        options.output == "-" ? "-" : CheckOutput(options.output, {options.movie}, options.force, false);
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, false, &movie, &violations);
    if (isSound) return DecodeSound(options, movie, target);
    if (extension == ".png") return DecodePng(options, movie, target);
    return DecodePictures(options, movie, target, y4m);
}

} // namespace vorn
