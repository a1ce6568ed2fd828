// Exit.h - how a command of `vorn` ends.
// A command either returns an exit code or throws a Failure, which Main prints as one line on standard error.
#pragma once

#include <string>
#include <utility>

namespace vorn {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_FAILED = 1; // a file can't be opened, read or written; the library refused
constexpr int EXIT_USAGE = 2;  // arguments that make no sense
constexpr int EXIT_DIFFERS =
    3; // verify: can be decoded but breaks a rule of the format; make --verify: read back wrong
constexpr int EXIT_DAMAGED =
    4; // input that is damaged, cut or too long; what came of it has been written if that makes sense
constexpr int EXIT_EXISTS = 5;    // the output exists and --force wasn't given
constexpr int EXIT_STOPPED = 130; // stopped by a signal, with a complete file of what was done until then

struct Failure {
    int code;
    std::string text; // one line without a newline: what, which file or option, which value, what would be accepted
};

} // namespace vorn
