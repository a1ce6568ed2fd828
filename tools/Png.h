// Png.h - pictures as PNG files, single ones and numbered rows of them.
#pragma once

#include <cstdint>
#include <string>

namespace vorn {

class OutputFile;

// bgra: height rows of width pixels, 4 bytes each. Without `alpha` the fourth byte is left out. Throws a Failure.
void WritePng(OutputFile* file, const std::string& name, const uint8_t* bgra, uint32_t width, uint32_t height,
              bool alpha);
// The same as a file of its own. `force`: it may replace a file.
void WritePng(const std::string& name, const uint8_t* bgra, uint32_t width, uint32_t height, bool alpha, bool force);

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
