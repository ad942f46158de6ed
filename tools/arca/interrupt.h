// Ctrl-C and the like. Long work looks between its steps whether it should stop, so that it can say
// how far it came; a second Ctrl-C ends the program at once, which leaves nothing half-done either.
#ifndef KEEL_TOOLS_ARCA_INTERRUPT_H
#define KEEL_TOOLS_ARCA_INTERRUPT_H

#include "client/base/result.h"

#include <cstdint>
#include <functional>

namespace arca::tool
{

/// From now on a signal is noted; nothing must be asked of a person any more, who could not end the
/// question. Signals that were ignored when the program started stay so.
void catchInterrupts();

bool interrupted();
/// For work that tells how far it is: shows that on a terminal, and stops it once interrupted().
std::function<bool(std::uint64_t done, std::uint64_t planned)>
shownProgress(const std::string &label);
/// What a verb ends with then. `done` says what was done so far.
Error interruption(const std::string &done);

} // namespace arca::tool

#endif
