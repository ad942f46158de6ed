// The standard streams that a program was started with.
#ifndef KEEL_TOOLS_COMMON_COMMAND_STREAMS_H
#define KEEL_TOOLS_COMMON_COMMAND_STREAMS_H

#include <string>

namespace tools
{

/// Opens /dev/null for reading wherever a standard descriptor is closed, so that no file that is
/// opened later gets its number and the program's output; writing there fails with EBADF. Ignores
/// SIGPIPE and SIGXFSZ: a reader that ends, and the limit on the size of files, become a failed
/// write. Call it before anything is opened.
void secureStandardStreams();

/// Writes `text` to standard error as it is. A failure is ignored: the last message of a program
/// must not end it when its terminal is closed.
void complain(const std::string &text);

/// What both programs say when nothing failed but writing to standard output.
constexpr const char *kReportUnwritten =
    "everything else is done, but standard output could not be written";

} // namespace tools

#endif
