// Report.cpp - `vorn report`: a page that plays a movie and shows where its bytes go.
#include <algorithm>
#include <cstdlib>

#include <png.h>

#include "format/BlockFormat.h"
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/ReportPage.h"

namespace vorn {

namespace {

// Base 64 of this is as long a text as browsers take.
constexpr size_t MOST_MOVIE_BYTES = size_t(256) << 20;
constexpr int PLANE_STREAM_WORD = 4;

std::vector<uint8_t> EncodePng(const std::vector<uint8_t>& bgra, uint32_t width, uint32_t height, bool alpha) {
    std::vector<uint8_t> pixels;
    for (size_t i = 0; i < bgra.size(); i++)
        if (alpha || i % 4 != 3) pixels.push_back(bgra[i]);
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = alpha ? PNG_FORMAT_BGRA : PNG_FORMAT_BGR;
    png_alloc_size_t size = 0;
    std::vector<uint8_t> png;
    bool done = png_image_write_to_memory(&image, nullptr, &size, 0, pixels.data(), 0, nullptr) != 0;
    if (done) {
        png.resize(size);
        done = png_image_write_to_memory(&image, png.data(), &size, 0, pixels.data(), 0, nullptr) != 0;
    }
    if (!done) throw Failure{EXIT_FAILED, fmt::format("a picture can't be written as PNG ({})", image.message)};
    png.resize(size);
    return png;
}

// ---- What the movie itself tells ------------------------------------------------------------------------------------

void AddSizes(const reader::Movie& movie, const reader::Frame& frame, const FrameWalk& walk, Report* report) {
    report->keys.push_back(frame.key ? 1 : 0);
    for (size_t t = 0; t < frame.audio.size(); t++)
        report->trackBytes[t].push_back(uint64_t(frame.audio[t].length) + 4);
    report->planes[reader::PLANE_Y].bytes.push_back(frame.luma.size + PLANE_STREAM_WORD);
    if (movie.hasAlpha) report->planes[reader::PLANE_ALPHA].bytes.push_back(frame.alpha.size + PLANE_STREAM_WORD);
    if (!movie.hasChroma) return;
    const size_t cr = std::min(walk.Plane(reader::PLANE_CR).consumed, frame.chroma.size);
    report->planes[reader::PLANE_CR].bytes.push_back(cr);
    report->planes[reader::PLANE_CB].bytes.push_back(frame.chroma.size - cr);
}

void AddModes(const reader::Movie& movie, const FrameWalk& walk, Report* report) {
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        const reader::DecodedPlane& decoded = walk.Plane(p);
        ReportPlane& plane = report->planes[size_t(p)];
        plane.blocks = static_cast<uint32_t>(decoded.blocks.size());
        for (int mode = 0; mode < REPORT_MODES; mode++) {
            // A record of a 16x16 block stands for two positions of its row.
            const uint32_t positions = mode == MODE_SCALED ? 2 : 1;
            plane.modes[mode].push_back(decoded.statistics.modes[mode] * positions);
        }
    }
}

// ---- What the source tells ------------------------------------------------------------------------------------------

void AddPlaneError(const std::vector<uint8_t>& source, const reader::DecodedPlane& result, uint32_t width,
                   uint32_t height, ReportPlane* plane) {
    uint64_t absolute = 0;
    uint64_t square = 0;
    for (uint32_t y = 0; y < height; y++) {
        for (uint32_t x = 0; x < width; x++) {
            const int difference = source[size_t(y) * width + x] - result.samples[size_t(y) * result.width + x];
            absolute += static_cast<uint32_t>(std::abs(difference));
            square += static_cast<uint32_t>(difference * difference);
        }
    }
    const double samples = double(width) * height;
    plane->absoluteError.push_back(static_cast<double>(absolute) / samples);
    plane->squaredError.push_back(static_cast<double>(square) / samples);
}

void AddErrors(const reader::Movie& movie, const MoviePlanes& source, const FrameWalk& walk, Report* report) {
    const std::vector<uint8_t>* planes[reader::PLANES] = {&source.y, &source.cr, &source.cb, &source.alpha};
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        uint32_t width, height;
        PictureSize(movie, p, &width, &height);
        AddPlaneError(*planes[p], walk.Plane(p), width, height, &report->planes[size_t(p)]);
    }
}

// Reads the source along with the movie and keeps the pictures to show.
class SourceWalk {
public:
    SourceWalk(const ReportOptions& theOptions, const reader::Movie& theMovie) : options(theOptions), movie(theMovie) {
        const VornFileHeader& header = movie.header;
        InputOptions input = options.source;
        input.rate = fmt::format("{}/{}", header.rateNumerator, header.rateDenominator); // for sources without one
        source = OpenFrames(input);
        const PictureFormat& format = source->format;
        if (format.width != header.width || format.height != header.height)
            throw Failure{EXIT_USAGE,
                          fmt::format("--source {}: {}x{} pixels, but {} has {}x{}", source->name, format.width,
                                      format.height, options.movie, header.width, header.height)};
        chosen = options.shown;
        if (chosen.empty() && header.frames > 0) chosen = {0, header.frames / 2, header.frames - 1};
        for (const uint32_t frame : options.shown)
            if (frame >= header.frames)
                throw Failure{EXIT_USAGE, fmt::format("--show {}: {} has {} frames, counted from 0", frame,
                                                      options.movie, header.frames)};
        picture.resize(size_t(format.width) * format.height * 4);
    }

    void Add(uint32_t frame, const FrameWalk& walk, Report* report) {
        if (source->Read(picture.data()) != ReadResult::DONE)
            throw Failure{EXIT_DAMAGED, source->problem.empty()
                                            ? fmt::format("{}: ends before frame {}, but {} has {}", source->name,
                                                          frame, options.movie, movie.header.frames)
                                            : source->problem};
        BgraToMoviePlanes(picture.data(), movie.header.width, movie.header.height, &planes);
        AddErrors(movie, planes, walk, report);
        if (std::find(chosen.begin(), chosen.end(), frame) != chosen.end()) Keep(frame, picture, report);
        const double error = report->planes[reader::PLANE_Y].squaredError.back();
        if (!options.shown.empty() || error <= worstError) return;
        worstError = error;
        worstFrame = frame;
        worst = picture;
    }

    // Adds the frame that came out worst, unless frames were chosen.
    void Finish(Report* report) {
        const auto same = [&](const ReportPicture& kept) { return kept.frame == worstFrame; };
        if (!worst.empty() && std::none_of(report->pictures.begin(), report->pictures.end(), same))
            Keep(worstFrame, worst, report);
        std::sort(report->pictures.begin(), report->pictures.end(),
                  [](const ReportPicture& a, const ReportPicture& b) { return a.frame < b.frame; });
    }

private:
    void Keep(uint32_t frame, const std::vector<uint8_t>& bgra, Report* report) const {
        report->pictures.push_back({frame, EncodePng(bgra, movie.header.width, movie.header.height, movie.hasAlpha)});
    }

    const ReportOptions& options;
    const reader::Movie& movie;
    std::unique_ptr<FrameSource> source;
    std::vector<uint32_t> chosen;
    std::vector<uint8_t> picture, worst;
    MoviePlanes planes;
    double worstError = -1;
    uint32_t worstFrame = 0;
};

// ---- All of it --------------------------------------------------------------------------------------------------------

double BudgetOf(const ReportOptions& options, const reader::Movie& movie) {
    if (options.frameBytes != 0) return options.frameBytes;
    return options.rateKbit * 1000 / 8 * movie.header.rateDenominator / movie.header.rateNumerator;
}

void Gather(const ReportOptions& options, const reader::Movie& movie, Report* report) {
    std::unique_ptr<SourceWalk> source;
    if (!options.source.names.empty()) source = std::make_unique<SourceWalk>(options, movie);
    const uint32_t frames = movie.header.frames;
    report->title = options.movie.substr(options.movie.rfind('/') + 1);
    report->budget = BudgetOf(options, movie);
    report->trackBytes.resize(movie.tracks.size());
    FrameWalk walk(options.movie, movie, 0);
    Progress progress(options.quiet, frames, {});
    for (uint32_t number = 0; number < frames; number++) {
        walk.Next();
        reader::Frame frame;
        reader::Violations violations;
        ReadFrame(movie, number, &frame, &violations); // it could be read, or Next() had thrown
        AddSizes(movie, frame, walk, report);
        AddModes(movie, walk, report);
        if (source != nullptr) source->Add(number, walk, report);
        progress.Update(number + 1, 0);
    }
    if (source != nullptr) source->Finish(report);
}

} // namespace

int RunReport(const ReportOptions& options) {
    std::vector<std::string> inputs = InputFiles(options.source);
    inputs.push_back(options.movie);
    const std::string target = options.output == "-" ? "-" : CheckOutput(options.output, inputs, options.force, false);
    if (options.source.names.empty() && (!options.shown.empty() || !options.source.raw.empty()))
        throw Failure{EXIT_USAGE, "--show, --raw: only together with --source"};
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, true, &movie, &violations);
    if (movie.bytes.size() > MOST_MOVIE_BYTES)
        throw Failure{EXIT_FAILED, fmt::format("{}: {} bytes; a page holds at most {}", options.movie,
                                               movie.bytes.size(), MOST_MOVIE_BYTES)};
    if (movie.header.rateNumerator == 0 || movie.header.rateDenominator == 0)
        throw Failure{EXIT_DAMAGED, fmt::format("{}: the movie has no frame rate", options.movie)};
    Report report;
    Gather(options, movie, &report);
    OutputFile file(target, options.force);
    WriteReportPage(movie, report, &file);
    file.Finish();
    return EXIT_DONE;
}

} // namespace vorn
