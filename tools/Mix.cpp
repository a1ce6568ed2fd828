// Mix.cpp - `vorn mix`: a finished movie with other sound; the picture stays as it is.
#include <algorithm>
#include <optional>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/FileName.h"
#include "tools/Interrupt.h"
#include "tools/MovieFile.h"
#include "tools/Output.h"
#include "tools/Sound.h"

namespace vorn {

namespace {

struct MixRun {
    explicit MixRun(const MixOptions& given) : options(given) {}

    const MixOptions& options;
    std::vector<SoundOption> tracks;
    int32_t shift = 0; // of new sound, as VornMix takes it
    Fraction rate;     // 0/0: the movie's own
    std::optional<MoviePart> part;
    SoundTracks sounds;
    uint32_t frames = 0;
    std::optional<Progress> progress;
    bool cancelled = false;
    std::string message; // the library's own words
};

// The library's callbacks carry no word of the caller's.
MixRun* running = nullptr;

uint32_t HearLibrary(uint32_t code, void* record, const char* text) noexcept {
    try {
        if (code == VORN_MESSAGE) {
            running->message = text;
            return 0;
        }
        const auto* mix = static_cast<const VornMixRecord*>(record);
        running->progress->Update(mix->frame, mix->outputPosition);
    } catch (...) { // no memory for a line: nothing depends on it
    }
    running->cancelled = running->cancelled || InterruptCount() > 0;
    return running->cancelled ? 1 : 0;
}

// An id that neither the movie nor a descriptor bears.
uint32_t UnusedId(const reader::Movie& movie) {
    std::vector<uint32_t> ids;
    for (const reader::Track& track : movie.tracks) ids.push_back(track.id);
    std::sort(ids.begin(), ids.end());
    uint32_t id = 0;
    for (const uint32_t taken : ids)
        if (taken == id) id++;
    return id;
}

void AddDrops(const MixOptions& options, const reader::Movie& movie, SoundTracks* sounds) {
    for (const uint32_t id : options.drops) {
        const bool known = std::any_of(movie.tracks.begin(), movie.tracks.end(),
                                       [&](const reader::Track& track) { return track.id == id; });
        if (!known) throw Failure{EXIT_USAGE, fmt::format("--drop {}: {} has no such track", id, options.movie)};
        TrackDescriptor drop = {};
        drop.id = id;
        sounds->descriptors.push_back(drop);
    }
    if (!sounds->descriptors.empty()) return;
    // Without a descriptor nothing at all would be done; this one drops a track that there isn't.
    TrackDescriptor none = {};
    none.id = UnusedId(movie);
    sounds->descriptors.push_back(none);
}

// Arguments that contradict one another.
void CheckArguments(const MixOptions& options, const std::vector<SoundOption>& tracks) {
    if (tracks.empty() && options.drops.empty() && options.rate.empty())
        throw Failure{EXIT_USAGE, "mix: nothing to do; give --track, --drop or --fps"};
    CheckSoundOptions("--track", tracks, {});
    for (const SoundOption& track : tracks)
        if (std::count(options.drops.begin(), options.drops.end(), track.id) != 0)
            throw Failure{EXIT_USAGE, fmt::format("--drop {}: --track {}={} brings it; give one of them", track.id,
                                                  track.id, track.name)};
    if (tracks.empty() && (options.delayFrames != 0 || options.delayMilliseconds != 0))
        throw Failure{EXIT_USAGE, "--delay, --delay-ms: delay new sound; give --track with them"};
}

int32_t ChooseShift(const MixOptions& options) {
    if (options.delayFrames != 0 && options.delayMilliseconds != 0)
        throw Failure{EXIT_USAGE, "--delay and --delay-ms: give one of them"};
    if (options.delayFrames != 0) return static_cast<int32_t>(options.delayFrames) + 1;
    return -static_cast<int32_t>(options.delayMilliseconds);
}

// Arguments and names, before anything is opened.
void CheckMix(MixRun* run) {
    const MixOptions& options = run->options;
    for (const std::string& text : options.tracks) run->tracks.push_back(ParseTrackOption(text));
    CheckArguments(options, run->tracks);
    run->shift = ChooseShift(options);
    if (!options.rate.empty()) run->rate = ParseRate("--fps", options.rate);
    // The movie itself may be the output: it is replaced only once the new one is complete, and with --force only.
    std::vector<std::string> inputs;
    for (const SoundOption& track : run->tracks) {
        inputs.push_back(track.name);
        if (SameFile(track.name, options.output))
            throw Failure{EXIT_USAGE, fmt::format("{}: is the input {} itself", options.output, track.name)};
    }
    const std::string target = CheckOutput(options.output, {}, options.force, true);
    inputs.push_back(options.movie);
    run->part.emplace(target, inputs, options.force);
}

// The movie is read whole for its tracks; it isn't kept.
void LoadTracks(MixRun* run) {
    const MixOptions& options = run->options;
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, false, &movie, &violations);
    for (const SoundOption& track : run->tracks) run->sounds.Add(track);
    AddDrops(options, movie, &run->sounds);
    run->frames = movie.header.frames;
    const Fraction rate = {movie.header.rateNumerator, movie.header.rateDenominator};
    run->progress.emplace(options.quiet, run->frames, rate);
}

// What the library's message is about: the input, or anything else.
int CodeOf(const std::string& message) {
    return message.rfind("Input ", 0) == 0 ? EXIT_DAMAGED : EXIT_FAILED;
}

// Returns the bytes of the new movie, which then stands as NAME.part.
uint32_t RunLibrary(MixRun* run) {
    const MixOptions& options = run->options;
    std::vector<TrackDescriptor>& tracks = run->sounds.descriptors;
    running = run;
    CountInterrupts();
    const uint32_t bytes =
        VornMix(options.movie.c_str(), run->part->PartName().c_str(), 0, run->rate.numerator, run->rate.denominator,
                run->shift, static_cast<uint32_t>(tracks.size()), tracks.data(), HearLibrary);
    run->progress->Clear();
    if (run->cancelled)
        throw Failure{EXIT_FAILED, fmt::format("{}: stopped by a signal; nothing is left", options.output)};
    if (bytes == 0 || !run->message.empty()) {
        const int code = CodeOf(run->message);
        throw Failure{code, fmt::format("{}: {}", code == EXIT_DAMAGED ? options.movie : options.output,
                                        run->message.empty() ? "the library failed without a word" : run->message)};
    }
    CheckMovie(run->part->PartName(), run->frames, options.output);
    return bytes;
}

} // namespace

int RunMix(const MixOptions& options) {
    MixRun run(options);
    CheckMix(&run);
    LoadTracks(&run);
    const uint32_t bytes = RunLibrary(&run);
    run.part->Publish();
    if (!options.quiet) Say(fmt::format("{}: {} frames, {} bytes\n", options.output, run.frames, bytes));
    if (const std::string problem = run.sounds.Problem(); !problem.empty())
        throw Failure{EXIT_DAMAGED, fmt::format("{}; silence stands in for the rest", problem)};
    return EXIT_DONE;
}

} // namespace vorn
