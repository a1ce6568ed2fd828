// FileName.cpp - is there such a file, which one is it, and what does its name say?
#include "tools/FileName.h"

#include <sys/stat.h>
#include <unistd.h>

#include "tools/Text.h"

namespace vorn {

bool FileStands(const std::string& name) {
    struct stat info = {};
    return lstat(name.c_str(), &info) == 0;
}

bool IsFolder(const std::string& name) {
    struct stat info = {};
    return stat(name.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool SameFile(const std::string& input, const std::string& output) {
    struct stat a = {};
    struct stat b = {};
    const int found = input == "-" ? fstat(STDIN_FILENO, &a) : stat(input.c_str(), &a);
    return found == 0 && stat(output.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string LowerExtension(const std::string& name) {
    const size_t dot = name.rfind('.');
    const size_t slash = name.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string extension = name.substr(dot);
    for (char& c : extension)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return extension;
}

bool ParseNumberedName(const std::string& text, NumberedName* name) {
    const size_t percent = text.find('%');
    if (percent == std::string::npos || text.find('%', percent + 1) != std::string::npos) return false;
    size_t at = percent + 1;
    name->digits = 1;
    if (at + 1 < text.size() && text[at] == '0' && text[at + 1] >= '1' && text[at + 1] <= '9') {
        name->digits = text[at + 1] - '0';
        at += 2;
    }
    if (at >= text.size() || text[at] != 'd' || text.find('/', at) != std::string::npos) return false;
    name->before = text.substr(0, percent);
    name->behind = text.substr(at + 1);
    return true;
}

std::string NumberedName::Name(uint64_t number) const {
    return fmt::format("{}{:0{}}{}", before, number, digits, behind);
}

} // namespace vorn
