// Verify.cpp - `vorn verify`: decodes all of a movie and checks every rule of the format on the way.
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"

namespace vorn {

int RunVerify(const VerifyCommandOptions& options) {
    reader::Movie movie;
    reader::Violations violations;
    violations.room = options.most;
    OpenMovieFile(options.movie, options.growing, &movie, &violations);
    reader::VerifyOptions how;
    how.pacing = options.pacing;
    const bool readable = VerifyMovie(movie, how, &violations);
    for (const reader::Violation& violation : violations.list)
        PrintError(fmt::format("{}: {}", options.movie, DescribeViolation(violation)));
    const uint64_t found = violations.errors + violations.habits;
    if (found > violations.list.size())
        PrintError(fmt::format("{}: and {} more", options.movie, found - violations.list.size()));
    if (!options.quiet)
        fmt::print("{}: {} frames, {} tracks: {}\n", options.movie, movie.header.frames, movie.tracks.size(),
                   found == 0 ? "good"
                              : fmt::format("{} errors, {} oddities that the encoder never writes", violations.errors,
                                            violations.habits));
    if (!readable) return EXIT_DAMAGED;
    return found == 0 ? EXIT_DONE : EXIT_DIFFERS;
}

} // namespace vorn
