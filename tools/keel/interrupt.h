// Stopping on SIGINT, SIGTERM and SIGHUP without leaving anything half done.
//
// The first signal is only noted; the verb meets it as a Failure at its next step, and what is open
// is undone on the way out. A second one ends the program at once, which is safe too: an unfinished
// piece never shows.
#ifndef KEEL_TOOLS_KEEL_INTERRUPT_H
#define KEEL_TOOLS_KEEL_INTERRUPT_H

namespace keel
{

/// Called once, before the first piece is opened. A broken output pipe becomes an ordinary write
/// error.
void catchInterrupts();

/// Throws Failure when a signal has come.
void checkInterrupted();

enum class Direction { kRead, kWrite };

/// Returns when the descriptor can be read or written; throws Failure when a signal comes first.
void waitUntilReady(int descriptor, Direction direction);

} // namespace keel

#endif
