// The standard streams that a program was started with.
#ifndef KEEL_TOOLS_COMMON_STREAMS_H
#define KEEL_TOOLS_COMMON_STREAMS_H

#include <string>

namespace tools
{

/// Puts something harmless where a standard stream is closed, so that no file that is opened later
/// gets its number and is written over by what is meant for people; writing there fails. A reader
/// that goes away, and the limit on the size of files, become a failed write, not a signal. Before
/// anything else is opened.
void secureStandardStreams();

/// Standard error, without throwing: what is told last must not end the program when the terminal
/// that it is told to has gone away.
void complain(const std::string &text);

} // namespace tools

#endif
