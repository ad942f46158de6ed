// Looks at the files that --trace and --log name before anything is appended to them: the agent and
// the log append to whatever they are given. One thread.
#ifndef KEEL_TOOLS_KEEL_TRACE_FILE_H
#define KEEL_TOOLS_KEEL_TRACE_FILE_H

#include <string>
#include <vector>

namespace keel
{

/// Succeeds when nothing is lost by appending a database trace to the file: it leads to none of
/// `others`, by whatever name, and is not there yet, empty, a database trace already, or no regular
/// file. A character device, as /dev/null, is never one of `others`; empty names are skipped. An
/// empty `trace` succeeds.
/// Throws UsageError when it is one of `others`, and Failure when it holds something else or cannot
/// be looked at.
void expectTraceFile(const std::string &trace, const std::vector<std::string> &others);

/// Succeeds when the log leads to another file than the data of the piece, as above; a character
/// device may be both. Throws UsageError.
void expectLogFile(const std::string &log, const std::string &data);

} // namespace keel

#endif
