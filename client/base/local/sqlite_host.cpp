// The system calls of SQLite, and what its connections refuse: see the header.
#include "client/base/local/sqlite_host.h"

#include "client/base/descriptor.h"
#include "client/base/local/sqlite_mutex.h"
#include "common/unx/pswrite.h"

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca
{

namespace
{

/// A row of a cache has at most some thousand bytes; a page, which is read and written whole, 64
/// KiB.
constexpr int kMaxValueBytes = 64 << 10;

bool endsIn(const char *path, std::string_view ending)
{
    return std::string_view(path).ends_with(ending);
}

/// Returns true for this user's regular file and for a directory: nothing that a read could wait
/// for.
bool isTrustworthy(int descriptor)
{
    struct stat state;
    return fstat(descriptor, &state) == 0 &&
           ((S_ISREG(state.st_mode) && state.st_uid == geteuid()) || S_ISDIR(state.st_mode));
}

int openSafely(const char *path, int flags, int)
{
    if (std::strcmp(path, "/dev/urandom") == 0)
        return openAbove(path, O_RDONLY);
    // Held by SQLite in place of a standard descriptor; ours is above them already.
    const int descriptor = openAbove(path, flags | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (descriptor >= 0 && !isTrustworthy(descriptor)) {
        (void)close(descriptor);
        errno = EACCES;
        return -1;
    }
    return descriptor;
}

/// A change beyond the limit on file sizes would raise SIGXFSZ, which ends the host. To SQLite that
/// is a full disk.
template <class Change> auto safely(Change change)
{
    const psWriteGuard guard;
    const auto result = change();
    if (result < 0 && errno == EFBIG)
        errno = ENOSPC;
    return result;
}

ssize_t writeSafely(int descriptor, const void *bytes, std::size_t length)
{
    return safely([&] { return write(descriptor, bytes, length); });
}

ssize_t pwriteSafely(int descriptor, const void *bytes, std::size_t length, off_t at)
{
    return safely([&] { return pwrite(descriptor, bytes, length, at); });
}

int truncateSafely(int descriptor, off_t length)
{
    return safely([&] { return ftruncate(descriptor, length); });
}

int allocateSafely(int descriptor, off_t at, off_t length)
{
    const psWriteGuard guard;
    const int number = posix_fallocate(descriptor, at, length);
    return number == EFBIG ? ENOSPC : number;
}

/// Reading a mapped file that was cut raises SIGBUS. Without maps there is no write-ahead log
/// either, whatever a file asks for.
void *refuseToMap(void *, std::size_t, int, int, int, off_t)
{
    errno = ENOMEM;
    return MAP_FAILED;
}

/// A journal names a file that SQLite removes with it; a prepared journal could name any file.
int removeSafely(const char *path)
{
    if (endsIn(path, "-journal") || std::strstr(path, "etilqs_") != nullptr)
        return unlink(path);
    errno = EPERM;
    return -1;
}

template <class Call> bool replace(sqlite3_vfs *files, const char *name, Call *call)
{
    // A build of SQLite may do without some of them.
    return files->xGetSystemCall(files, name) == nullptr ||
           files->xSetSystemCall(files, name, reinterpret_cast<sqlite3_syscall_ptr>(call)) ==
               SQLITE_OK;
}

bool prepare()
{
    // Without statistics no mutex is taken for each piece of memory.
    if (sqlite3_config(SQLITE_CONFIG_MUTEX, &forkedMutexes()) != SQLITE_OK ||
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) != SQLITE_OK ||
        sqlite3_initialize() != SQLITE_OK)
        return false;
    sqlite3_vfs *const files = sqlite3_vfs_find("unix");
    return files != nullptr && files->iVersion >= 3 && replace(files, "open", openSafely) &&
           replace(files, "write", writeSafely) && replace(files, "pwrite", pwriteSafely) &&
           replace(files, "pwrite64", pwriteSafely) &&
           replace(files, "ftruncate", truncateSafely) &&
           replace(files, "fallocate", allocateSafely) && replace(files, "mmap", refuseToMap) &&
           replace(files, "unlink", removeSafely);
}

} // namespace

/// Two atomics, and no static that is initialised here: a fork that interrupts its initialisation
/// would hang the child. `beginner` is the process that initialises SQLite, `maker` the one that
/// has done so, or kFailed.
SqliteUse prepareSqlite()
{
    constexpr int kNobody = 0, kFailed = -1;
    static std::atomic<pid_t> maker = kNobody;
    static std::atomic<pid_t> beginner = kNobody;
    const pid_t self = getpid();
    pid_t before = kNobody;
    if (beginner.compare_exchange_strong(before, self))
        maker = prepare() ? self : kFailed;
    while (maker == kNobody) {
        if (beginner != self)
            return SqliteUse::nothing; // a thread of the parent was in the middle of it
        (void)sched_yield();
    }
    if (maker == kFailed)
        return SqliteUse::nothing;
    return maker == self ? SqliteUse::everything : SqliteUse::withoutNames;
}

bool hardenConnection(sqlite3 *connection)
{
    constexpr std::pair<int, int> kSettings[] = {
        {SQLITE_DBCONFIG_DEFENSIVE, 1},      {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
        {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0}, {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
        {SQLITE_DBCONFIG_DQS_DDL, 0},        {SQLITE_DBCONFIG_DQS_DML, 0},
    };
    constexpr std::pair<int, int> kLimits[] = {
        {SQLITE_LIMIT_LENGTH, kMaxValueBytes},
        {SQLITE_LIMIT_SQL_LENGTH, 4096},
        {SQLITE_LIMIT_COLUMN, 32},
        {SQLITE_LIMIT_EXPR_DEPTH, 32},
        {SQLITE_LIMIT_COMPOUND_SELECT, 2},
        {SQLITE_LIMIT_VDBE_OP, 10'000},
        {SQLITE_LIMIT_FUNCTION_ARG, 8},
        {SQLITE_LIMIT_ATTACHED, 0},
        {SQLITE_LIMIT_VARIABLE_NUMBER, 16},
        {SQLITE_LIMIT_TRIGGER_DEPTH, 1},
        {SQLITE_LIMIT_WORKER_THREADS, 0},
    };
    bool good = sqlite3_drop_modules(connection, nullptr) == SQLITE_OK;
    for (const auto &[setting, value] : kSettings)
        good = good && sqlite3_db_config(connection, setting, value, nullptr) == SQLITE_OK;
    for (const auto &[limit, value] : kLimits)
        (void)sqlite3_limit(connection, limit, value);
    return good;
}

} // namespace arca
