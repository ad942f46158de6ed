// SQLite, behind what the caches need of it: see the header.
#include "client/base/local/database.h"

#include "client/base/descriptor.h"
#include "client/base/local/sqlite_host.h"

#include <sqlite3.h>

#include <algorithm>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca
{

namespace
{

constexpr int kStepsAtOnce = 500; // some ten microseconds
constexpr std::uint64_t kLittleSteps = 1'000'000;
/// Reading a row takes some ten steps, and a row has 80 bytes or more: a file of smaller rows,
/// which is none of ours, is not read to its end. kMostSteps are some seconds, whatever its length.
constexpr std::uint64_t kWholeSteps = 10'000'000, kMostSteps = 500'000'000;
constexpr std::uint64_t kBytesPerStep = 4;

/// Never waits: the holder may be stopped. A lock that this descriptor holds is exchanged.
bool tryLock(int descriptor, bool exclusive)
{
#ifdef LOCK_SH
    return flock(descriptor, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0;
#else
    // A record lock does not exclude threads of one process: one may remove a file that another has
    // open, which costs only what the cache held.
    struct flock whole = {};
    whole.l_type = exclusive ? F_WRLCK : F_RDLCK;
    whole.l_whence = SEEK_SET;
    return fcntl(descriptor, F_SETLK, &whole) == 0;
#endif
}

bool isOwnRegularFile(const struct stat &state)
{
    return S_ISREG(state.st_mode) && state.st_uid == geteuid() && state.st_nlink == 1;
}

/// Returns true for a failure for want of space, time or permission: the file may be good.
bool isInnocent(int code)
{
    if (code == SQLITE_IOERR_NOMEM)
        return true;
    switch (code & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_NOMEM:
    case SQLITE_FULL:
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_CANTOPEN:
    case SQLITE_INTERRUPT: // by the owner; goesOn() notes the other reason
        return true;
    default:
        return false;
    }
}

std::string_view shown(const char *text)
{
    return text == nullptr ? std::string_view() : std::string_view(text);
}

} // namespace

void Statement::Finalise::operator()(sqlite3_stmt *statement) const
{
    sqlite3_finalize(statement);
}

StatementUse::StatementUse(const Statement &statement, Work work)
    : database_(statement.database_), statement_(statement.statement_.get())
{
    if (database_ != nullptr)
        database_->allow(work);
}

StatementUse::~StatementUse()
{
    if (statement_ == nullptr)
        return; // it could not be prepared
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

void StatementUse::bind(int place, std::int64_t value)
{
    sqlite3_bind_int64(statement_, place, value);
}

void StatementUse::bind(int place, ByteView bytes)
{
    sqlite3_bind_blob64(statement_, place, bytes.data(), bytes.size(), SQLITE_STATIC);
}

void StatementUse::bind(int place, std::string_view text)
{
    sqlite3_bind_text64(statement_, place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

bool StatementUse::row()
{
    if (statement_ == nullptr)
        return false;
    const int code = sqlite3_step(statement_);
    (void)database_->noteOutcome(code);
    atEnd_ = code == SQLITE_DONE;
    return code == SQLITE_ROW;
}

bool StatementUse::done()
{
    return !row() && atEnd();
}

bool StatementUse::atEnd() const
{
    return atEnd_ && !database_->doubtful_;
}

bool StatementUse::isOf(int type, int column) const
{
    const bool right = sqlite3_column_type(statement_, column) == type;
    database_->doubtful_ = database_->doubtful_ || !right;
    return right;
}

std::int64_t StatementUse::number(int column) const
{
    return isOf(SQLITE_INTEGER, column) ? sqlite3_column_int64(statement_, column) : 0;
}

ByteView StatementUse::bytes(int column) const
{
    if (!isOf(SQLITE_BLOB, column))
        return {};
    const void *const data = sqlite3_column_blob(statement_, column);
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return {static_cast<const std::byte *>(data), data == nullptr ? 0 : length};
}

std::string StatementUse::text(int column) const
{
    if (!isOf(SQLITE_TEXT, column))
        return {};
    // In this order: the first call may convert what the second one measures.
    const unsigned char *const data = sqlite3_column_text(statement_, column);
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return data == nullptr ? std::string()
                           : std::string(reinterpret_cast<const char *>(data), length);
}

void Database::Close::operator()(sqlite3 *connection) const
{
    sqlite3_close_v2(connection);
}

bool Database::open()
{
    close();
    doubtful_ = busy_ = false;
    const SqliteUse use = prepareSqlite();
    const bool allowed = use == SqliteUse::everything || (use != SqliteUse::nothing && !isFile());
    if (allowed && takeLock() && connect() && checkSchema())
        return true;
    connection_.reset(); // the lock is kept for discard()
    return false;
}

bool Database::takeLock()
{
    if (!isFile())
        return true;
    int number = 0;
    const std::string path = path_ + "-lock";
    lock_ = OwnDescriptor::open(
        {AT_FDCWD, path.c_str()},
        [&] { return openAbove(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK); },
        number);
    if (!lock_ || !tryLock(lock_->number(), false))
        return false;
    struct stat state;
    if (lstat(path_.c_str(), &state) == 0 && !isOwnRegularFile(state)) {
        doubtful_ = true; // a directory, a link, a pipe: nothing that we made
        return false;
    }
    return true;
}

bool Database::connect()
{
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX |
                           SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
    sqlite3 *opened = nullptr;
    const int code = sqlite3_open_v2(path_.c_str(), &opened, kFlags, "unix");
    connection_.reset(opened);
    if (code != SQLITE_OK)
        return noteOutcome(code);
    sqlite3_busy_timeout(opened, patience_);
    sqlite3_progress_handler(
        opened, kStepsAtOnce,
        [](void *database) { return static_cast<Database *>(database)->goesOn() ? 0 : 1; }, this);
    return hardenConnection(opened) &&
           run("PRAGMA cell_size_check=ON; PRAGMA mmap_size=0; PRAGMA cache_size=-4096;"
               "PRAGMA synchronous=OFF; PRAGMA journal_mode=DELETE;",
               Work::whole);
}

void Database::close()
{
    connection_.reset();
    lock_.reset();
}

bool Database::discard()
{
    connection_.reset();
    const bool mayGo = lock_ && tryLock(lock_->number(), true);
    if (mayGo)
        for (const char *ending : {"", "-journal", "-wal", "-shm"})
            (void)unlink((path_ + ending).c_str());
    close();
    return mayGo || !isFile();
}

bool Database::isDoubtful() const
{
    return doubtful_;
}

bool Database::noteOutcome(int code)
{
    doubtful_ = doubtful_ || !isInnocent(code);
    busy_ = busy_ || (code & 0xff) == SQLITE_BUSY;
    return code == SQLITE_OK;
}

/// Returns true when the file's schema is ours, or the file has none yet: then `empty` is set.
/// False on any difference, which makes the file doubtful, and on failure.
bool Database::isSchema(bool &empty)
{
    const Statement ask =
        prepare("SELECT type, name, tbl_name, ifnull(sql, '') FROM sqlite_schema");
    StatementUse use(ask, Work::whole);
    std::size_t found = 0, needed = 0;
    for (const SchemaItem &item : schema_)
        needed += item.later ? 0 : 1;
    while (use.row()) {
        const std::string type = use.text(0), name = use.text(1), table = use.text(2),
                          sql = use.text(3);
        bool known = false;
        for (const SchemaItem &item : schema_) {
            if (type != item.type || name != item.name || table != item.table ||
                sql != shown(item.sql))
                continue;
            known = true;
            found += item.later ? 0 : 1;
        }
        if (!known || found > needed) {
            doubtful_ = true;
            return false;
        }
    }
    if (!use.atEnd())
        return false;
    empty = found == 0;
    if (!empty && found != needed)
        doubtful_ = true;
    return !doubtful_;
}

bool Database::checkSchema()
{
    bool empty = false;
    if (!isSchema(empty))
        return false;
    if (!empty)
        return true;
    // Another process may be making the schema, too: look again under the write lock.
    if (!run("BEGIN IMMEDIATE"))
        return false;
    if (isSchema(empty) && (!empty || makeSchema()) && run("COMMIT"))
        return true;
    rollBack();
    return false;
}

void Database::rollBack()
{
    // Some failures have ended the transaction already.
    if (connection_ && sqlite3_get_autocommit(connection_.get()) == 0)
        (void)run("ROLLBACK");
}

bool Database::makeSchema()
{
    bool good = true;
    for (const SchemaItem &item : schema_)
        if (item.sql != nullptr && !item.later)
            good = good && run(item.sql);
    return good;
}

bool Database::createLater()
{
    bool good = true;
    for (const SchemaItem &item : schema_) {
        if (!item.later || !good)
            continue;
        const Statement ask = prepare("SELECT count(*) FROM sqlite_schema WHERE name=?1");
        StatementUse use(ask);
        use.bind(1, std::string_view(item.name));
        if (!use.row())
            return false;
        good = use.number(0) != 0 || run(item.sql, Work::whole);
    }
    return good;
}

void Database::allow(Work work)
{
    stepsLeft_ = kLittleSteps;
    if (work == Work::little)
        return;
    struct stat state;
    stepsLeft_ = kMostSteps;
    if (isFile() && stat(path_.c_str(), &state) == 0)
        stepsLeft_ = std::min(kMostSteps, kWholeSteps + static_cast<std::uint64_t>(state.st_size) /
                                                            kBytesPerStep);
}

bool Database::goesOn()
{
    if (stepsLeft_ < kStepsAtOnce) {
        doubtful_ = true;
        return false;
    }
    stepsLeft_ -= kStepsAtOnce;
    return !goOn_ || goOn_();
}

bool Database::run(const char *sql, Work work)
{
    if (!connection_)
        return false;
    allow(work);
    return noteOutcome(sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr));
}

Statement Database::prepare(const char *sql)
{
    sqlite3_stmt *made = nullptr;
    if (!connection_)
        return {};
    allow(Work::whole); // the whole schema is read, which anybody may have made long
    if (!noteOutcome(sqlite3_prepare_v2(connection_.get(), sql, -1, &made, nullptr)))
        return {};
    return {this, made};
}

} // namespace arca
