// Whether a signal has asked the process to end in order, without a handler of our own: the process
// may be a host's. Any thread may call these.
#ifndef KEEL_CLIENT_BLOB_ENDING_SIGNALS_H
#define KEEL_CLIENT_BLOB_ENDING_SIGNALS_H

namespace arca::blob
{

/// Remembers which of SIGINT, SIGTERM and SIGHUP the process handles now. Call it before waiting.
void noteHandledSignals();

/// Returns true when a handler that noteHandledSignals() saw is gone: a program that ends in order
/// handles the first signal only, its handler goes as it is called (SA_RESETHAND), and a second
/// signal ends the program.
bool endIsWanted();

} // namespace arca::blob

#endif
