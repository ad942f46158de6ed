// SQLite in a process that is not ours. Its system calls are replaced, so that it never takes one
// of the standard descriptors, never maps a file into memory, never ends the host by a signal,
// opens only directories and regular files of this user, and removes only journals and its own
// temporary files. The copy of SQLite is ours alone: the host's is not touched.
//
// A forked child has SQLite as it was in the moment of the fork: its list of open files may be half
// changed, and counts locks as held that a child does not inherit. So a child opens no file by
// name. A database in memory, or in a file without a name, shares nothing with the parent's.
#ifndef KEEL_CLIENT_BASE_LOCAL_SQLITE_HOST_H
#define KEEL_CLIENT_BASE_LOCAL_SQLITE_HOST_H

struct sqlite3;

namespace arca
{

/// What a process may do with SQLite.
enum class SqliteUse {
    nothing,      // it could not be initialised, or a fork came in between; that stays so
    withoutNames, // it was initialised before the fork: only databases that have no file name
    everything,   // databases in files, too
};

/// Initialises SQLite with these system calls, once for the process, and returns what this process
/// may do with it. Any thread may call it, as often as it likes; a second one waits for the first.
SqliteUse prepareSqlite();

/// Makes a connection refuse what a prepared file could use against us: triggers, views, virtual
/// tables, functions in a schema, attached files, large values. Call it before the first statement.
/// Returns false when a setting failed; close the connection then.
bool hardenConnection(sqlite3 *connection);

} // namespace arca

#endif
