// Text.h - lines for people: errors, notes, the progress line; and the small texts that options are made of.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#define FMT_HEADER_ONLY 1
#include <fmt/format.h>

namespace vorn {

// Frames per second as an exact fraction. 0/0: not known.
struct Fraction {
    uint32_t numerator = 0;
    uint32_t denominator = 0;
};

// Prints on standard error and never fails: nobody may be listening, and nothing hangs on it. May be called from the
// library's callbacks.
void Say(std::string_view text) noexcept;
// Prints "vorn: TEXT" on standard error as one line; newlines within become spaces.
void PrintError(std::string_view text);

// A whole number from 0 to `limit` and nothing else, or false.
bool ParseNumber(std::string_view text, uint64_t limit, uint64_t* value);
// "30", "30000/1001" or "30000:1001"; both parts from 1 to 4294967295. Throws a usage Failure that names `option`.
Fraction ParseRate(const std::string& option, const std::string& text);
// "320x240", each from 1 to 65535. Throws a usage Failure that names `option`.
void ParseSize(const std::string& option, const std::string& text, uint32_t* width, uint32_t* height);
// "1:02:03"
std::string TimeText(double seconds);

// How far a command has come: on a terminal one line that is drawn over, five times a second; in a log a plain line
// every ten seconds; with --quiet nothing.
class Progress {
public:
    // total       frames, or 0 if nobody knows
    // rate        of the movie; for its data rate
    // frameBytes  what each frame should take, or 0
    Progress(bool quiet, uint64_t total, Fraction rate, uint32_t frameBytes = 0);
    ~Progress();
    // Draws if it is time to. `bytes` is the size of what has been written so far, or 0 for none to tell.
    void Update(uint64_t done, uint64_t bytes);
    // Removes the line from the terminal, so that something else can be printed.
    void Clear();

private:
    std::string Line(uint64_t done, uint64_t bytes, double seconds) const;

    bool quiet;
    bool terminal;
    bool drawn = false;
    uint64_t total;
    Fraction rate;
    uint32_t frameBytes;
    std::chrono::steady_clock::time_point start;
    std::chrono::steady_clock::time_point last;
};

} // namespace vorn
