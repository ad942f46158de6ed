// The mutexes of SQLite, of our own making: those that belong to no connection are free again in a
// forked child, whatever a thread of the parent held.
#ifndef KEEL_CLIENT_BASE_SQLITE_MUTEX_H
#define KEEL_CLIENT_BASE_SQLITE_MUTEX_H

struct sqlite3_mutex_methods;

namespace arca
{

/// For SQLITE_CONFIG_MUTEX. From the first call on, the process renews them at every fork. Never
/// destroyed. What a mutex guarded may be half changed in the child: sqlite_host.h says what a
/// child may use.
const sqlite3_mutex_methods &forkedMutexes();

} // namespace arca

#endif
