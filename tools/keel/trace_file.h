// Looks at the file that --trace names before the agent appends to it: the agent appends to
// whatever it is given. One thread.
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

} // namespace keel

#endif
