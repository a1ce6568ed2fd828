// Report.cpp - `vorn report`: a page that plays a movie and shows where its bytes go.
#include <algorithm>

#include "format/BlockFormat.h"
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/PlaneErrors.h"
#include "tools/Png.h"
#include "tools/ReportPage.h"

namespace vorn {

namespace {

// Base 64 of this is as long a text as browsers take.
constexpr size_t MOST_MOVIE_BYTES = size_t(256) << 20;
constexpr int PLANE_STREAM_WORD = 4;

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

void AddErrors(const reader::Movie& movie, const MovieErrors& frame, Report* report) {
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        const PlaneError& error = frame.planes[p];
        const auto samples = static_cast<double>(error.samples);
        report->planes[size_t(p)].absoluteError.push_back(static_cast<double>(error.absolute) / samples);
        report->planes[size_t(p)].squaredError.push_back(static_cast<double>(error.square) / samples);
    }
}

// Reads the source along with the movie and keeps the pictures to show.
class SourceWalk {
public:
    SourceWalk(const ReportOptions& theOptions, const reader::Movie& theMovie)
        : options(theOptions), movie(theMovie), source(OpenSource(options.source, options.movie, movie)),
          chosen(options.shown), picture(size_t(source->format.width) * source->format.height * 4) {
        const uint32_t frames = movie.header.frames;
        for (const uint32_t frame : chosen)
            if (frame >= frames)
                throw Failure{EXIT_USAGE,
                              fmt::format("--show {}: {} has {} frames, counted from 0", frame, options.movie, frames)};
        if (chosen.empty() && frames > 0) chosen = {0, frames / 2, frames - 1};
    }

    void Add(uint32_t frame, const FrameWalk& walk, Report* report) {
        ReadSource(source.get(), options.movie, movie, frame, picture.data());
        MovieErrors errors;
        AddFrameErrors(movie, picture, walk, &errors);
        AddErrors(movie, errors, report);
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
        const VornFileHeader& header = movie.header;
        report->pictures.push_back(
            {frame, PngBytes(source->name, bgra.data(), header.width, header.height, movie.hasAlpha)});
    }

    const ReportOptions& options;
    const reader::Movie& movie;
    std::unique_ptr<FrameSource> source;
    std::vector<uint32_t> chosen;
    std::vector<uint8_t> picture, worst;
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
    if (options.source.names.empty() &&
        (!options.shown.empty() || !options.source.raw.empty() || options.source.seek != 0))
        throw Failure{EXIT_USAGE, "--show, --raw, --seek: only together with --source"};
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
