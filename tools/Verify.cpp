// Verify.cpp - `vorn verify`: decodes all of a movie and checks every rule of the format on the way.
#include <algorithm>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/PlaneErrors.h"

namespace vorn {

namespace {

// Up to `most` of them, in their order; an oddity gives way to an error. Returns how many that were.
uint64_t PrintViolations(const VerifyCommandOptions& options, const reader::Violations& violations) {
    const uint64_t errors = std::min<uint64_t>(options.most, violations.errors);
    uint64_t left[2] = {};
    left[reader::SEVERITY_ERROR] = errors;
    left[reader::SEVERITY_HABIT] = options.most - errors;
    uint64_t printed = 0;
    for (const reader::Violation& violation : violations.list) {
        if (left[violation.severity] == 0) continue;
        left[violation.severity]--;
        printed++;
        PrintError(fmt::format("{}: {}", options.movie, DescribeViolation(violation)));
    }
    return printed;
}

// Of a movie that can be decoded.
void TellErrors(const VerifyCommandOptions& options, const reader::Movie& movie, FrameSource* source) {
    SourceComparison how;
    how.name = options.movie;
    how.movie = &movie;
    how.end = movie.header.frames;
    how.quiet = options.quiet;
    PrintErrors(movie, CompareWithSource(how, source));
}

} // namespace

int RunVerify(const VerifyCommandOptions& options) {
    if (options.source.names.empty() && (!options.source.raw.empty() || options.source.seek != 0))
        throw Failure{EXIT_USAGE, "--raw, --seek: belong to a source; give --source FILE"};
    reader::Movie movie;
    reader::Violations violations;
    violations.room = std::max(1u, options.most); // a movie that can't be read at all has to say why
    OpenMovieFile(options.movie, options.growing, &movie, &violations);
    std::unique_ptr<FrameSource> source;
    if (!options.source.names.empty()) source = OpenSource(options.source, options.movie, movie);
    reader::VerifyOptions how;
    how.pacing = !options.noPacing;
    const bool readable = VerifyMovie(movie, how, &violations);
    const uint64_t found = violations.errors + violations.habits;
    const uint64_t printed = PrintViolations(options, violations);
    if (found > printed)
        PrintError(fmt::format("{}: {}{} more violations of the format", options.movie, printed != 0 ? "and " : "",
                               found - printed));
    if (!options.quiet)
        fmt::print("{}: {} frames, {} tracks: {}\n", options.movie, movie.header.frames, movie.tracks.size(),
                   found == 0 ? "good"
                              : fmt::format("{} errors, {} oddities that the encoder never writes", violations.errors,
                                            violations.habits));
    if (!readable) return EXIT_DAMAGED;
    if (source != nullptr) TellErrors(options, movie, source.get());
    return found == 0 ? EXIT_DONE : EXIT_DIFFERS;
}

} // namespace vorn
