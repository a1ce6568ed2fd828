// FileName.h - what stands under a name, and names that differ in a number.
#pragma once

#include <cstdint>
#include <string>

namespace vorn {

// Whether anything at all bears this name.
bool FileStands(const std::string& name);
// Whether it is a folder, or a link to one.
bool IsFolder(const std::string& name);
// Whether two names lead to one file, by device and inode. "-" means standard input for `input`.
bool SameFile(const std::string& input, const std::string& output);

// The extension with its dot, in small letters (".y4m"); "" for none.
std::string LowerExtension(const std::string& name);

// "shots/%04d.png": names that differ in a number. "%d" is any number, "%0Nd" one of N digits or more.
struct NumberedName {
    std::string before;
    int digits = 1; // at least so many, 1 to 9
    std::string behind;
    std::string Name(uint64_t number) const;
};
// Whether the text is such a name: a single %, in the last part of the path.
bool ParseNumberedName(const std::string& text, NumberedName* name);

} // namespace vorn
