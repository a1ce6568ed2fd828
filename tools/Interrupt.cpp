// Interrupt.cpp - what does a signal do, and what does it leave behind?
#include "tools/Interrupt.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <initializer_list>

#include <unistd.h>

#include "tools/Exit.h"

namespace vorn {

namespace {

// A signal handler can talk to static variables only, and call next to nothing.
struct Slot {
    volatile std::sig_atomic_t used; // the name is complete
    char name[PATH_MAX];
};
constexpr int SLOTS = 8;
Slot slots[SLOTS];
volatile std::sig_atomic_t counting = 0;
volatile std::sig_atomic_t interruptCount = 0;
volatile std::sig_atomic_t onTerminal = 0; // standard error, where a progress line may stand

void HearSignal(int) {
    if (counting != 0) {
        if (interruptCount < 100) interruptCount = interruptCount + 1;
        return;
    }
    for (const Slot& slot : slots)
        if (slot.used != 0 && unlink(slot.name) != 0) rmdir(slot.name);
    static const char TEXT[] = "\r\033[Kvorn: stopped by a signal; nothing is left\n";
    const size_t skipped = onTerminal != 0 ? 0 : 4;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, TEXT + skipped, sizeof TEXT - 1 - skipped);
    _exit(EXIT_FAILED);
}

} // namespace

void CatchInterrupts() {
    onTerminal = isatty(STDERR_FILENO) == 1 ? 1 : 0;
    struct sigaction action = {};
    action.sa_handler = HearSignal;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        // A signal that the caller has switched off (nohup) stays off.
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

void CountInterrupts() {
    counting = 1;
}

int InterruptCount() {
    return interruptCount;
}

void UnfinishedFile::Note(const std::string& name) {
    Forget();
    if (name.size() >= PATH_MAX) return;
    for (int i = 0; i < SLOTS && slot < 0; i++) {
        if (slots[i].used != 0) continue;
        std::memcpy(slots[i].name, name.c_str(), name.size() + 1);
        std::atomic_signal_fence(std::memory_order_release);
        slots[i].used = 1;
        slot = i;
    }
}

InterruptsHeld::InterruptsHeld() {
    sigset_t held;
    sigemptyset(&held);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&held, number);
    pthread_sigmask(SIG_BLOCK, &held, &before);
}

InterruptsHeld::~InterruptsHeld() {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void UnfinishedFile::Forget() {
    if (slot >= 0) slots[slot].used = 0;
    slot = -1;
}

} // namespace vorn
