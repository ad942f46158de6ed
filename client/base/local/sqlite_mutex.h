// Mutexes for SQLite. Those that belong to no connection (its static ones) are free again in a
// forked child, even when a thread of the parent held them.
#ifndef KEEL_CLIENT_BASE_LOCAL_SQLITE_MUTEX_H
#define KEEL_CLIENT_BASE_LOCAL_SQLITE_MUTEX_H

struct sqlite3_mutex_methods;

namespace arca
{

/// Returns the table for SQLITE_CONFIG_MUTEX, which is never destroyed. A forked child
/// makes the static mutexes again before it takes the first of them. What such a mutex guarded may
/// be half changed in the child: sqlite_host.h says what a child may use.
const sqlite3_mutex_methods &forkedMutexes();

} // namespace arca

#endif
