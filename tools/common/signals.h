// Ctrl-C and the like, for work that wants to end in order.
#ifndef KEEL_TOOLS_COMMON_SIGNALS_H
#define KEEL_TOOLS_COMMON_SIGNALS_H

namespace tools
{

/// The first SIGINT, SIGTERM or SIGHUP goes to the handler and ends no system call; a second one of
/// the kind ends the program at once. Those that were ignored when the program started stay so:
/// nohup, or a shell's background job.
void noteSignals(void (*handler)(int));

} // namespace tools

#endif
