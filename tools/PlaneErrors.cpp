// PlaneErrors.cpp - how far are the planes of a movie from those that the encoder made of its source?
#include "tools/PlaneErrors.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/Colour.h"
#include "tools/Exit.h"

namespace vorn {

namespace {

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

// Peak signal-to-noise ratio in decibels, with 255 as the peak.
std::string DecibelText(const PlaneError& error) {
    if (error.square == 0) return "exact";
    return fmt::format("{:.2f} dB", 10 * std::log10(255.0 * 255.0 * static_cast<double>(error.samples) /
                                                    static_cast<double>(error.square)));
}

} // namespace

std::unique_ptr<FrameSource> OpenSource(const InputOptions& options, const std::string& name,
                                        const reader::Movie& movie) {
    InputOptions input = options;
    input.rate =
        fmt::format("{}/{}", std::max(1u, movie.header.rateNumerator), std::max(1u, movie.header.rateDenominator));
    std::unique_ptr<FrameSource> source = OpenFrames(input);
    const PictureFormat& format = source->format;
    if (format.width != movie.header.width || format.height != movie.header.height)
        throw Failure{EXIT_USAGE, fmt::format("{}: {}x{} pixels, but {} has {}x{}", source->name, format.width,
                                              format.height, name, movie.header.width, movie.header.height)};
    return source;
}

void ReadSource(FrameSource* source, const std::string& name, const reader::Movie& movie, uint32_t frame,
                uint8_t* bgra) {
    const ReadResult result = bgra != nullptr ? source->Read(bgra) : source->Skip();
    if (result == ReadResult::DONE) return;
    if (!source->problem.empty()) throw Failure{EXIT_DAMAGED, source->problem};
    throw Failure{EXIT_DAMAGED, fmt::format("{}: ends before frame {}, but {} has {}", source->name, frame, name,
                                            movie.header.frames)};
}

void AddFrameErrors(const reader::Movie& movie, const std::vector<uint8_t>& bgra, const FrameWalk& walk,
                    MovieErrors* errors) {
    MoviePlanes source;
    BgraToMoviePlanes(bgra.data(), movie.header.width, movie.header.height, &source);
    const std::vector<uint8_t>* planes[reader::PLANES] = {&source.y, &source.cr, &source.cb, &source.alpha};
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        uint32_t width, height;
        PictureSize(movie, p, &width, &height);
        AddPlane(*planes[p], walk.Plane(p), width, height, &errors->planes[p]);
    }
    errors->frames++;
}

MovieErrors CompareWithSource(const SourceComparison& how, FrameSource* source) {
    MovieErrors errors;
    std::vector<uint8_t> bgra(size_t(source->format.width) * source->format.height * 4);
    FrameWalk walk(how.name, *how.movie, how.first);
    Progress progress(how.quiet, how.end, {});
    for (uint32_t frame = 0; frame < how.end; frame++) {
        const bool taken = frame >= how.first;
        ReadSource(source, how.name, *how.movie, frame, taken ? bgra.data() : nullptr);
        progress.Update(frame, 0);
        if (!taken) continue;
        walk.Next();
        AddFrameErrors(*how.movie, bgra, walk, &errors);
        if (how.look) how.look(frame, bgra, walk);
    }
    return errors;
}

void PrintErrors(const reader::Movie& movie, const MovieErrors& errors) {
    fmt::print("{} frames\n{:6} {:>14} {:>12} {:>8} {:>10}\n", errors.frames, "plane", "error", "per sample", "largest",
               "PSNR");
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        const PlaneError& error = errors.planes[p];
        fmt::print("{:6} {:14} {:12.4f} {:8} {:>10}\n", reader::PlaneName(p), error.absolute,
                   static_cast<double>(error.absolute) / static_cast<double>(error.samples), error.largest,
                   DecibelText(error));
    }
}

} // namespace vorn
