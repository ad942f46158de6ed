// A file of SQLite that holds nothing but what can be made again: it is opened or made, and thrown
// away when it turns out to be damaged or somebody else's. No call fails but by answering that it
// did not come about; the owner then does without. One thread at a time.
#ifndef KEEL_CLIENT_BASE_DATABASE_H
#define KEEL_CLIENT_BASE_DATABASE_H

#include "client/base/bytes.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace arca
{

/// A prepared statement; empty when it could not be prepared. It must not outlive its database.
class Statement
{
public:
    Statement() = default;
    explicit Statement(sqlite3_stmt *made) : statement_(made) {}
    explicit operator bool() const { return statement_ != nullptr; }
    void reset() { statement_.reset(); }

private:
    friend class StatementUse;
    struct Finalise {
        void operator()(sqlite3_stmt *statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalise> statement_;
};

/// One run of a statement: bind, then step. It holds its locks no longer than it lives. Places and
/// columns are counted from 1 and from 0, as in SQL. What is bound must live as long as the use.
class StatementUse
{
public:
    explicit StatementUse(const Statement &statement);
    ~StatementUse();
    StatementUse(const StatementUse &) = delete;
    StatementUse &operator=(const StatementUse &) = delete;

    void bind(int place, std::int64_t value);
    void bind(int place, ByteView bytes);
    void bind(int place, std::string_view text);

    /// Whether there is another row.
    bool row();
    /// Whether it ran to its end.
    bool done();
    /// After row() answered false: whether that was the end, and no failure.
    bool atEnd() const { return atEnd_; }

    std::int64_t number(int column) const;
    /// Until the next step.
    ByteView bytes(int column) const;
    std::string text(int column) const;

private:
    sqlite3_stmt *statement_;
    bool atEnd_ = false;
};

class Database
{
public:
    /// A path, or one of these two.
    static constexpr const char *kInMemory = ":memory:";
    static constexpr const char *kTemporary = ""; // a file without a name, which goes by itself

    /// Nothing is opened yet.
    explicit Database(std::string path) : path_(std::move(path)) {}
    ~Database() { close(); }
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    bool open();
    bool isOpen() const { return connection_ != nullptr; }
    /// Every statement must be gone.
    void close();
    /// Closes it, and removes its files, unless somebody else has it open: false, and it stays.
    /// Removing them under another would give its log to the next file of the name.
    bool discard();
    /// Whether the last call found that the file is no database, or a damaged one.
    bool isDamaged() const;

    /// Statements without results.
    bool run(const char *sql);
    Statement prepare(const char *sql);

    /// Until the next call of this, `goOn` is asked every few hundred steps of a statement; false
    /// ends that one, which then did not come about. Empty: nobody is asked.
    void askWhileRunning(std::function<bool()> goOn);

private:
    struct Close {
        void operator()(sqlite3 *connection) const;
    };
    bool isFile() const { return path_ != kInMemory && path_ != kTemporary; }

    const std::string path_;
    std::function<bool()> goOn_;
    int lock_ = -1; ///< of the file beside it that whoever has it open holds a shared lock on
    std::unique_ptr<sqlite3, Close> connection_;
};

/// Makes the directory of a host's caches, and the one above it, if need be.
void makeCacheDirectory(const std::string &path);

} // namespace arca

#endif
