// The standard streams that a program was started with. Any thread, but for the first call.
#ifndef KEEL_TOOLS_COMMON_COMMAND_STREAMS_H
#define KEEL_TOOLS_COMMON_COMMAND_STREAMS_H

#include <string>
#include <utility>

#include <fmt/core.h>

namespace tools
{

/// Opens /dev/null, the wrong way round, wherever a standard descriptor is closed, so that no file
/// that is opened later gets its number and the program's output; reading standard input and
/// writing the two others then fail with EBADF. Ignores SIGPIPE and SIGXFSZ: a reader that ends,
/// and the limit on the size of files, become a failed write. Call it before anything is opened.
void secureStandardStreams();

/// Writes `text` to standard error as it is. A failure is ignored: the last message of a program
/// must not end it when its terminal is closed.
void complain(const std::string &text);

/// Writes `text` to standard output as it is. A failure is noted and ends no work: the end of the
/// program asks isPrinted() and says what is the matter.
void say(const std::string &text);

/// Says the formatted text. fmt::print() throws where nothing can be written, which would drop the
/// rest of the work, or the rest of its words.
template <class... Values> void print(fmt::format_string<Values...> format, Values &&...values)
{
    say(fmt::format(format, std::forward<Values>(values)...));
}

/// Writes out what is still buffered of standard output. Returns false when some of what the
/// program has said so far got lost.
[[nodiscard]] bool isPrinted();

/// What both programs say when nothing failed but writing to standard output.
constexpr const char *kReportUnwritten =
    "everything else is done, but standard output could not be written";

} // namespace tools

#endif
