// Interrupt.cpp - see Interrupt.h.
#include "tools/Interrupt.h"

#include <csignal>
#include <initializer_list>

namespace vorn {

// The only thing that a signal handler can talk to is a static variable.
static volatile std::sig_atomic_t interruptCount = 0;

static void CountInterrupt(int) {
    if (interruptCount < 100) interruptCount = interruptCount + 1;
}

void CatchInterrupts() {
    struct sigaction action = {};
    action.sa_handler = CountInterrupt;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        // A signal that the caller has switched off (nohup) stays off.
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

int InterruptCount() {
    return interruptCount;
}

} // namespace vorn
