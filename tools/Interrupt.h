// Interrupt.h - SIGINT, SIGTERM and SIGHUP: once asks a command to finish with what it has, twice to give up.
#pragma once

namespace vorn {

// From here on the three signals are counted; system calls that wait return with EINTR.
void CatchInterrupts();
// Signals so far.
int InterruptCount();

} // namespace vorn
