// The client's local log: whole lines appended to a file that other processes, and the application
// itself, append to as well. It is never cut, wrapped or replaced. Any thread may write.
#ifndef KEEL_CLIENT_API_SESSION_LOCAL_LOG_H
#define KEEL_CLIENT_API_SESSION_LOCAL_LOG_H

#include <string>

namespace arca::api
{

/// Appends "MM/DD/YYYY HH:MM:SS TID<PID>  ==>  TEXT" (local time) and a newline as one write, under
/// a lock on the whole file; when another process holds that for more than a second, without it.
/// The file is made with mode 0600 when it is not there. Control characters of the text are escaped
/// ("\n"), and more than 4,000 bytes are cut and marked "...", as the agent does in the same file.
/// The line is not synced. Returns false when it could not be written whole, also because the path
/// leads to no regular file; nothing of the line is there then, unless the lock was not had. Throws
/// std::bad_alloc. Takes a mutex of its own.
bool appendToLocalLog(const std::string &path, const std::string &text);

} // namespace arca::api

#endif
