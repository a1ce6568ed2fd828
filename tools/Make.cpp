// Make.cpp - `vorn make`: pictures and sound into a movie.
//
// The library wants to know beforehand how many frames a movie can hold. A file tells; a pipe doesn't, so the first
// AHEAD_BYTES of its pictures are read before the movie is opened. If it ends within them, the movie is the same as from a
// file. If not, room is made for --capacity frames, at 4 bytes each; a movie that is closed short of that is a good movie.
#include <algorithm>
#include <cmath>
#include <optional>

#include <sys/stat.h>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/FileName.h"
#include "tools/Interrupt.h"
#include "tools/MovieFile.h"
#include "tools/Output.h"
#include "tools/Readback.h"
#include "tools/Sound.h"

namespace vorn {

namespace {

constexpr uint64_t AHEAD_BYTES = 64 << 20;
constexpr uint32_t PIPE_CAPACITY = 108000;  // frames: an hour at 30 a second, 432000 bytes of index
constexpr uint32_t MOST_CAPACITY = 1 << 28; // frames: their index and errors stay below 4 GiB of memory
constexpr double MOST_TRACK_BYTES = 4294967292;

// Bits a pixel, in quarters, that the words of --quality stand for.
constexpr struct {
    const char* word;
    uint32_t quarterBits;
} QUALITIES[] = {{"low", 2}, {"middle", 4}, {"high", 8}};

struct MakeRun {
    explicit MakeRun(const MakeOptions& given) : options(given) {}
    ~MakeRun() {
        // Only after a Failure in the midst of it.
        if (movie != nullptr) VornMakeClose(movie, 1);
    }
    MakeRun(const MakeRun&) = delete;
    MakeRun& operator=(const MakeRun&) = delete;

    const MakeOptions& options;
    std::unique_ptr<FrameSource> source;
    SoundTracks sounds;
    std::string target;
    std::optional<MoviePart> part; // the movie until it is known to be good
    uint32_t capacity = 0;
    uint32_t frameBytes = 0;
    VornMakeState* movie = nullptr;
    std::optional<Progress> progress;
    uint32_t framesDone = 0; // as of the last report
    bool failed = false;     // as of the last report
    std::string message;     // the library's own words
    std::optional<OutputFile> log;
    std::vector<FrameNote> notes;     // for the log and for reading back
    std::optional<Readback> readback; // with --verify
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

// The library's callbacks carry no word of the caller's.
MakeRun* running = nullptr;

// Takes over what the library has done since the last look.
void LookAt(MakeRun* run, const VornMakeState* state) {
    run->framesDone = state->framesDone;
    run->failed = state->failed != 0;
    if (!run->log && !run->readback) return;
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - run->start;
    NoteFrames(state, since.count(), run->readback.has_value(), &run->notes);
    if (run->readback) run->readback->Check(run->notes);
}

bool Wrong(const MakeRun& run) {
    return run.readback && !run.readback->problem.empty();
}

uint32_t HearLibrary(uint32_t code, void* record, const char* text) noexcept {
    MakeRun& run = *running;
    try {
        if (code == VORN_MESSAGE) {
            if (!run.message.empty()) run.message += "; ";
            run.message += text;
            return 0;
        }
        auto* state = static_cast<VornMakeState*>(record);
        LookAt(&run, state);
        if (InterruptCount() > 1) state->cancel = 2;
        run.progress->Update(state->framesDone, state->fileBytes);
    } catch (...) { // no memory for a line or a note: the frames that are missing will be seen
    }
    return InterruptCount() > 0 || Wrong(run) ? 1 : 0;
}

// The bytes that a frame should take, sound and picture.
uint32_t ChooseFrameBytes(const MakeOptions& options, const PictureFormat& format) {
    if ((options.frameBytes != 0) + (options.rateKbit != 0) + !options.quality.empty() > 1)
        throw Failure{EXIT_USAGE, "--rate, --frame-bytes and --quality: give one of them"};
    if (options.frameBytes != 0) return options.frameBytes;
    if (options.rateKbit == 0) {
        const std::string word = options.quality.empty() ? "middle" : options.quality;
        uint64_t bytes = 0;
        for (const auto& quality : QUALITIES)
            if (word == quality.word) bytes = uint64_t(format.width) * format.height * quality.quarterBits / 32;
        return static_cast<uint32_t>(std::max<uint64_t>(64, bytes));
    }
    const double bytes = options.rateKbit * 1000 / 8 * format.rate.denominator / format.rate.numerator;
    if (!(bytes >= 1) || bytes > 4e9)
        throw Failure{EXIT_USAGE, fmt::format("--rate {}: makes {:.1f} bytes a frame; 1 to 4000000000 are taken",
                                              options.rateKbit, bytes)};
    return static_cast<uint32_t>(std::llround(bytes));
}

// Most frames whose sound every track can hold: the library counts a track's PCM bytes in 32 bits, in whole words.
uint64_t MostFramesForSound(const MakeRun& run) {
    const Fraction rate = run.source->format.rate;
    double most = MOST_CAPACITY;
    for (const auto& sound : run.sounds.sources) {
        const double bytesPerFrame =
            double(sound->sampleRate) * sound->channels * 2 * rate.denominator / rate.numerator;
        most = std::min(most, MOST_TRACK_BYTES / bytesPerFrame);
    }
    return static_cast<uint64_t>(most);
}

void CheckCapacity(const MakeRun& run, uint64_t capacity) {
    if (capacity > MOST_CAPACITY)
        throw Failure{EXIT_FAILED, fmt::format("{}: {} frames; a movie can hold up to {} (--frames takes fewer)",
                                               run.source->name, capacity, MOST_CAPACITY)};
    const uint64_t most = MostFramesForSound(run);
    if (capacity <= most) return;
    const Fraction rate = run.source->format.rate;
    throw Failure{EXIT_FAILED,
                  fmt::format("{}: {} frames at {}/{} a second; its sound can last for {} (4 GiB of samples a track)",
                              run.source->name, capacity, rate.numerator, rate.denominator, most)};
}

// The room of a movie whose number of frames nobody knows.
uint64_t CapacityOfPipe(const MakeRun& run) {
    const Fraction rate = run.source->format.rate;
    uint64_t capacity = PIPE_CAPACITY;
    for (const auto& sound : run.sounds.sources) {
        // The sound's length and a second.
        const double frames = std::ceil((sound->seconds + 1) * rate.numerator / rate.denominator);
        capacity = std::max<uint64_t>(capacity, static_cast<uint64_t>(std::min<double>(frames, MOST_CAPACITY)));
    }
    return std::min(capacity, std::max<uint64_t>(1, MostFramesForSound(run)));
}

uint32_t ChooseCapacity(const MakeRun& run) {
    const MakeOptions& options = run.options;
    uint64_t capacity = options.capacity;
    if (run.source->frames) {
        capacity = *run.source->frames;
        if (options.frames != 0) capacity = std::min<uint64_t>(capacity, options.frames);
    } else if (options.frames != 0) {
        capacity = options.frames;
    } else if (capacity == 0) {
        capacity = CapacityOfPipe(run);
    }
    capacity = std::max<uint64_t>(1, capacity);
    CheckCapacity(run, capacity);
    return static_cast<uint32_t>(capacity);
}

void BeginMovie(MakeRun* run) {
    const MakeOptions& options = run->options;
    const PictureFormat& format = run->source->format;
    const bool grey = options.grey || format.grey;
    const bool alpha = options.alpha || (format.showsAlpha && !options.noAlpha);
    if (options.threads != 0) VornMakeSetMaxCPUs(options.threads);
    const auto& tracks = run->sounds.descriptors;
    run->movie = VornMake(run->part->PartName().c_str(), format.width * 4, format.width, format.height, run->capacity,
                          options.keyInterval, (grey ? 100 : 0) + (alpha ? 1000 : 0), format.rate.numerator,
                          format.rate.denominator, static_cast<uint32_t>(tracks.size()), tracks.data(),
                          static_cast<int32_t>(options.lookAhead), HearLibrary);
    if (run->movie == nullptr)
        throw Failure{EXIT_FAILED,
                      fmt::format("{}: {}", options.output,
                                  run->message.empty() ? "the library refused without a word" : run->message)};
    if (options.verify) run->readback.emplace(run->movie->tempName);
}

// Hands over picture after picture. Returns what ended it: END also if the movie is full or has failed.
ReadResult PushFrames(MakeRun* run, bool* tooMany) {
    const PictureFormat& format = run->source->format;
    std::vector<uint8_t> bgra(size_t(format.width) * format.height * 4);
    uint32_t taken = 0;
    for (;;) {
        if (run->options.frames != 0 && taken == run->options.frames) return ReadResult::END;
        const ReadResult result = run->source->Read(bgra.data());
        if (result != ReadResult::DONE) return result;
        *tooMany = taken == run->capacity;
        if (*tooMany) return ReadResult::END;
        VornMakePutVideo(run->movie, run->frameBytes, run->options.cap, taken == 0, bgra.data());
        taken++;
        LookAt(run, run->movie);
        if (run->failed || Wrong(*run)) return ReadResult::END;
        if (run->movie->cancel != 0 || InterruptCount() > 0) return ReadResult::STOPPED;
    }
}

// The library has given up the movie, perhaps only while it closed it. What it left under its temporary name is of use only if
// it is all there.
[[noreturn]] void TellFailure(MakeRun* run) {
    const std::string temporary = run->part->PartName() + ".tmp";
    if (!run->message.empty() && MovieStands(temporary))
        throw Failure{EXIT_FAILED, fmt::format("{}: {}", run->options.output, run->message)};
    std::remove(temporary.c_str());
    throw Failure{EXIT_FAILED, fmt::format("{}: could not be written completely (disk full?); nothing is left",
                                           run->options.output)};
}

[[noreturn]] void TellWrong(const MakeRun& run) {
    throw Failure{EXIT_DIFFERS, fmt::format("{}: read back wrong: {}; the movie was dropped and nothing is left",
                                            run.options.output, run.readback->problem)};
}

// Reads back what had not yet reached the file, and the index.
void CheckRest(MakeRun* run) {
    if (!run->log && !run->readback) return;
    PacketFile file(run->part->PartName());
    std::string problem;
    if (!file.TakeIndex(&run->notes, &problem) && run->readback) run->readback->problem = problem;
    if (!run->readback) return;
    run->readback->Check(run->notes);
    if (run->readback->problem.empty() && run->readback->Checked() != run->framesDone)
        run->readback->problem = fmt::format("only {} frames have reached the file", run->readback->Checked());
    if (Wrong(*run)) TellWrong(*run);
}

// Of the movie that has got its name. False if it can't be written, which is told.
bool WriteLog(MakeRun* run) {
    try {
        if (run->notes.size() != run->framesDone)
            throw Failure{EXIT_FAILED, fmt::format("--log {}: can't tell of all frames", run->options.log)};
        PacketFile movie(run->target);
        WriteFrameLog(run->notes, run->frameBytes, &movie, &*run->log);
        run->log->Finish();
        return true;
    } catch (const Failure& failure) {
        PrintError(fmt::format("{}; {} is complete", failure.text, run->options.output));
        return false;
    }
}

// Closes the movie and makes sure that it is there. `stopped`: what waits in the queue is given up.
void CloseMovie(MakeRun* run, bool stopped) {
    const std::string& name = run->options.output;
    if (stopped) run->movie->cancel = std::max(run->movie->cancel, 1u);
    run->framesDone = run->movie->framesDone;
    const uint32_t waiting = stopped ? 0 : run->movie->queueCount;
    const bool nothing = run->framesDone + waiting == 0;
    const bool twice = InterruptCount() > 1;
    const int64_t expected = int64_t(run->framesDone) + waiting;
    VornMakeClose(run->movie, nothing || twice || run->failed || Wrong(*run));
    run->movie = nullptr;
    run->progress->Clear();
    if (Wrong(*run)) TellWrong(*run);
    if (twice || InterruptCount() > 1)
        throw Failure{EXIT_FAILED, fmt::format("{}: stopped twice; the movie was dropped and nothing is left", name)};
    if (nothing) return;
    if (!FileStands(run->part->PartName())) TellFailure(run);
    const bool early = stopped || InterruptCount() > 0 || !run->message.empty();
    run->framesDone = CheckMovie(run->part->PartName(), early ? -1 : expected, name);
    CheckRest(run);
}

void Report(const MakeRun& run, const std::string& what) {
    if (run.options.quiet) return;
    struct stat info = {};
    const auto bytes = stat(run.target.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
    const Fraction rate = run.source->format.rate;
    const double seconds = double(run.framesDone) * rate.denominator / rate.numerator;
    std::string line = fmt::format("{}: {}{} frames, {} bytes, {:.2f} kbit/s", run.options.output, what, run.framesDone,
                                   bytes, seconds > 0 ? static_cast<double>(bytes) * 8 / 1000 / seconds : 0.0);
    if (run.readback)
        line += run.notes.back().seen ? "; read back without a difference"
                                      : "; read back without a difference, but the last frame could only be decoded";
    Say(line + '\n');
}

std::string HoldsNothing(const MakeRun& run) {
    const uint32_t seek = run.options.input.seek;
    return seek == 0 ? fmt::format("{}: holds no frame", run.source->name)
                     : fmt::format("{}: holds no frame behind the {} that --seek leaves out", run.source->name, seek);
}

int Finish(MakeRun* run, ReadResult ended, bool tooMany) {
    CloseMovie(run, ended == ReadResult::STOPPED);
    bool logged = true;
    if (run->framesDone != 0) {
        run->part->Publish();
        logged = !run->log || WriteLog(run);
    }
    const std::string& name = run->options.output;
    if (InterruptCount() > 0) {
        if (run->framesDone == 0)
            throw Failure{EXIT_FAILED, fmt::format("{}: stopped before the first frame; nothing is left", name)};
        Report(*run, "stopped by a signal, finished with ");
        return EXIT_STOPPED;
    }
    // The movie has become as long as a movie can be.
    if (!run->message.empty()) {
        if (run->framesDone != 0) Report(*run, "");
        throw Failure{run->framesDone != 0 ? EXIT_DAMAGED : EXIT_FAILED, fmt::format("{}: {}", name, run->message)};
    }
    if (run->framesDone == 0)
        throw Failure{EXIT_DAMAGED, ended == ReadResult::CUT ? run->source->problem : HoldsNothing(*run)};
    Report(*run, "");
    if (ended == ReadResult::CUT)
        throw Failure{EXIT_DAMAGED,
                      fmt::format("{}; {} has the {} frames before", run->source->problem, name, run->framesDone)};
    if (tooMany)
        throw Failure{EXIT_DAMAGED,
                      fmt::format("{}: brings more than the {} frames that {} has room for; --capacity N makes room",
                                  run->source->name, run->capacity, name)};
    if (const std::string problem = run->sounds.Problem(); !problem.empty())
        throw Failure{EXIT_DAMAGED, fmt::format("{}; silence stands in for the rest", problem)};
    return logged ? EXIT_DONE : EXIT_FAILED;
}

// Names of inputs and outputs against one another, before anything is opened.
std::vector<SoundOption> CheckNames(MakeRun* run) {
    const MakeOptions& options = run->options;
    std::vector<SoundOption> sounds;
    std::vector<std::string> inputs = InputFiles(options.input);
    for (const std::string& text : options.sounds) {
        sounds.push_back(ParseAudioOption(text, static_cast<uint32_t>(sounds.size())));
        inputs.push_back(sounds.back().name);
    }
    CheckSoundOptions("--audio", sounds, options.input.names);
    if (options.output == "-") throw Failure{EXIT_USAGE, "-o -: a movie can't be written to a pipe; name a file"};
    run->target = CheckOutput(options.output, inputs, options.force, false);
    run->part.emplace(run->target, inputs, options.force);
    if (options.log.empty()) return sounds;
    if (options.log == options.output || SameFile(options.log, options.output))
        throw Failure{EXIT_USAGE, fmt::format("--log {}: is the movie itself; name another file", options.log)};
    run->log.emplace(options.log == "-" ? "-" : CheckOutput(options.log, inputs, options.force, false), options.force);
    return sounds;
}

// The sound starts where the picture does.
void AddSounds(MakeRun* run, const std::vector<SoundOption>& sounds) {
    const Fraction rate = run->source->format.rate;
    for (const SoundOption& sound : sounds) {
        run->sounds.Add(sound);
        const double seconds = double(run->options.input.seek) * rate.denominator / rate.numerator;
        if (seconds > 0) run->sounds.sources.back()->Skip(seconds);
    }
}

} // namespace

int RunMake(const MakeOptions& options) {
    MakeRun run(options);
    const std::vector<SoundOption> sounds = CheckNames(&run);
    run.source = OpenFrames(options.input);
    if (options.alpha && options.noAlpha) throw Failure{EXIT_USAGE, "--alpha and --no-alpha: give one of them"};
    if (options.alpha && !run.source->format.alpha)
        throw Failure{EXIT_USAGE,
                      fmt::format("--alpha: {} carries none; raw pictures (--raw) and PNG can", run.source->name)};
    AddSounds(&run, sounds);
    run.frameBytes = ChooseFrameBytes(options, run.source->format);
    if (!run.source->frames && options.frames == 0) run.source = ReadAhead(std::move(run.source), AHEAD_BYTES);
    run.capacity = ChooseCapacity(run);
    const bool known = run.source->frames || options.frames != 0;
    run.progress.emplace(options.quiet, known ? run.capacity : 0, run.source->format.rate, run.frameBytes);
    running = &run;
    bool tooMany = false;
    CountInterrupts();
    BeginMovie(&run);
    const ReadResult ended = PushFrames(&run, &tooMany);
    return Finish(&run, ended, tooMany);
}

} // namespace vorn
