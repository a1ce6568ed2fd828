// ManPages.cpp - manual pages in roff: options as Main.cpp has them, and what can't be told in an option's one sentence.
#include "tools/Exit.h"
#include "tools/Manual.h"
#include "tools/Text.h"

namespace vorn {

namespace {

// Text as roff prints it unchanged. A hyphen between two letters may become a typographic one; any other is
// something to type.
std::string Roff(const std::string& text) {
    const auto letter = [&](size_t at) {
        return at < text.size() && std::isalpha(static_cast<unsigned char>(text[at]));
    };
    std::string roff;
    for (size_t at = 0; at < text.size(); at++) {
        const char c = text[at];
        const bool start = at == 0 || text[at - 1] == '\n';
        if (c == '\\') {
            roff += "\\e";
        } else if (c == '-') {
            roff += at > 0 && letter(at - 1) && letter(at + 1) ? "-" : "\\-";
        } else if (c == '\'') {
            roff += "\\(aq";
        } else if (c == '`') {
            roff += "\\(ga";
        } else if (c == '~') {
            roff += "\\(ti";
        } else if (c == '^') {
            roff += "\\(ha";
        } else {
            if (start && c == '.') roff += "\\&";
            roff += c;
        }
    }
    return roff;
}

// A name to type: every hyphen as it is.
std::string Literal(const std::string& text) {
    const std::string roff = Roff(text);
    std::string literal;
    for (size_t at = 0; at < roff.size(); at++) {
        if (roff[at] == '-' && (at == 0 || roff[at - 1] != '\\')) literal += '\\';
        literal += roff[at];
    }
    return literal;
}

struct Section {
    const char* command;
    const char* title;
    const char* text; // paragraphs divided by empty lines
};

const Section SECTIONS[] = {
    {"make", "PICTURES",
     R"(Y4M with 8 bits a sample: C420 (taken as C420jpeg), C420jpeg, C420mpeg2, C420paldv, C422, C444, Cmono; BT.601,
studio range. Interlaced pictures are coded as whole pictures, pixel aspect is not kept.

PNG: single files in the order given, all of a folder, or a numbered row such as shots/%04d.png. Their alpha is kept.

Or raw pictures, see --raw. Several inputs follow one another.)"},
    {"make", "SOUND",
     R"(WAV, FLAC, Ogg and AIFF with 1 or 2 channels and up to 65535 samples a second; wider samples are rounded to 16 bits.
Sound that ends before the picture is followed by silence. A quality below 100 codes each channel alone, from 100 on both
together; modulo 100, 0 is the finest and from 36 on nearly nothing is left.)"},
    {"make", "PIPES",
     R"(A pipe does not tell how long it is. Up to 64 MiB of its pictures are read before the movie is opened; if it ends
within them, the movie is the same as from a file. If not, room is left for --capacity frames.)"},
    {"make", "FILES",
     R"(While it is made the movie is called OUT.vrn.part.tmp, which is a movie as well: after a crash, vorn verify
--growing reads it. It takes its name when it is complete and on disk. Should another file appear under that name
meanwhile, it stays, and so does OUT.vrn.part.)"},
    {"make", "SIGNALS",
     R"(One SIGINT, SIGTERM or SIGHUP ends the movie with the frames done, as a complete file. A second one drops it.)"},
    {"decode", "DAMAGED MOVIES", "What comes before the damage is written, but no complete file is replaced with it."},
    {"mix", "TRACKS",
     R"(A track is replaced if the movie has one of that number, else added. The picture stays byte for byte. New sound
comes in the formats and with the qualities that vorn make takes.)"},
};

const std::pair<int, const char*> EXIT_TEXTS[] = {
    {EXIT_DONE, "Done."},
    {EXIT_FAILED,
     R"(Something can't be opened, read or written, or is of a kind that isn't taken; or a signal stopped the command,
with nothing left.)"},
    {EXIT_USAGE, "Arguments that make no sense."},
    {EXIT_DIFFERS, "verify: the movie can be decoded, but breaks a rule of the format."},
    {EXIT_DAMAGED, "The input is damaged, cut, or longer than the movie can be. What came before has been written."},
    {EXIT_EXISTS, "The output exists, and --force was not given."},
    {EXIT_STOPPED, "Stopped by a signal, with a complete file of what was done."},
};

// Lines of a paragraph become one: roff breaks them where it likes.
std::string Paragraphs(const std::string& text) {
    const std::string roff = Roff(text);
    std::string paragraphs;
    for (size_t at = 0; at < roff.size(); at++) {
        if (roff[at] != '\n') {
            paragraphs += roff[at];
        } else if (roff[at + 1] != '\n') {
            paragraphs += ' ';
        } else {
            paragraphs += "\n.PP\n";
            at++;
        }
    }
    return paragraphs + "\n";
}

std::string Value(const OptionText& option) {
    if (!option.choices.empty()) return fmt::format("{}", fmt::join(option.choices, "|"));
    return option.value;
}

std::string Synopsis(const CommandText& program, const CommandText& command) {
    if (&program == &command) return ".B vorn\n.I COMMAND\n[\\fIoption\\fR ...]\n";
    std::string text = fmt::format(".B vorn {}\n[\\fIoption\\fR ...]\n", Literal(command.name));
    for (const OptionText& option : command.options) {
        const std::string& name = option.names.back();
        if (!option.required) continue;
        if (name[0] == '-') text += fmt::format("\\fB{}\\fR ", Literal(option.names.front()));
        text +=
            fmt::format("\\fI{}\\fR{}\n", Literal(name[0] == '-' ? Value(option) : name), option.repeats ? " ..." : "");
    }
    return text;
}

std::string Option(const OptionText& option) {
    std::string names;
    for (const std::string& name : option.names)
        names += fmt::format("{}\\f{}{}\\fR", names.empty() ? "" : ", ", name[0] == '-' ? 'B' : 'I', Literal(name));
    const std::string value = Value(option);
    if (!value.empty()) names += fmt::format(" \\fI{}\\fR", Literal(value));
    if (option.repeats) names += " ...";
    return fmt::format(".TP\n{}\n{}.\n", names, Roff(option.text));
}

std::string Commands(const CommandText& program) {
    std::string text = ".SH COMMANDS\n";
    for (const CommandText& command : program.commands)
        text += fmt::format(".TP\n.BR vorn\\-{} (1)\n{}.\n", command.name, Roff(command.text));
    return text;
}

std::string ExitStatus() {
    std::string text = ".SH \"EXIT STATUS\"\n";
    for (const auto& [code, meaning] : EXIT_TEXTS) text += fmt::format(".TP\n.B {}\n{}", code, Paragraphs(meaning));
    return text;
}

std::string SeeAlso(const CommandText& program, const CommandText& command) {
    std::vector<std::string> pages;
    if (&program != &command) pages.push_back(".BR vorn (1)");
    for (const CommandText& other : program.commands)
        if (&other != &command) pages.push_back(fmt::format(".BR vorn\\-{} (1)", other.name));
    return fmt::format(".SH \"SEE ALSO\"\n{}\n", fmt::join(pages, ",\n"));
}

} // namespace

std::string ManPage(const CommandText& program, const CommandText& command) {
    const bool whole = &program == &command;
    const std::string name = whole ? "vorn" : "vorn-" + command.name;
    std::string summary = command.text;
    summary[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(summary[0])));
    std::string title = Literal(name);
    for (char& c : title) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));

    std::string page =
        fmt::format(".\\\" Made by `vorn manual`.\n.TH {} 1 \"\" \"vorn {}\" \"Vorn\"\n.SH NAME\n{} \\- {}\n", title,
                    VORN_VERSION, Literal(name), Roff(summary));
    page += ".SH SYNOPSIS\n" + Synopsis(program, command);
    if (!command.notes.empty()) page += ".SH DESCRIPTION\n" + Paragraphs(command.notes);
    if (whole) page += Commands(program);
    page += ".SH OPTIONS\n";
    for (const OptionText& option : command.options) page += Option(option);
    for (const Section& section : SECTIONS)
        if (section.command == command.name) page += fmt::format(".SH {}\n{}", section.title, Paragraphs(section.text));
    page += ExitStatus();
    if (!command.examples.empty()) page += ".SH EXAMPLES\n.EX\n";
    for (const std::string& example : command.examples) page += Literal(example) + "\n";
    if (!command.examples.empty()) page += ".EE\n";
    return page + SeeAlso(program, command);
}

} // namespace vorn
