// Ctrl-C and the like. Long work looks between its steps whether it should stop, so that it can say
// how far it came; a second Ctrl-C ends the program at once, which leaves nothing half-done either.
#ifndef KEEL_TOOLS_ARCA_INTERRUPT_H
#define KEEL_TOOLS_ARCA_INTERRUPT_H

#include "client/base/result.h"

namespace arca::tool
{

/// From now on a signal is noted; nothing must be asked of a person any more, who could not end the
/// question. Signals that were ignored when the program started stay so.
void catchInterrupts();

bool interrupted();
/// What a verb ends with then. `done` says what was done so far.
Error interruption(const std::string &done);

} // namespace arca::tool

#endif
