// Manual.h - what the program says about itself, as plain records, and what is made of them: man pages, and completions for
// shells. Main.cpp fills the records from its options, so that there is nothing to keep in step.
#pragma once

#include <string>
#include <vector>

namespace vorn {

struct OptionText {
    std::vector<std::string> names; // "-o", "--output"; of an argument that stands by its place, one without a dash
    std::string value;              // what stands for its value, "WIDTHxHEIGHT"; "" for a flag, or if the name says it
    std::vector<std::string> choices; // all values that there are, or none
    std::string text;                 // one sentence without a full stop
    bool required = false;
    bool repeats = false; // may be given more than once
};

struct CommandText {
    std::string name;                  // "make", or "vorn" for the program itself
    std::string text;                  // as above
    std::string notes;                 // sentences, or ""
    std::vector<std::string> examples; // command lines
    std::vector<OptionText> options;
    std::vector<CommandText> commands; // of the program only
};

struct ManualOptions {
    std::string manFolder;        // for vorn.1, vorn-make.1, ...; "": none
    std::string completionFolder; // for vorn.bash and _vorn; "": none
};

// Each text is a whole file.
std::string ManPage(const CommandText& program, const CommandText& command); // `command` may be the program itself
std::string BashCompletion(const CommandText& program);
std::string ZshCompletion(const CommandText& program);

// What may stand as the value of an option or argument, by its choices and the word that stands for it.
enum class ValueKind { NONE, CHOICE, FILE, OTHER };
ValueKind KindOf(const OptionText& option);
// The extension, with its dot, of the files that an option takes; "" for any.
std::string ExtensionOf(const OptionText& option);

int RunManual(const CommandText& program, const ManualOptions& options);

} // namespace vorn
