// Tables:
//
//   about(name, value)     'domain': whose it is; 'compared': when it was compared with the packs
//   packs(number, id)      a pack; the number is small and stands for it in the other table
//   hints(key, pack)       the first 64 bits of a sampled identity, and a pack that holds it
//
// The log of SQLite is not synced: after a loss of power the newest rows may be missing, which
// costs nothing but a second copy of a block.
#include "client/engine/hint_catalogue.h"

#include <sqlite3.h>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::engine
{

namespace
{

constexpr const char *kInMemory = ":memory:";
constexpr int kBusyMilliseconds = 2000;
constexpr const char *kSchema =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-4096;"
    "CREATE TABLE IF NOT EXISTS about(name TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS packs(number INTEGER PRIMARY KEY, id BLOB NOT NULL UNIQUE);"
    "CREATE TABLE IF NOT EXISTS hints(key INTEGER NOT NULL, pack INTEGER NOT NULL,"
    " PRIMARY KEY(key, pack)) WITHOUT ROWID;";

void makeDirectory(const std::string &path)
{
    (void)mkdir(path.substr(0, path.rfind('/')).c_str(), 0700);
    (void)mkdir(path.c_str(), 0700);
}

std::int64_t keyOf(const BlockId &block)
{
    std::int64_t key;
    std::memcpy(&key, block.data(), sizeof key);
    return key;
}

void bindId(sqlite3_stmt *statement, int at, const PackId &pack)
{
    sqlite3_bind_blob(statement, at, pack.data(), static_cast<int>(pack.size()), SQLITE_TRANSIENT);
}

bool columnId(sqlite3_stmt *statement, int at, PackId &pack)
{
    if (sqlite3_column_bytes(statement, at) != static_cast<int>(pack.size()))
        return false;
    std::memcpy(pack.data(), sqlite3_column_blob(statement, at), pack.size());
    return true;
}

} // namespace

bool isSampled(const BlockId &block)
{
    return (std::to_integer<unsigned>(block[15]) & 31U) == 0;
}

void HintCatalogue::Closer::operator()(sqlite3 *connection) const
{
    sqlite3_close_v2(connection);
}

void HintCatalogue::Finisher::operator()(sqlite3_stmt *statement) const
{
    sqlite3_finalize(statement);
}

/// A prepared statement in use: reset in the end, so that it holds no lock.
class HintCatalogue::Use
{
public:
    explicit Use(const Statement &statement) : statement_(statement.get()) {}
    ~Use()
    {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;
    sqlite3_stmt *get() const { return statement_; }
    bool row() { return sqlite3_step(statement_) == SQLITE_ROW; }
    bool done() { return sqlite3_step(statement_) == SQLITE_DONE; }

private:
    sqlite3_stmt *statement_;
};

HintCatalogue::HintCatalogue(const std::string &directory, const std::string &domain)
    : path_(directory.empty() ? kInMemory : directory + "/" + domain + ".sqlite")
{
    if (!directory.empty())
        makeDirectory(directory);
    if (connect() && prepareSchema(domain))
        return;
    discard();
    if (!connect() || !prepareSchema(domain))
        disconnect();
}

HintCatalogue::~HintCatalogue() = default;

void HintCatalogue::disconnect()
{
    find_.reset();
    addPack_.reset();
    addHint_.reset();
    connection_.reset();
}

/// Damaged, or another's. Whoever has it open goes on with a file that has no name any more.
void HintCatalogue::discard()
{
    disconnect();
    if (path_ == kInMemory)
        return;
    for (const char *ending : {"", "-wal", "-shm"})
        (void)unlink((path_ + ending).c_str());
}

void HintCatalogue::lookAfterFailure()
{
    const int code = connection_ ? sqlite3_errcode(connection_.get()) & 0xff : SQLITE_OK;
    if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB)
        discard();
}

bool HintCatalogue::connect()
{
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

bool HintCatalogue::run(const char *sql)
{
    return sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

HintCatalogue::Statement HintCatalogue::prepare(const char *sql)
{
    sqlite3_stmt *made = nullptr;
    if (sqlite3_prepare_v2(connection_.get(), sql, -1, &made, nullptr) != SQLITE_OK)
        return nullptr;
    return Statement(made);
}

bool HintCatalogue::prepareSchema(const std::string &domain)
{
    if (!run(kSchema))
        return false;
    {
        const Statement whose = prepare("INSERT OR IGNORE INTO about VALUES('domain', ?1)");
        if (!whose)
            return false;
        sqlite3_bind_text(whose.get(), 1, domain.data(), static_cast<int>(domain.size()),
                          SQLITE_TRANSIENT);
        (void)sqlite3_step(whose.get()); // a read-only file may still be read
    }
    const Statement asked = prepare("SELECT value FROM about WHERE name='domain'");
    if (!asked || sqlite3_step(asked.get()) != SQLITE_ROW)
        return false;
    const auto *const said = reinterpret_cast<const char *>(sqlite3_column_text(asked.get(), 0));
    if (said == nullptr || domain != said)
        return false;
    find_ = prepare("SELECT p.id FROM hints h JOIN packs p ON p.number=h.pack WHERE h.key=?1"
                    " ORDER BY h.pack DESC LIMIT ?2");
    addPack_ = prepare("INSERT OR IGNORE INTO packs(id) VALUES(?1)");
    addHint_ = prepare("INSERT OR IGNORE INTO hints"
                       " SELECT ?1, number FROM packs WHERE id=?2");
    return find_ && addPack_ && addHint_;
}

std::vector<PackId> HintCatalogue::packsWith(const BlockId &block, std::size_t limit)
{
    const std::lock_guard hold(mutex_);
    std::vector<PackId> found;
    if (!connection_)
        return found;
    {
        Use use(find_);
        sqlite3_bind_int64(use.get(), 1, keyOf(block));
        sqlite3_bind_int64(use.get(), 2, static_cast<std::int64_t>(limit));
        PackId pack;
        while (use.row())
            if (columnId(use.get(), 0, pack))
                found.push_back(pack);
    }
    lookAfterFailure();
    return found;
}

void HintCatalogue::remember(const PackId &pack, const PackIndex &index)
{
    const std::lock_guard hold(mutex_);
    if (!connection_ || !run("BEGIN IMMEDIATE"))
        return;
    bool good = true;
    {
        Use use(addPack_);
        bindId(use.get(), 1, pack);
        good = use.done();
    }
    for (std::uint32_t i = 0; good && i < index.blocks.size(); ++i) {
        const BlockEntry &block = index.blocks[i];
        if (block.dropped || block.id == BlockId{} || (i >= kAlwaysSampled && !isSampled(block.id)))
            continue;
        Use use(addHint_);
        sqlite3_bind_int64(use.get(), 1, keyOf(block.id));
        bindId(use.get(), 2, pack);
        good = use.done();
    }
    if (!good)
        lookAfterFailure();
    // Half of a pack would be taken for the whole of it.
    if (connection_)
        (void)run(good ? "COMMIT" : "ROLLBACK");
}

void HintCatalogue::forget(const PackId &pack)
{
    const std::lock_guard hold(mutex_);
    if (!connection_)
        return;
    // Its hints lead nowhere from now on; they go when the catalogue is filled anew.
    const Statement statement = prepare("DELETE FROM packs WHERE id=?1");
    if (!statement)
        return;
    Use use(statement);
    bindId(use.get(), 1, pack);
    (void)use.done();
}

std::vector<PackId> HintCatalogue::packs()
{
    const std::lock_guard hold(mutex_);
    std::vector<PackId> known;
    if (!connection_)
        return known;
    const Statement statement = prepare("SELECT id FROM packs");
    if (!statement)
        return known;
    Use use(statement);
    PackId pack;
    while (use.row())
        if (columnId(use.get(), 0, pack))
            known.push_back(pack);
    return known;
}

std::int64_t HintCatalogue::comparedAt()
{
    const std::lock_guard hold(mutex_);
    if (!connection_)
        return 0;
    const Statement statement = prepare("SELECT value FROM about WHERE name='compared'");
    if (!statement)
        return 0;
    Use use(statement);
    return use.row() ? sqlite3_column_int64(use.get(), 0) : 0;
}

void HintCatalogue::setComparedAt(std::int64_t when)
{
    const std::lock_guard hold(mutex_);
    if (!connection_)
        return;
    const Statement statement = prepare("INSERT OR REPLACE INTO about VALUES('compared', ?1)");
    if (!statement)
        return;
    Use use(statement);
    sqlite3_bind_int64(use.get(), 1, when);
    (void)use.done();
}

} // namespace arca::engine
