// Compare.cpp - `vorn compare`: how far a movie's planes are from those of its source, and both side by side.
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/Output.h"
#include "tools/PlaneErrors.h"
#include "tools/Png.h"

namespace vorn {

namespace {

// Source on the left, result on the right, a grey bar between.
void WriteSides(const std::string& name, const std::vector<uint8_t>& source, const std::vector<uint8_t>& result,
                const reader::Movie& movie, bool force) {
    const uint32_t width = movie.header.width;
    const uint32_t height = movie.header.height;
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
    const auto png = PngBytes(name, sides.data(), width * 2 + BAR, height, movie.hasAlpha);
    OutputFile file(name, force);
    file.Write(png.data(), png.size());
    file.Finish();
}

} // namespace

int RunCompare(const CompareOptions& options) {
    std::string target;
    std::vector<std::string> inputs = InputFiles(options.source);
    inputs.push_back(options.movie);
    if (!options.picture.empty()) target = CheckOutput(options.picture, inputs, options.force, false);
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, false, &movie, &violations);
    const std::unique_ptr<FrameSource> source = OpenSource(options.source, options.movie, movie);
    const uint32_t frames = movie.header.frames;
    if (frames == 0) throw Failure{EXIT_DAMAGED, fmt::format("{}: holds no frame", options.movie)};
    if (options.frame >= int64_t(frames))
        throw Failure{EXIT_USAGE, fmt::format("--frame {}: {} has {} frames, counted from 0", options.frame,
                                              options.movie, frames)};
    const bool one = options.frame >= 0;
    const uint32_t shown = one ? static_cast<uint32_t>(options.frame) : frames / 2;
    SourceComparison how;
    how.name = options.movie;
    how.movie = &movie;
    how.first = one ? shown : 0;
    how.end = one ? shown + 1 : frames;
    how.quiet = options.quiet;
    how.look = [&](uint32_t frame, const std::vector<uint8_t>& picture, const FrameWalk& walk) {
        if (frame != shown || target.empty()) return;
        std::vector<uint8_t> decoded;
        walk.ToBgra(&decoded);
        WriteSides(target, picture, decoded, movie, options.force);
    };
    PrintErrors(movie, CompareWithSource(how, source.get()));
    return EXIT_DONE;
}

} // namespace vorn
