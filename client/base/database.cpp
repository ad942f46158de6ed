// SQLite, behind what the caches need of it: see the header.
#include "client/base/database.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca
{

namespace
{

constexpr int kBusyMilliseconds = 5000;

/// Never waits: whoever holds it may have been stopped. A lock that was taken before is exchanged.
bool tryLock(int descriptor, bool exclusive)
{
#ifdef LOCK_SH
    return flock(descriptor, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0;
#else
    // Does not keep threads of one process apart, which then find a damaged file once more.
    struct flock whole = {};
    whole.l_type = exclusive ? F_WRLCK : F_RDLCK;
    whole.l_whence = SEEK_SET;
    return fcntl(descriptor, F_SETLK, &whole) == 0;
#endif
}

} // namespace

void Statement::Finalise::operator()(sqlite3_stmt *statement) const
{
    sqlite3_finalize(statement);
}

StatementUse::StatementUse(const Statement &statement) : statement_(statement.statement_.get()) {}

StatementUse::~StatementUse()
{
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
    const int code = sqlite3_step(statement_);
    atEnd_ = code == SQLITE_DONE;
    return code == SQLITE_ROW;
}

bool StatementUse::done()
{
    return !row() && atEnd_;
}

std::int64_t StatementUse::number(int column) const
{
    return sqlite3_column_int64(statement_, column);
}

ByteView StatementUse::bytes(int column) const
{
    // In this order: the first call may convert what the second one measures.
    const void *const data = sqlite3_column_blob(statement_, column);
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return {static_cast<const std::byte *>(data), data == nullptr ? 0 : length};
}

std::string StatementUse::text(int column) const
{
    return std::string(textOf(bytes(column)));
}

void Database::Close::operator()(sqlite3 *connection) const
{
    sqlite3_close_v2(connection);
}

bool Database::open()
{
    close();
    if (isFile()) {
        lock_ = ::open((path_ + "-lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (lock_ < 0 || !tryLock(lock_, false))
            return false;
    }
    sqlite3 *opened = nullptr;
    const int code =
        sqlite3_open_v2(path_.c_str(), &opened,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    connection_.reset(opened);
    if (code != SQLITE_OK)
        return false;
    sqlite3_busy_timeout(opened, kBusyMilliseconds);
    return true;
}

void Database::close()
{
    connection_.reset();
    if (lock_ >= 0)
        (void)::close(lock_);
    lock_ = -1;
}

bool Database::discard()
{
    connection_.reset();
    const bool mayGo = lock_ >= 0 && tryLock(lock_, true);
    if (mayGo)
        for (const char *ending : {"", "-wal", "-shm"})
            (void)unlink((path_ + ending).c_str());
    close();
    return mayGo || !isFile();
}

bool Database::isDamaged() const
{
    const int code = connection_ ? sqlite3_errcode(connection_.get()) & 0xff : SQLITE_OK;
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

bool Database::run(const char *sql)
{
    return sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

Statement Database::prepare(const char *sql)
{
    sqlite3_stmt *made = nullptr;
    if (sqlite3_prepare_v2(connection_.get(), sql, -1, &made, nullptr) != SQLITE_OK)
        return {};
    return Statement(made);
}

void Database::askWhileRunning(std::function<bool()> goOn)
{
    constexpr int kSteps = 500; // some ten microseconds
    goOn_ = std::move(goOn);
    const auto ask = [](void *asked) {
        return (*static_cast<std::function<bool()> *>(asked))() ? 0 : 1;
    };
    sqlite3_progress_handler(connection_.get(), goOn_ ? kSteps : 0, goOn_ ? +ask : nullptr, &goOn_);
}

void makeCacheDirectory(const std::string &path)
{
    (void)mkdir(path.substr(0, path.rfind('/')).c_str(), 0700);
    (void)mkdir(path.c_str(), 0700);
}

} // namespace arca
