// Whether a signal has asked the process to end in order, without a handler of our own: the process
// may be a host's, whose handlers mean nothing to us. A program that wants its waits to end says so
// by the way it installs its handlers. Any thread may call this.
#ifndef KEEL_CLIENT_BLOB_ENDING_SIGNALS_H
#define KEEL_CLIENT_BLOB_ENDING_SIGNALS_H

namespace arca::blob
{

/// Returns true when the program handles the first of SIGINT, SIGTERM and SIGHUP only
/// (SA_RESETHAND) with all three in the handler's mask, and one of them has come. The system then
/// puts the default in the handler's place and leaves flags and mask, so nothing has to be
/// remembered.
bool endIsWanted();

} // namespace arca::blob

#endif
