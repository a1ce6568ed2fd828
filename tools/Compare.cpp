// Compare.cpp - `vorn compare`: how far a movie's planes are from those of its source.
#include <algorithm>
#include <cmath>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/Output.h"
#include "tools/Png.h"

namespace vorn {

namespace {

// Over the picture proper, without the padding.
struct PlaneError {
    uint64_t samples = 0;
    uint64_t absolute = 0; // sum of absolute differences
    uint64_t square = 0;   // sum of their squares
    uint32_t largest = 0;
};

void AddPlane(const std::vector<uint8_t>& source, const reader::DecodedPlane& result, uint32_t width, uint32_t height,
              PlaneError* error) {
    for (uint32_t y = 0; y < height; y++) {
        for (uint32_t x = 0; x < width; x++) {
            const int difference = source[size_t(y) * width + x] - result.samples[size_t(y) * result.width + x];
            const auto size = static_cast<uint32_t>(std::abs(difference));
            error->absolute += size;
            error->square += uint64_t(size) * size;
            error->largest = std::max(error->largest, size);
        }
    }
    error->samples += uint64_t(width) * height;
}

void AddFrame(const reader::Movie& movie, const MoviePlanes& source, const FrameWalk& walk,
              PlaneError errors[reader::PLANES]) {
    const std::vector<uint8_t>* planes[reader::PLANES] = {&source.y, &source.cr, &source.cb, &source.alpha};
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        uint32_t width, height;
        PictureSize(movie, p, &width, &height);
        AddPlane(*planes[p], walk.Plane(p), width, height, &errors[p]);
    }
}

// Peak signal-to-noise ratio in decibels, with 255 as the peak.
std::string DecibelText(const PlaneError& error) {
    if (error.square == 0) return "exact";
    return fmt::format("{:.2f} dB", 10 * std::log10(255.0 * 255.0 * static_cast<double>(error.samples) /
                                                    static_cast<double>(error.square)));
}

void PrintErrors(const reader::Movie& movie, const PlaneError errors[reader::PLANES], uint64_t frames) {
    fmt::print("{} frames\n{:6} {:>14} {:>12} {:>8} {:>10}\n", frames, "plane", "error", "per sample", "largest",
               "PSNR");
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        const PlaneError& error = errors[p];
        fmt::print("{:6} {:14} {:12.4f} {:8} {:>10}\n", reader::PlaneName(p), error.absolute,
                   static_cast<double>(error.absolute) / static_cast<double>(error.samples), error.largest,
                   DecibelText(error));
    }
}

// Source on the left, result on the right, a grey bar between.
void WriteSides(const std::string& name, const std::vector<uint8_t>& source, const std::vector<uint8_t>& result,
                uint32_t width, uint32_t height, bool alpha, bool force) {
    constexpr uint32_t BAR = 8;
    const size_t row = size_t(width) * 4;
    std::vector<uint8_t> sides;
    for (uint32_t y = 0; y < height; y++) {
        const auto place = static_cast<std::ptrdiff_t>(y * row);
        const auto length = static_cast<std::ptrdiff_t>(row);
        sides.insert(sides.end(), source.begin() + place, source.begin() + place + length);
        for (uint32_t x = 0; x < BAR; x++) sides.insert(sides.end(), {128, 128, 128, 255});
        sides.insert(sides.end(), result.begin() + place, result.begin() + place + length);
    }
    WritePng(name, sides.data(), width * 2 + BAR, height, alpha, force);
}

void CheckSizes(const CompareOptions& options, const reader::Movie& movie, const FrameSource& source) {
    const PictureFormat& format = source.format;
    if (format.width != movie.header.width || format.height != movie.header.height)
        throw Failure{EXIT_USAGE, fmt::format("{}: {}x{} pixels, but {} has {}x{}", source.name, format.width,
                                              format.height, options.movie, movie.header.width, movie.header.height)};
    if (options.frame >= int64_t(movie.header.frames) || movie.header.frames == 0)
        throw Failure{EXIT_USAGE, fmt::format("--frame {}: {} has {} frames, counted from 0", options.frame,
                                              options.movie, movie.header.frames)};
}

} // namespace

int RunCompare(const CompareOptions& options) {
    std::string target;
    std::vector<std::string> inputs = options.source.names;
    inputs.push_back(options.movie);
    if (!options.picture.empty()) target = CheckOutput(options.picture, inputs, options.force, false);
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, false, &movie, &violations);
    const std::unique_ptr<FrameSource> source = OpenFrames(options.source);
    CheckSizes(options, movie, *source);
    const uint32_t frames = movie.header.frames;
    const bool one = options.frame >= 0;
    const uint32_t shown = one ? static_cast<uint32_t>(options.frame) : frames / 2;
    const uint32_t end = one ? shown + 1 : frames;
    PlaneError errors[reader::PLANES];
    std::vector<uint8_t> bgra(size_t(source->format.width) * source->format.height * 4);
    std::vector<uint8_t> decoded;
    MoviePlanes planes;
    FrameWalk walk(options.movie, movie, one ? shown : 0);
    Progress progress(options.quiet, end, {});
    for (uint32_t frame = 0; frame < end; frame++) {
        if (source->Read(bgra.data()) != ReadResult::DONE)
            throw Failure{EXIT_DAMAGED, source->problem.empty()
                                            ? fmt::format("{}: ends before frame {}, but {} has {}", source->name,
                                                          frame, options.movie, frames)
                                            : source->problem};
        progress.Update(frame, 0);
        if (one && frame < shown) continue;
        walk.Next();
        BgraToMoviePlanes(bgra.data(), source->format.width, source->format.height, &planes);
        AddFrame(movie, planes, walk, errors);
        if (frame != shown || target.empty()) continue;
        walk.ToBgra(&decoded);
        WriteSides(target, bgra, decoded, source->format.width, source->format.height, movie.hasAlpha, options.force);
    }
    progress.Clear();
    PrintErrors(movie, errors, one ? 1 : frames);
    return EXIT_DONE;
}

} // namespace vorn
