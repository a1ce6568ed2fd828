// Main.cpp - the program `vorn`: its arguments, and how it ends. The only file that knows the option parser.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>

#include <fcntl.h>

#include <CLI/CLI.hpp>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/Interrupt.h"
#include "tools/Manual.h"

namespace vorn {

namespace {

// Checks of values, which tell what would be taken, and of which the help says nothing.
CLI::Validator Whole(uint64_t least, uint64_t most = UINT32_MAX) {
    const auto check = [=](const std::string& text) {
        uint64_t value = 0;
        if (ParseNumber(text, most, &value) && value >= least) return std::string();
        return fmt::format("{} is no whole number from {} to {}", text, least, most);
    };
    return CLI::Validator(check, "");
}

CLI::Validator Positive() {
    const auto check = [](const std::string& text) {
        double value = 0;
        const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool good = result.ec == std::errc() && result.ptr == text.data() + text.size() && value > 0;
        return good && std::isfinite(value) ? std::string() : fmt::format("{} is no number above 0", text);
    };
    return CLI::Validator(check, "");
}

// A whole number from `least` to `most`, or several of them if the value is a list.
template <class Value>
CLI::Option* AddNumber(CLI::App* app, const std::string& name, Value* value, const std::string& what,
                       const std::string& word, uint64_t least = 0, uint64_t most = UINT32_MAX) {
    return app->add_option(name, *value, what)->check(Whole(least, most))->type_name(word);
}

// One of some words.
void AddChoice(CLI::App* app, const std::string& name, std::string* value, const std::string& what,
               const std::vector<std::string>& words) {
    const auto check = [=](const std::string& text) {
        if (std::find(words.begin(), words.end(), text) != words.end()) return std::string();
        return fmt::format("{} is none of {}", text, fmt::join(words, ", "));
    };
    app->add_option(name, *value, what)
        ->check(CLI::Validator(check, ""))
        ->type_name(fmt::format("{}", fmt::join(words, "|")));
}

// ---- Options of several commands -------------------------------------------------------------------------------------

void AddMovie(CLI::App* app, std::string* movie) {
    app->add_option("MOVIE", *movie, "The movie")->required()->type_name("");
}

void AddForce(CLI::App* app, bool* force, bool* quiet) {
    app->add_flag("-f,--force", *force, "Replace an existing output, once the new one is complete");
    app->add_flag("-q,--quiet", *quiet, "No progress, no summary; errors only");
}

constexpr char INPUTS[] = "Y4M, PNG (files, a folder, shots/%04d.png); - is standard input";

// The form of pictures and where they start. `input` is what --help calls them, `start` what is told of --seek.
void AddSourceForm(CLI::App* app, InputOptions* options, const std::string& input, const std::string& start) {
    app->add_option("--raw", options->raw, fmt::format("The {} is raw pictures, bytes B, G, R, A", input))
        ->type_name("WIDTHxHEIGHT");
    AddNumber(app, "--seek", &options->seek, start, "N");
}

// Where pictures come from.
void AddInput(CLI::App* app, InputOptions* input, const std::string& name, const std::string& what) {
    app->add_option(name, input->names, what)->required()->type_name("");
    AddSourceForm(app, input, "input", "Start at frame N of the input, counted from 0");
}

// What a movie was made from, if that is wanted.
void AddSource(CLI::App* app, InputOptions* source, const std::string& what) {
    app->add_option("--source", source->names, what)->allow_extra_args(false)->type_name("FILE");
    AddSourceForm(app, source, "source", "The movie starts at frame N of the source");
}

void AddRate(CLI::App* app, InputOptions* input) {
    app->add_option("--fps", input->rate, "Frames per second, in place of what the input says")->type_name("N/D");
}

void AddLookAhead(CLI::App* app, uint32_t* lookAhead) {
    AddNumber(app, "--look-ahead", lookAhead, "Frames over which bytes are shared out (16)", "2..64", 2, 64);
}

void AddFrames(CLI::App* app, uint32_t* frames) {
    AddNumber(app, "--frames", frames, "Take at most so many frames", "N", 1);
}

void AddThreads(CLI::App* app, uint32_t* threads) {
    AddNumber(app, "--threads", threads, "Threads that compress (one per processor)", "1..32", 1, 32);
}

// ---- The commands ----------------------------------------------------------------------------------------------------

// How large the movie becomes and how the bytes are shared out.
void AddMakeSize(CLI::App* app, MakeOptions* o) {
    app->add_option("--rate", o->rateKbit, "Size of the movie, sound and picture, in kbit/s")
        ->check(Positive())
        ->type_name("KBIT");
    AddNumber(app, "--frame-bytes", &o->frameBytes, "The same as bytes a frame", "N", 1);
    AddChoice(app, "--quality", &o->quality, "The same by picture size; middle is the default",
              {"low", "middle", "high"});
    AddNumber(app, "--cap", &o->cap, "Most bytes for the picture of a frame (no limit)", "BYTES");
    AddNumber(app, "--key-interval", &o->keyInterval, "Frames from one key frame to the next (only the first)", "N");
    AddLookAhead(app, &o->lookAhead);
}

void AddMake(CLI::App* main, MakeOptions* o) {
    CLI::App* app = main->add_subcommand("make", "Make a movie from pictures and sound");
    AddInput(app, &o->input, "INPUT", INPUTS);
    AddRate(app, &o->input);
    AddFrames(app, &o->frames);
    AddNumber(app, "--capacity", &o->capacity, "Room for frames from a long pipe (108000)", "N", 1);
    app->add_option("-o,--output", o->output, "The movie")->required()->type_name("OUT.vrn");
    AddMakeSize(app, o);
    app->add_flag("--grey", o->grey, "Leave the colour out");
    app->add_flag("--alpha", o->alpha, "Keep the alpha of raw pictures; that of PNG is kept anyway");
    app->add_flag("--no-alpha", o->noAlpha, "Leave alpha out");
    app->add_option("--audio", o->sounds, "A track; any number of them. Quality: 0 finest to 99, 100 to 199")
        ->allow_extra_args(false)
        ->type_name("FILE[,id=N,quality=N]");
    app->add_flag("--verify", o->verify, "Read everything back and compare it with what the encoder holds");
    app->add_option("--log", o->log, "A table: size, error and time of each frame")->type_name("FRAMES.csv");
    AddThreads(app, &o->threads);
    AddForce(app, &o->force, &o->quiet);
    app->footer("Examples: vorn make clip.y4m --audio clip.wav --rate 800 -o clip.vrn\n"
                "          vorn make shots/%04d.png --fps 25 --quality high -o shots.vrn");
}

void AddInfo(CLI::App* main, InfoOptions* o) {
    CLI::App* app = main->add_subcommand("info", "Tell what a movie is and where its bytes go");
    AddMovie(app, &o->movie);
    app->add_flag("--frames", o->frames, "A line for each frame as well");
    app->add_flag("--blocks", o->blocks, "How the blocks of each plane are coded; with --frames of each");
    app->add_flag("--json", o->json, "All of it as JSON, for programs");
    app->footer("Example: vorn info clip.vrn --blocks");
}

void AddVerify(CLI::App* main, VerifyCommandOptions* o) {
    CLI::App* app = main->add_subcommand("verify", "Decode all of a movie and check every rule of the format");
    AddMovie(app, &o->movie);
    AddSource(app, &o->source, "What it was made from: tell error and PSNR of each plane");
    AddNumber(app, "--most", &o->most, "Print at most so many violations (10)", "N");
    app->add_flag("--growing", o->growing, "The movie isn't finished yet: a NAME.part.tmp");
    app->add_flag("--no-pacing", o->noPacing, "Sound need not be 3/4 of a second ahead (after mix --fps)");
    app->add_flag("-q,--quiet", o->quiet, "Violations only");
    app->footer("Exit code 3: it can be decoded, but a rule is broken; 4: it can't be decoded.\n"
                "Example: vorn verify clip.vrn --source clip.y4m");
}

void AddDecode(CLI::App* main, DecodeOptions* o) {
    CLI::App* app = main->add_subcommand("decode", "Write a movie's pictures or sound to a plain file");
    AddMovie(app, &o->movie);
    app->add_option("-o,--output", o->output, ".y4m, .bgra, .wav, .png, shots/%04d.png, a folder; - is a pipe")
        ->required()
        ->type_name("OUT");
    AddChoice(app, "--as", &o->kind, "What to write if the name doesn't tell", {"y4m", "bgra", "png", "wav"});
    app->add_option("--frame", o->frames, "Only frame N, frames N to M, or all from N on, counted from 0")
        ->type_name("N, N-M, N-");
    AddNumber(app, "--audio", &o->track, "The sound of track ID instead of the picture", "ID");
    AddForce(app, &o->force, &o->quiet);
    app->footer("Examples: vorn decode clip.vrn --frame 25 -o picture.png\n"
                "          vorn decode clip.vrn --frame 0-24 -o shots/%04d.png");
}

void AddCompare(CLI::App* main, CompareOptions* o) {
    CLI::App* app = main->add_subcommand("compare", "Tell how far a movie is from its source");
    AddMovie(app, &o->movie);
    AddInput(app, &o->source, "SOURCE", "What it was made from");
    app->add_option("-o,--output", o->picture, "A picture of source (left) and result (right)")->type_name("SIDES.png");
    AddNumber(app, "--frame", &o->frame, "Only this frame; else all, and the picture is of the middle one", "N");
    AddForce(app, &o->force, &o->quiet);
    app->footer("Example: vorn compare clip.vrn clip.y4m -o sides.png");
}

void AddReport(CLI::App* main, ReportOptions* o) {
    CLI::App* app = main->add_subcommand("report", "Make a page that plays a movie and shows where its bytes go");
    AddMovie(app, &o->movie);
    app->add_option("-o,--output", o->output, "The page, with everything in it; - is standard output")
        ->required()
        ->type_name("OUT.html");
    AddSource(app, &o->source, "What it was made from, to show errors and pictures side by side");
    AddNumber(app, "--show", &o->shown, "Show this frame beside its source; any number of them", "N")
        ->allow_extra_args(false);
    AddNumber(app, "--frame-bytes", &o->frameBytes, "The budget that it was made with (the mean frame)", "N", 1);
    app->add_option("--rate", o->rateKbit, "The same as a data rate in kbit/s")->check(Positive())->type_name("KBIT");
    AddForce(app, &o->force, &o->quiet);
    app->footer("Example: vorn report clip.vrn --source clip.y4m --rate 800 -o clip.html");
}

void AddMix(CLI::App* main, MixOptions* o) {
    CLI::App* app = main->add_subcommand("mix", "Give a finished movie other sound; its picture stays as it is");
    AddMovie(app, &o->movie);
    app->add_option("-o,--output", o->output, "The new movie; with --force also the old one")
        ->required()
        ->type_name("OUT.vrn");
    app->add_option("--track", o->tracks, "Replace track ID, or add it; any number of them")
        ->allow_extra_args(false)
        ->type_name("ID=FILE[,quality=N]");
    AddNumber(app, "--drop", &o->drops, "Leave track ID out; any number of them", "ID")->allow_extra_args(false);
    AddNumber(app, "--delay", &o->delayFrames, "Start new sound so many frames late", "FRAMES", 0, 1 << 30);
    AddNumber(app, "--delay-ms", &o->delayMilliseconds, "Start new sound so much later", "MS", 0, 1 << 30);
    app->add_option("--fps", o->rate, "A new frame rate")->type_name("N/D");
    AddForce(app, &o->force, &o->quiet);
    app->footer("Example: vorn mix clip.vrn --track 0=speech.flac,quality=104 -o dubbed.vrn");
}

void AddBench(CLI::App* main, BenchOptions* o) {
    CLI::App* app = main->add_subcommand("bench", "Measure how fast a whole movie is made");
    AddInput(app, &o->input, "INPUT", INPUTS);
    AddRate(app, &o->input);
    AddNumber(app, "--frame-bytes", &o->frameBytes, "Bytes for each frame (one for every 8 pixels)", "N", 1);
    AddLookAhead(app, &o->lookAhead);
    AddFrames(app, &o->frames);
    AddThreads(app, &o->threads);
    AddNumber(app, "--rounds", &o->rounds, "Make the movie so often and tell the fastest (3)", "N", 1, 1000);
    app->footer("Example: vorn bench clip.y4m --threads 1");
}

void AddScene(CLI::App* main, SceneOptions* o) {
    CLI::App* app = main->add_subcommand("scene", "Draw pictures and sound to try things with");
    app->add_option("NAME", o->scene, "The scene; glass has alpha, for .bgra")
        ->required()
        ->type_name("balls|drift|cuts|noise|glass");
    app->add_option("-o,--output", o->output, "The pictures: .y4m, or .bgra for raw ones; - is a Y4M pipe")
        ->type_name("OUT");
    app->add_option("--sound", o->sound, "A tune as long as the pictures")->type_name("OUT.wav");
    app->add_option("--size", o->size, "Size of the pictures (320x240)")->type_name("WIDTHxHEIGHT");
    app->add_option("--fps", o->rate, "Frames per second (25)")->type_name("N/D");
    AddNumber(app, "--frames", &o->frames, "Number of frames (100)", "N", 1);
    AddForce(app, &o->force, &o->quiet);
    app->footer("Example: vorn scene balls -o balls.y4m --sound balls.wav");
}

// Whether --help knows a command.
bool Listed(const CLI::App* command) {
    return !command->get_group().empty();
}

// What the manual says of an option. A word like "a|b" for a value lists all that there are.
OptionText DescribeOption(const CLI::Option& option) {
    OptionText text;
    for (const std::string& name : option.get_snames()) text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) text.names.push_back("--" + name);
    if (text.names.empty()) text.names.push_back(option.get_name(true));
    text.text = option.get_description();
    text.required = option.get_required();
    text.repeats = option.get_items_expected_max() > 1;
    if (option.get_items_expected_max() != 0) text.value = option.get_type_name();
    if (text.value.find('|') != std::string::npos) text.choices = CLI::detail::split(text.value, '|');
    return text;
}

// The footer of a command may end with "Example: COMMAND LINE" or "Examples: " and several lines.
CommandText DescribeCommand(const CLI::App& app, const std::string& name) {
    CommandText text{name, app.get_description(), "", {}, {}, {}};
    const std::string footer = app.get_footer();
    const size_t examples = std::min(footer.find("Example"), footer.size());
    const size_t notes = std::min(footer.find("Exit code"), examples); // these have a section of their own
    text.notes = footer.substr(0, notes);
    CLI::detail::rtrim(text.notes);
    for (size_t at = examples; (at = footer.find("vorn ", at)) != std::string::npos;) {
        const size_t end = std::min(footer.find('\n', at), footer.size());
        text.examples.push_back(footer.substr(at, end - at));
        at = end;
    }
    for (const CLI::Option* option : app.get_options()) text.options.push_back(DescribeOption(*option));
    for (const CLI::App* command : app.get_subcommands(Listed))
        text.commands.push_back(DescribeCommand(*command, command->get_name()));
    return text;
}

void AddManual(CLI::App* main, ManualOptions* o) {
    CLI::App* app = main->add_subcommand("manual", "Write man pages and shell completions")->group(""); // not listed
    app->add_option("--man", o->manFolder, "Where vorn.1, vorn-make.1 and so on go")->type_name("DIR");
    app->add_option("--completions", o->completionFolder, "Where vorn.bash and _vorn go")->type_name("DIR");
}

// What the parser has no good words for: no command, or a word that is none.
void CheckCommand(const CLI::App& app, int count, char** arguments) {
    if (count > 1 && arguments[1][0] == '-') return;
    std::string names;
    for (const CLI::App* command : app.get_subcommands({})) {
        if (count > 1 && command->get_name() == arguments[1]) return;
        if (Listed(command)) names += (names.empty() ? "" : ", ") + command->get_name();
    }
    const std::string what = count > 1 ? fmt::format("{}: is no command", arguments[1]) : "a command is wanted";
    throw Failure{EXIT_USAGE, fmt::format("{}; there are {}; see --help", what, names)};
}

// A caller may have closed the first three descriptors; an output file must not get one of their numbers. What is put in
// their place answers the wrong use with an error.
void OpenStandardStreams() {
    const int modes[3] = {O_WRONLY, O_RDONLY, O_RDWR};
    for (int number = 0; number < 3; number++)
        if (fcntl(number, F_GETFD) < 0 && errno == EBADF) open("/dev/null", modes[number]); // takes the lowest number
}

int Run(int count, char** arguments) {
    MakeOptions make;
    InfoOptions info;
    VerifyCommandOptions verify;
    DecodeOptions decode;
    CompareOptions compare;
    MixOptions mix;
    ReportOptions report;
    SceneOptions scene;
    BenchOptions bench;
    ManualOptions manual;
    CLI::App app{"vorn - makes, reads and checks movies of the Vorn format", "vorn"};
    app.get_formatter()->column_width(36);
    app.require_subcommand(1);
    app.set_version_flag("--version", "vorn " VORN_VERSION);
    app.footer("vorn COMMAND --help tells more.\n"
               "Exit codes: 0 done, 1 failed, 2 usage, 3 differs, 4 input damaged or cut, 5 output exists,\n"
               "130 stopped by a signal with a complete file.");
    AddMake(&app, &make);
    AddInfo(&app, &info);
    AddVerify(&app, &verify);
    AddDecode(&app, &decode);
    AddCompare(&app, &compare);
    AddMix(&app, &mix);
    AddReport(&app, &report);
    AddScene(&app, &scene);
    AddBench(&app, &bench);
    AddManual(&app, &manual);
    CheckCommand(app, count, arguments);
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        throw Failure{EXIT_USAGE, fmt::format("{}; see --help", error.what())};
    }
    const std::string name = app.get_subcommands().at(0)->get_name();
    if (name == "make") return RunMake(make);
    if (name == "info") return RunInfo(info);
    if (name == "verify") return RunVerify(verify);
    if (name == "decode") return RunDecode(decode);
    if (name == "compare") return RunCompare(compare);
    if (name == "mix") return RunMix(mix);
    if (name == "report") return RunReport(report);
    if (name == "bench") return RunBench(bench);
    if (name == "manual") return RunManual(DescribeCommand(app, "vorn"), manual);
    return RunScene(scene);
}

} // namespace

} // namespace vorn

int main(int count, char** arguments) {
    vorn::OpenStandardStreams();
    // A reader of ours that has gone shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    vorn::CatchInterrupts();
    int code = vorn::EXIT_FAILED;
    try {
        code = vorn::Run(count, arguments);
    } catch (const vorn::Failure& failure) {
        vorn::PrintError(failure.text);
        code = failure.code;
    } catch (const std::bad_alloc&) {
        vorn::PrintError("out of memory");
    } catch (const std::exception& error) {
        vorn::PrintError(error.what());
    }
    // Results on standard output count only once they have arrived.
    if (std::fflush(stdout) != 0 && code == vorn::EXIT_DONE) {
        vorn::PrintError("standard output: can't be written");
        code = vorn::EXIT_FAILED;
    }
    return code;
}
