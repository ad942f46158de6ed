// The client's local log: whole lines appended to a file that other processes, and the application
// itself, append to as well. It is never cut, wrapped or replaced. Any thread may write.
#ifndef KEEL_CLIENT_API_LOCAL_LOG_H
#define KEEL_CLIENT_API_LOCAL_LOG_H

#include <string>

namespace arca::api
{

/// Appends "<date> <time> TID<pid>  ==>  <text>" and a newline as one write, under a lock on the
/// whole file unless another process keeps that for more than a second. The file is made with mode
/// 0600 when it is not there. Control characters of the text are shown escaped ("\n"), and more
/// than 4,000 bytes are cut and marked with "...", as the agent does in the same file. Returns
/// false when the line could not be written whole, also because the path leads to no regular file;
/// under the lock nothing of the line is there then.
bool appendToLocalLog(const std::string &path, const std::string &text);

} // namespace arca::api

#endif
