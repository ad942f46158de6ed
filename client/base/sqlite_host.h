// SQLite in a process that is not ours: its system calls, made so that it never takes one of the
// standard descriptors, never maps a file into memory, never ends the host by a signal, and opens
// and removes nothing but its own kind of files. The copy of SQLite is ours alone, so the host's is
// not touched.
#ifndef KEEL_CLIENT_BASE_SQLITE_HOST_H
#define KEEL_CLIENT_BASE_SQLITE_HOST_H

struct sqlite3;

namespace arca
{

/// Initialises SQLite with these system calls, once for the process; any thread may call it.
/// Returns false when that failed, and then always: use no database.
bool prepareSqlite();

/// Makes a connection refuse what a prepared file could use against us: triggers, views, virtual
/// tables, functions in a schema, attached files, large values. Call it before the first statement.
/// Returns false when it failed; close the connection then.
bool hardenConnection(sqlite3 *connection);

} // namespace arca

#endif
