// Tables:
//
//   about(name, value)     'domain': whose it is; 'compared': when it was compared with the packs
//   packs(number, id)      a pack; the number is small and stands for it in the other table
//   hints(key, pack)       the first 64 bits of a sampled identity, and a pack that holds it
//
// The log of SQLite is not synced: after a loss of power the newest rows may be missing, which
// costs nothing but a second copy of a block.
#include "client/engine/hint_catalogue.h"

#include <cstring>

namespace arca::engine
{

namespace
{

constexpr const char *kSchema =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-4096;"
    "CREATE TABLE IF NOT EXISTS about(name TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS packs(number INTEGER PRIMARY KEY, id BLOB NOT NULL UNIQUE);"
    "CREATE TABLE IF NOT EXISTS hints(key INTEGER NOT NULL, pack INTEGER NOT NULL,"
    " PRIMARY KEY(key, pack)) WITHOUT ROWID;";

std::int64_t keyOf(const BlockId &block)
{
    std::int64_t key;
    std::memcpy(&key, block.data(), sizeof key);
    return key;
}

bool columnId(const StatementUse &use, PackId &pack)
{
    const ByteView bytes = use.bytes(0);
    if (bytes.size() != pack.size())
        return false;
    std::copy(bytes.begin(), bytes.end(), pack.begin());
    return true;
}

} // namespace

bool isSampled(const BlockId &block)
{
    return (std::to_integer<unsigned>(block[15]) & 31U) == 0;
}

HintCatalogue::HintCatalogue(const std::string &directory, const std::string &domain)
    : database_(directory.empty() ? Database::kInMemory : directory + "/" + domain + ".sqlite")
{
    if (!directory.empty())
        makeCacheDirectory(directory);
    if (database_.open() && prepareSchema(domain))
        return;
    // Damaged, or another's.
    if (!discard() || !database_.open() || !prepareSchema(domain))
        disconnect();
}

HintCatalogue::~HintCatalogue() = default;

void HintCatalogue::letGo()
{
    for (Statement *statement : {&find_, &addPack_, &addHint_})
        statement->reset();
}

void HintCatalogue::disconnect()
{
    letGo();
    database_.close();
}

bool HintCatalogue::discard()
{
    letGo();
    return database_.discard();
}

void HintCatalogue::lookAfterFailure()
{
    if (database_.isDamaged())
        discard();
}

bool HintCatalogue::prepareSchema(const std::string &domain)
{
    if (!database_.run(kSchema))
        return false;
    {
        const Statement whose =
            database_.prepare("INSERT OR IGNORE INTO about VALUES('domain', ?1)");
        if (!whose)
            return false;
        StatementUse use(whose);
        use.bind(1, domain);
        (void)use.done(); // a read-only file may still be read
    }
    const Statement asked = database_.prepare("SELECT value FROM about WHERE name='domain'");
    if (!asked)
        return false;
    StatementUse use(asked);
    if (!use.row() || use.text(0) != domain)
        return false;
    find_ = database_.prepare("SELECT p.id FROM hints h JOIN packs p ON p.number=h.pack"
                              " WHERE h.key=?1 ORDER BY h.pack DESC LIMIT ?2");
    addPack_ = database_.prepare("INSERT OR IGNORE INTO packs(id) VALUES(?1)");
    addHint_ = database_.prepare("INSERT OR IGNORE INTO hints"
                                 " SELECT ?1, number FROM packs WHERE id=?2");
    return find_ && addPack_ && addHint_;
}

std::vector<PackId> HintCatalogue::packsWith(const BlockId &block, std::size_t limit)
{
    const std::lock_guard hold(mutex_);
    std::vector<PackId> found;
    if (!database_.isOpen())
        return found;
    {
        StatementUse use(find_);
        use.bind(1, keyOf(block));
        use.bind(2, static_cast<std::int64_t>(limit));
        PackId pack;
        while (use.row())
            if (columnId(use, pack))
                found.push_back(pack);
    }
    lookAfterFailure();
    return found;
}

void HintCatalogue::remember(const PackId &pack, const PackIndex &index)
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen() || !database_.run("BEGIN IMMEDIATE"))
        return;
    bool good = true;
    {
        StatementUse use(addPack_);
        use.bind(1, pack);
        good = use.done();
    }
    for (std::uint32_t i = 0; good && i < index.blocks.size(); ++i) {
        const BlockEntry &block = index.blocks[i];
        if (block.dropped || block.id == BlockId{} || (i >= kAlwaysSampled && !isSampled(block.id)))
            continue;
        StatementUse use(addHint_);
        use.bind(1, keyOf(block.id));
        use.bind(2, pack);
        good = use.done();
    }
    if (!good)
        lookAfterFailure();
    // Half of a pack would be taken for the whole of it.
    if (database_.isOpen())
        (void)database_.run(good ? "COMMIT" : "ROLLBACK");
}

void HintCatalogue::forget(const PackId &pack)
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen())
        return;
    // Its hints lead nowhere from now on; they go when the catalogue is filled anew.
    const Statement statement = database_.prepare("DELETE FROM packs WHERE id=?1");
    if (!statement)
        return;
    StatementUse use(statement);
    use.bind(1, pack);
    (void)use.done();
}

std::vector<PackId> HintCatalogue::packs()
{
    const std::lock_guard hold(mutex_);
    std::vector<PackId> known;
    if (!database_.isOpen())
        return known;
    const Statement statement = database_.prepare("SELECT id FROM packs");
    if (!statement)
        return known;
    StatementUse use(statement);
    PackId pack;
    while (use.row())
        if (columnId(use, pack))
            known.push_back(pack);
    return known;
}

std::int64_t HintCatalogue::comparedAt()
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen())
        return 0;
    const Statement statement = database_.prepare("SELECT value FROM about WHERE name='compared'");
    if (!statement)
        return 0;
    StatementUse use(statement);
    return use.row() ? use.number(0) : 0;
}

void HintCatalogue::setComparedAt(std::int64_t when)
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen())
        return;
    const Statement statement =
        database_.prepare("INSERT OR REPLACE INTO about VALUES('compared', ?1)");
    if (!statement)
        return;
    StatementUse use(statement);
    use.bind(1, when);
    (void)use.done();
}

} // namespace arca::engine
