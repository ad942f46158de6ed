// SQLite in a process that is not ours: its system calls, made so that it never takes one of the
// standard descriptors, never maps a file into memory, never ends the host by a signal, and opens
// and removes nothing but its own kind of files. The copy of SQLite is ours alone, so the host's is
// not touched.
//
// A child that is forked has SQLite as it was in that moment: the list of open files half changed,
// perhaps, and their locks counted as held, which a child never inherits. So it opens no file by
// name. What is in memory, or in a file without a name, shares nothing with the parent's.
#ifndef KEEL_CLIENT_BASE_SQLITE_HOST_H
#define KEEL_CLIENT_BASE_SQLITE_HOST_H

struct sqlite3;

namespace arca
{

/// What a process may do with SQLite.
enum class SqliteUse {
    nothing,      // it could not be initialised, or a fork came in between; that stays so
    withoutNames, // it was initialised before the fork: only databases that have no file name
    everything,
};

/// Initialises SQLite with these system calls, once for the process; any thread may call it.
SqliteUse prepareSqlite();

/// Makes a connection refuse what a prepared file could use against us: triggers, views, virtual
/// tables, functions in a schema, attached files, large values. Call it before the first statement.
/// Returns false when it failed; close the connection then.
bool hardenConnection(sqlite3 *connection);

} // namespace arca

#endif
