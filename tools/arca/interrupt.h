// Ctrl-C and the like. Long work looks between its steps whether it should stop, so that it can say
// how far it came; a second Ctrl-C ends the program at once, which leaves nothing half-done either.
#ifndef KEEL_TOOLS_ARCA_INTERRUPT_H
#define KEEL_TOOLS_ARCA_INTERRUPT_H

#include "client/base/result.h"

#include <cstdint>
#include <functional>

namespace arca::tool
{

/// From now on a signal is noted; a question to a person ends with it all the same. Signals that
/// were ignored when the program started stay so.
void catchInterrupts();

bool interrupted();
/// Before anything is changed.
Result<void> expectUninterrupted();
/// For work that tells how far it is: shows that on a terminal, and stops it once interrupted().
std::function<bool(std::uint64_t done, std::uint64_t planned)>
shownProgress(const std::string &label);
/// The same for a query of objects: how far the catalogue's update is, and then, unless the label
/// is empty, how far the query.
std::function<bool(std::uint64_t done, std::uint64_t planned)> shownQuery(const std::string &label);
/// What a verb ends with then. `done` says what was done so far.
Error interruption(const std::string &done);

} // namespace arca::tool

#endif
