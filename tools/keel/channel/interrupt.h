// Stopping on SIGINT, SIGTERM and SIGHUP without leaving anything half done.
//
// The first signal is only noted; the verb's next step throws Failure, and destructors undo what is
// open. A second one ends the program at once, which is safe too: an unfinished piece never shows.
// One thread.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_INTERRUPT_H
#define KEEL_TOOLS_KEEL_CHANNEL_INTERRUPT_H

namespace keel
{

/// Installs the handlers; call it once in a process, before the first piece is opened. SIGPIPE is
/// ignored, so a broken output pipe is a failed write. Throws Failure when no descriptor is free.
void catchInterrupts();

/// Throws Failure when a signal has come.
void checkInterrupted();

/// Waits a moment. Throws Failure when a signal comes, or has come. Counts as waiting for --timing.
void waitForSignal();

enum class Direction { kRead, kWrite };

/// Returns when the descriptor can be read or written, or has an error, which the read or write
/// then reports. Throws Failure when a signal comes first. Counts as waiting for --timing.
void waitUntilReady(int descriptor, Direction direction);

} // namespace keel

#endif
