// Manual.cpp - which files the manual consists of, and what the word for a value tells about it.
#include "tools/Manual.h"

#include "tools/Exit.h"
#include "tools/Output.h"

namespace vorn {

namespace {

void WriteFile(const std::string& name, const std::string& text) {
    OutputFile file(name, true);
    file.Write(text.data(), text.size());
    file.Finish();
}

// The word that tells what an option takes: the one for its value, or the name of an argument.
const std::string& ValueWord(const OptionText& option) {
    return option.value.empty() && option.names.front()[0] != '-' ? option.names.front() : option.value;
}

} // namespace

ValueKind KindOf(const OptionText& option) {
    const std::string& word = ValueWord(option);
    if (word.empty()) return ValueKind::NONE;
    if (!option.choices.empty()) return ValueKind::CHOICE;
    for (const char* file : {"FILE", "OUT", "FOLDER", "DIR", "MOVIE", "INPUT", "SOURCE"})
        if (word.find(file) != std::string::npos) return ValueKind::FILE;
    return ExtensionOf(option).empty() ? ValueKind::OTHER : ValueKind::FILE;
}

std::string ExtensionOf(const OptionText& option) {
    const std::string& word = ValueWord(option);
    if (word == "MOVIE") return ".vrn";
    const size_t dot = word.rfind('.');
    const bool extension =
        dot != std::string::npos && dot + 1 < word.size() && word[dot + 1] >= 'a' && word[dot + 1] <= 'z';
    return extension ? word.substr(dot) : "";
}

int RunManual(const CommandText& program, const ManualOptions& options) {
    if (!options.manFolder.empty()) {
        WriteFile(options.manFolder + "/vorn.1", ManPage(program, program));
        for (const CommandText& command : program.commands)
            WriteFile(options.manFolder + "/vorn-" + command.name + ".1", ManPage(program, command));
    }
    if (!options.completionFolder.empty()) {
        WriteFile(options.completionFolder + "/vorn.bash", BashCompletion(program));
        WriteFile(options.completionFolder + "/_vorn", ZshCompletion(program));
    }
    return EXIT_DONE;
}

} // namespace vorn
