// Ctrl-C and the like. Long work checks between its steps whether it should stop, so that it can
// say how far it came; a second Ctrl-C ends the program at once, which leaves nothing half-done
// either.
#ifndef KEEL_TOOLS_ARCA_INTERRUPT_H
#define KEEL_TOOLS_ARCA_INTERRUPT_H

#include "client/base/result.h"

#include <cstdint>
#include <functional>

namespace arca::tool
{

/// From now on the first SIGINT, SIGTERM or SIGHUP is only noted; a question to a person ends with
/// it all the same. Signals that were ignored when the program started stay ignored. Any further
/// call does nothing, so that a second signal still ends the program.
void catchInterrupts();

/// Returns true once a signal was noted. Any thread.
bool interrupted();
/// Fails with interruption("nothing was changed") once interrupted(). For use before any change.
Result<void> expectUninterrupted();
/// Returns a function for work that reports its progress: it shows that on a terminal, and returns
/// false, which stops the work, once interrupted(). Copies share one line; one thread calls it.
std::function<bool(std::uint64_t done, std::uint64_t planned)>
shownProgress(const std::string &label);
/// Returns the same for a query of objects: it shows the update of the catalogue and then, unless
/// the label is empty, the query.
std::function<bool(std::uint64_t done, std::uint64_t planned)> shownQuery(const std::string &label);
/// Returns the failure that a verb ends with after a signal. `done` is a clause that says what was
/// done so far.
Error interruption(const std::string &done);

} // namespace arca::tool

#endif
