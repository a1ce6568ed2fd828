// Text.cpp - how is it said, how far has it come, and what does a number, a rate or a size mean that somebody typed?
#include "tools/Text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/Exit.h"

namespace vorn {

void Say(std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void PrintError(std::string_view text) {
    std::string line = "vorn: ";
    for (const char c : text) {
        const bool space = c == '\n' || c == '\r' || c == ' ';
        if (!space)
            line += c;
        else if (line.back() != ' ')
            line += ' ';
    }
    line += '\n';
    Say(line);
}

bool ParseNumber(std::string_view text, uint64_t limit, uint64_t* value) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *value);
    return result.ec == std::errc() && result.ptr == end && *value <= limit;
}

Fraction ParseRate(const std::string& option, const std::string& text) {
    const size_t cut = text.find_first_of("/:");
    uint64_t numerator = 0;
    uint64_t denominator = 1;
    bool good = ParseNumber(std::string_view(text).substr(0, cut), UINT32_MAX, &numerator);
    if (cut != std::string::npos)
        good = good && ParseNumber(std::string_view(text).substr(cut + 1), UINT32_MAX, &denominator);
    if (!good || numerator == 0 || denominator == 0)
        throw Failure{
            EXIT_USAGE,
            fmt::format("{} {}: frames per second as N or N/D, whole numbers from 1 (30, 30000/1001)", option, text)};
    return {static_cast<uint32_t>(numerator), static_cast<uint32_t>(denominator)};
}

void ParseSize(const std::string& option, const std::string& text, uint32_t* width, uint32_t* height) {
    const size_t cut = text.find('x');
    uint64_t w = 0;
    uint64_t h = 0;
    const bool good = cut != std::string::npos && ParseNumber(std::string_view(text).substr(0, cut), 65535, &w) &&
                      ParseNumber(std::string_view(text).substr(cut + 1), 65535, &h);
    if (!good || w == 0 || h == 0)
        throw Failure{EXIT_USAGE,
                      fmt::format("{} {}: a size is WIDTHxHEIGHT, each from 1 to 65535 (320x240)", option, text)};
    *width = static_cast<uint32_t>(w);
    *height = static_cast<uint32_t>(h);
}

std::string TimeText(double seconds) {
    const auto whole = static_cast<uint64_t>(std::max(0.0, seconds) + 0.5);
    return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

Progress::Progress(bool isQuiet, uint64_t totalFrames, Fraction frameRate, uint32_t targetBytes)
    : quiet(isQuiet), terminal(isatty(STDERR_FILENO) == 1), total(totalFrames), rate(frameRate),
      frameBytes(targetBytes), start(std::chrono::steady_clock::now()), last(start) {}

Progress::~Progress() {
    Clear();
}

void Progress::Clear() {
    if (drawn) Say("\r\033[K");
    drawn = false;
}

void Progress::Update(uint64_t done, uint64_t bytes) {
    if (quiet) return;
    const auto now = std::chrono::steady_clock::now();
    const auto pause = terminal ? std::chrono::milliseconds(200) : std::chrono::milliseconds(10000);
    if (now - last < pause) return;
    last = now;
    std::string line = Line(done, bytes, std::chrono::duration<double>(now - start).count());
    // A line that wraps can't be drawn over.
    winsize window = {};
    if (terminal && ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col != 0)
        line.resize(std::min<size_t>(line.size(), window.ws_col - 1u));
    Say(terminal ? fmt::format("\r{}\033[K", line) : line + '\n');
    drawn = terminal;
}

// [12.3%] 45/366 frames, 23.10 fps, 1234.56 of 1200.00 kbit/s, eta 0:00:12, 56 of 460 kB
std::string Progress::Line(uint64_t done, uint64_t bytes, double seconds) const {
    const double part = total == 0 ? 0 : static_cast<double>(done) / static_cast<double>(total);
    std::string line =
        total == 0 ? fmt::format("{} frames", done) : fmt::format("[{:.1f}%] {}/{} frames", part * 100, done, total);
    if (seconds > 0) line += fmt::format(", {:.2f} fps", static_cast<double>(done) / seconds);
    const bool sized = bytes != 0 && done != 0;
    if (sized && rate.denominator != 0) {
        const auto kbits = [&](double frameSize) { return frameSize * 8 / 1000 * rate.numerator / rate.denominator; };
        line += fmt::format(", {:.2f}", kbits(static_cast<double>(bytes) / static_cast<double>(done)));
        line += frameBytes == 0 ? " kbit/s" : fmt::format(" of {:.2f} kbit/s", kbits(frameBytes));
    }
    if (done != 0 && total != 0) line += fmt::format(", eta {}", TimeText(seconds / part - seconds));
    if (sized) line += fmt::format(", {}", bytes / 1000);
    if (sized && total != 0) line += fmt::format(" of {:.0f}", static_cast<double>(bytes) / part / 1000);
    return sized ? line + " kB" : line;
}

} // namespace vorn
