// A file of SQLite that holds nothing but what can be made again. What is read from it may be
// anything: it lies in a directory where other programs of the same user write. So it is opened
// defensively, its schema must be ours to the letter, each statement may do only as much work as
// the size of the file explains, and the owner discards it at the first doubt (isDoubtful()).
//
//   1. Nothing of it is mapped into memory, and there is no write-ahead log: a file that is cut
//      while it is read gives an error, never a signal.
//   2. Several processes may use one file. Each holds a shared lock on "<path>-lock" as long as it
//      has the file open; a process removes the files only while it holds that lock exclusively. A
//      forked child does not keep that lock, and opens no file (sqlite_host.h).
//   3. Nothing is synced: after a loss of power the file may be anything, see above.
//
// A call fails by returning false and logs nothing; the owner then does without the file. One
// thread at a time uses a database and its statements.
#ifndef KEEL_CLIENT_BASE_LOCAL_DATABASE_H
#define KEEL_CLIENT_BASE_LOCAL_DATABASE_H

#include "client/base/bytes.h"
#include "client/base/own_descriptor.h"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace arca
{

class Database;

/// A prepared statement; empty when it could not be prepared. Destroy it before its database is
/// closed or discarded.
class Statement
{
public:
    Statement() = default;
    explicit operator bool() const { return statement_ != nullptr; }
    /// Destroys the statement; this object is empty then.
    void reset() { statement_.reset(); }

private:
    friend class Database;
    friend class StatementUse;
    Statement(Database *database, sqlite3_stmt *made) : database_(database), statement_(made) {}
    struct Finalise {
        void operator()(sqlite3_stmt *statement) const;
    };
    Database *database_ = nullptr;
    std::unique_ptr<sqlite3_stmt, Finalise> statement_;
};

/// How much work a statement may do before the file counts as doubtful.
enum class Work {
    little, // some rows, found by a key
    whole,  // as much as reading the whole file takes
};

/// One run of a statement: bind, then step. The locks that the run takes on the file are released
/// by its destructor. Places are counted from 1, columns from 0, as in SQLite's interface. Bytes
/// and texts that are bound must live as long as the use. With an empty statement row(), done() and
/// atEnd() return false.
class StatementUse
{
public:
    explicit StatementUse(const Statement &statement, Work work = Work::little);
    ~StatementUse();
    StatementUse(const StatementUse &) = delete;
    StatementUse &operator=(const StatementUse &) = delete;

    void bind(int place, std::int64_t value);
    void bind(int place, ByteView bytes);
    void bind(int place, std::string_view text);

    /// Returns true when there is another row, false at the end and on failure.
    bool row();
    /// Returns true when the statement ran to its end without a row.
    bool done();
    /// After row() returned false: returns true when that was the end, and every value so far was
    /// of the type that it was read as.
    bool atEnd() const;

    // Only after row() returned true. A value of another type than asked for reads as 0 or empty,
    // and makes the file doubtful.
    std::int64_t number(int column) const;
    /// Returns the value in place, valid until the next step or the end of the use.
    ByteView bytes(int column) const;
    std::string text(int column) const;

private:
    bool isOf(int type, int column) const;

    Database *database_;
    sqlite3_stmt *statement_;
    bool atEnd_ = false;
};

/// A row of the schema: `sql` as SQLite keeps it, "CREATE TABLE ..." without a semicolon; null for
/// the index that a constraint makes.
struct SchemaItem {
    const char *type;
    const char *name;
    const char *table;
    const char *sql;
    /// Made by the owner later, with createLater().
    bool later = false;
};

class Database
{
public:
    /// What may be given in place of a path.
    static constexpr const char *kInMemory = ":memory:";
    static constexpr const char *kTemporary = ""; // a file without a name, gone when it is closed

    /// Opens nothing. `schema`, in the order in which its items are made, must outlive the
    /// database. A statement that meets the lock of another process waits at most `patience` ms.
    Database(std::string path, std::span<const SchemaItem> schema, int patience)
        : path_(std::move(path)), schema_(schema), patience_(patience)
    {
    }
    ~Database() { close(); }
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    /// Closes what is open, then opens the file, which it makes with mode 0600 and this schema when
    /// it is not there or empty. Returns false, with nothing open, when that failed or the schema
    /// differs; if isDoubtful() then, call discard() and try again.
    bool open();
    bool isOpen() const { return connection_ != nullptr; }
    /// Destroy every statement first. Releases the shared lock; harmless when nothing is open.
    void close();
    /// Closes the file and removes it with its journal. Returns false when another process or
    /// object has it open, and then the files stay. Destroy every statement first. After a failed
    /// open() it may be called, too: the lock is kept for that.
    bool discard();
    /// Returns true when something about the file was not as we leave it, since open(). What is
    /// read from it means nothing then.
    bool isDoubtful() const;
    /// Returns true when a statement has waited in vain for the lock of another process since
    /// open(). That process may be stopped: each further statement would wait as long.
    bool isBusy() const { return busy_; }
    /// Makes the file doubtful: for an owner that finds something wrong with what it reads.
    void doubt() { doubtful_ = true; }

    /// Runs statements that give no rows, one after the other; the first failure ends them, and
    /// what those before did stays unless a transaction is rolled back.
    bool run(const char *sql, Work work = Work::little);
    /// Returns an empty statement on failure, and when nothing is open.
    Statement prepare(const char *sql);
    /// Ends a transaction without its changes, if one is open.
    void rollBack();
    /// Makes those items of the schema that are marked as later and are not there. After a failure
    /// some may be there; it may be called again.
    bool createLater();

    /// From now on `goOn` is asked every few hundred steps of a statement; when it returns false,
    /// that statement fails, and the file does not become doubtful. An empty one ends the asking.
    /// It runs on the caller's thread and must not throw, nor use this database.
    void askWhileRunning(std::function<bool()> goOn) { goOn_ = std::move(goOn); }

private:
    friend class StatementUse;
    struct Close {
        void operator()(sqlite3 *connection) const;
    };
    bool isFile() const { return path_ != kInMemory && path_ != kTemporary; }
    bool takeLock();
    bool connect();
    bool checkSchema();
    bool makeSchema();
    bool isSchema(bool &empty);
    void allow(Work work);
    bool goesOn();
    bool noteOutcome(int code);

    const std::string path_;
    const std::span<const SchemaItem> schema_;
    const int patience_;
    std::function<bool()> goOn_;
    std::uint64_t stepsLeft_ = 0;
    bool doubtful_ = false, busy_ = false;
    std::unique_ptr<OwnDescriptor> lock_; ///< the shared lock, on the file beside it
    std::unique_ptr<sqlite3, Close> connection_;
};

} // namespace arca

#endif
