// Tables:
//
//   about(name, value)     'domain': whose it is; 'compared': when it was compared with the packs;
//                          'next': the last number of a pack; 'hints': how many there are;
//                          'swept': the key that the sweep came to (hint_bound.h)
//   packs(number, id, used, hints)   a pack; the number is small and stands for it in the other
//                          table, and is never another's; `used` is the last number of a pack when
//                          it was found last; `hints`: 0 when they were given up
//   hints(key, pack)       the first 64 bits of a sampled identity, and a pack that holds it
//
// A row that is wrong or missing costs a look into an index, or a second copy of a block: what a
// hint leads to is compared with the index of the pack itself, which is sealed.
#include "client/engine/duplicates/hint_catalogue.h"

#include "client/base/local/sqlite_host.h"

#include <cstring>
#include <new>

namespace arca::engine
{

namespace
{

/// Milliseconds, paid once: longer than the commits of other channels take, and nothing that a
/// stream would notice.
constexpr int kPatience = 200;

constexpr SchemaItem kSchema[] = {
    {"table", "about", "about", "CREATE TABLE about(name TEXT PRIMARY KEY, value) WITHOUT ROWID"},
    {"table", "packs", "packs",
     "CREATE TABLE packs(number INTEGER PRIMARY KEY, id BLOB NOT NULL UNIQUE,"
     " used INTEGER NOT NULL, hints INTEGER NOT NULL)"},
    {"index", "sqlite_autoindex_packs_1", "packs", nullptr},
    {"index", "by_use", "packs", "CREATE INDEX by_use ON packs(used, number) WHERE hints>0"},
    {"table", "hints", "hints",
     "CREATE TABLE hints(key INTEGER NOT NULL, pack INTEGER NOT NULL,"
     " PRIMARY KEY(key, pack)) WITHOUT ROWID"},
};

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

HintCatalogue::HintCatalogue(const std::string &directory, const std::string &domain,
                             std::int64_t mostHints)
    : database_(directory.empty() || prepareSqlite() != SqliteUse::everything
                    ? Database::kInMemory
                    : directory + "/" + domain + ".sqlite",
                kSchema, kPatience),
      bound_(database_, mostHints)
{
    // All nodes of one name have the same file name, in whichever repository.
    const std::string whose = directory.substr(directory.rfind('/') + 1) + "/" + domain;
    if (database_.open() && prepare(whose))
        return;
    if (!database_.isDoubtful() || !discard() || !database_.open() || !prepare(whose))
        disconnect();
}

HintCatalogue::~HintCatalogue()
{
    try {
        if (database_.isOpen() && bound_.hasFound())
            change([&] { return bound_.write(); });
    } catch (const std::bad_alloc &) {
        // What the hints were worth is not known next time; nothing else is lost.
    }
}

void HintCatalogue::letGo()
{
    for (Statement *statement : {&find_, &numberOf_, &addPack_, &addHint_})
        statement->reset();
    bound_.letGo();
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
    if (database_.isDoubtful())
        discard();
    else if (database_.isBusy())
        disconnect();
}

bool HintCatalogue::prepare(const std::string &whose)
{
    if (!isOf(whose)) {
        const Statement put = database_.prepare("INSERT OR IGNORE INTO about VALUES('domain', ?1)");
        StatementUse use(put);
        use.bind(1, whose);
        if (!use.done())
            return false;
    }
    if (!isOf(whose)) {
        database_.doubt();
        return false;
    }
    find_ = database_.prepare("SELECT p.id, p.number, p.used FROM hints h"
                              " JOIN packs p ON p.number=h.pack WHERE h.key=?1 AND p.hints>0"
                              " ORDER BY h.pack DESC LIMIT ?2");
    numberOf_ = database_.prepare("SELECT number FROM packs WHERE id=?1");
    addPack_ = database_.prepare("INSERT INTO packs VALUES(?1, ?2, ?1, 0)");
    addHint_ = database_.prepare("INSERT OR IGNORE INTO hints VALUES(?1, ?2)");
    return find_ && numberOf_ && addPack_ && addHint_ && bound_.prepare();
}

bool HintCatalogue::isOf(const std::string &whose)
{
    const Statement asked = database_.prepare("SELECT value FROM about WHERE name='domain'");
    StatementUse use(asked);
    return use.row() && use.text(0) == whose;
}

bool HintCatalogue::isOpen()
{
    const std::lock_guard hold(mutex_);
    return database_.isOpen();
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
            if (columnId(use, pack)) {
                found.push_back(pack);
                bound_.found(use.number(1), use.number(2));
            }
    }
    lookAfterFailure();
    return found;
}

template <class Work> void HintCatalogue::change(Work work)
{
    const bool done = database_.run("BEGIN IMMEDIATE") && work() && database_.run("COMMIT");
    if (!done)
        database_.rollBack();
    lookAfterFailure();
}

std::int64_t HintCatalogue::numberOf(const PackId &pack)
{
    StatementUse use(numberOf_);
    use.bind(1, pack);
    return use.row() ? use.number(0) : 0;
}

std::int64_t HintCatalogue::numbered(const PackId &pack)
{
    if (const std::int64_t known = numberOf(pack); known != 0)
        return known;
    const std::int64_t number = bound_.next();
    StatementUse use(addPack_);
    use.bind(1, number);
    use.bind(2, pack);
    return use.done() ? number : 0;
}

/// Half of a pack would be taken for the whole of it.
bool HintCatalogue::addHints(const PackId &pack, const PackIndex &index)
{
    const std::int64_t number = numbered(pack);
    std::int64_t added = 0;
    for (std::uint32_t i = 0; number != 0 && i < index.blocks.size(); ++i) {
        const BlockEntry &block = index.blocks[i];
        if (block.dropped || block.id == BlockId{} || (i >= kAlwaysSampled && !isSampled(block.id)))
            continue;
        StatementUse use(addHint_);
        use.bind(1, keyOf(block.id));
        use.bind(2, number);
        if (!use.done())
            return false;
        ++added;
    }
    return number != 0 && bound_.write() && bound_.added(number, added);
}

void HintCatalogue::remember(const PackId &pack, const PackIndex &index)
{
    const std::lock_guard hold(mutex_);
    if (database_.isOpen())
        change([&] { return addHints(pack, index); });
}

void HintCatalogue::forget(const PackId &pack)
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen())
        return;
    change([&] {
        // Its hints lead nowhere from now on, and are swept out in time.
        if (!bound_.forgotten(numberOf(pack)))
            return false;
        const Statement statement = database_.prepare("DELETE FROM packs WHERE id=?1");
        StatementUse use(statement);
        use.bind(1, pack);
        return use.done();
    });
}

std::vector<PackId> HintCatalogue::packs()
{
    const std::lock_guard hold(mutex_);
    std::vector<PackId> known;
    if (!database_.isOpen())
        return known;
    {
        const Statement statement =
            database_.prepare("SELECT id, number FROM packs ORDER BY number");
        StatementUse use(statement, Work::whole);
        PackId pack;
        std::int64_t before = 0;
        while (use.row()) {
            const std::int64_t number = use.number(1);
            if (number <= before) { // it leads round in circles
                database_.doubt();
                break;
            }
            before = number;
            if (columnId(use, pack))
                known.push_back(pack);
        }
    }
    lookAfterFailure();
    return known;
}

std::int64_t HintCatalogue::comparedAt()
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen())
        return 0;
    std::int64_t when = 0;
    {
        const Statement statement =
            database_.prepare("SELECT value FROM about WHERE name='compared'");
        StatementUse use(statement);
        when = use.row() ? use.number(0) : 0;
    }
    lookAfterFailure();
    return when;
}

void HintCatalogue::setComparedAt(std::int64_t when)
{
    const std::lock_guard hold(mutex_);
    if (!database_.isOpen())
        return;
    {
        const Statement statement =
            database_.prepare("INSERT OR REPLACE INTO about VALUES('compared', ?1)");
        StatementUse use(statement);
        use.bind(1, when);
        (void)use.done();
    }
    lookAfterFailure();
}

} // namespace arca::engine
