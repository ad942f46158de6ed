// Ctrl-C and the like, for work that wants to end in order.
#ifndef KEEL_TOOLS_COMMON_SIGNALS_H
#define KEEL_TOOLS_COMMON_SIGNALS_H

namespace tools
{

/// Installs `handler` for the first SIGINT, SIGTERM and SIGHUP each; system calls that it
/// interrupts are restarted, but poll(2) is not. A second signal of the same kind ends the program
/// at once. Signals that were ignored when the program started (nohup, a shell's background job)
/// stay ignored. SA_RESETHAND together with all three in the mask also tells the storage client
/// that the program wants to end: its waits for locks then end. `handler` may do only what a signal
/// handler may.
void noteSignals(void (*handler)(int));

} // namespace tools

#endif
