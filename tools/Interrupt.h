// Interrupt.h - SIGINT, SIGTERM and SIGHUP. As a rule they end the program with exit code 1, and nothing unfinished stays
// behind. A command that can finish what it has counts them instead: once asks it to finish, twice to give up.
#pragma once

#include <csignal>
#include <string>

namespace vorn {

// From here on one of the three signals removes all UnfinishedFiles and ends the program.
void CatchInterrupts();
// From here on they are only counted; system calls that wait return with EINTR.
void CountInterrupts();
// Signals counted so far.
int InterruptCount();

// A file, or an empty folder, that a signal removes on the way out. It does nothing else: its owner removes it in all other
// cases.
class UnfinishedFile {
public:
    UnfinishedFile() = default;
    ~UnfinishedFile() { Forget(); }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    void Note(const std::string& name);
    void Forget();

private:
    int slot = -1; // -1: none is noted
};

// As long as it stands, this thread hears none of the three signals: between a file's making and its note none may come.
class InterruptsHeld {
public:
    InterruptsHeld();
    ~InterruptsHeld();
    InterruptsHeld(const InterruptsHeld&) = delete;
    InterruptsHeld& operator=(const InterruptsHeld&) = delete;

private:
    sigset_t before;
};

} // namespace vorn
