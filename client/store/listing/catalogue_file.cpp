// Rows in and out, and the statements for them.
#include "client/store/listing/catalogue_file.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"

#include <limits>
#include <tuple>

namespace arca::store
{

namespace
{

constexpr std::string_view kLayout = "2 ";
constexpr std::size_t kNonceBytes = 12;
/// Milliseconds. Another listing may write as long; after that one goes on without the file.
constexpr int kPatience = 5000;
constexpr SchemaItem kSchema[] = {
    {"table", "about", "about",
     "CREATE TABLE about(name TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID"},
    {"table", "objects", "objects",
     "CREATE TABLE objects(hash BLOB NOT NULL, inserted INTEGER NOT NULL,"
     " id INTEGER NOT NULL, inactive INTEGER NOT NULL, stamp INTEGER NOT NULL,"
     " record INTEGER NOT NULL, sealed BLOB NOT NULL,"
     " PRIMARY KEY(hash, inserted, id, inactive)) WITHOUT ROWID"},
    {"index", "by_time", "objects", "CREATE INDEX by_time ON objects(inserted, id, inactive, hash)",
     true},
};

/// Signed, in the order of the identifiers.
std::int64_t sortable(PieceId id)
{
    return static_cast<std::int64_t>(id ^ PieceId{1} << 63);
}

PieceId idFrom(std::int64_t sorted)
{
    return static_cast<PieceId>(sorted) ^ PieceId { 1 } << 63;
}

/// Columns inserted, id, inactive, hash, stamp, record; false when they are none of ours.
bool readColumns(const StatementUse &use, CatalogueRow &row)
{
    row.inserted = use.number(0);
    row.id = idFrom(use.number(1));
    row.inactive = use.number(2) != 0;
    const ByteView hash = use.bytes(3);
    if (hash.size() != row.hash.size())
        return false;
    std::copy(hash.begin(), hash.end(), row.hash.begin());
    row.stamp = static_cast<std::uint64_t>(use.number(4));
    row.record = static_cast<std::uint64_t>(use.number(5));
    return true;
}

/// What the rows of the table are ordered by.
auto inOrder(const CatalogueRow &row)
{
    return std::make_tuple(row.hash, row.inserted, row.id, row.inactive);
}

Bytes boundTo(const CatalogueRow &row)
{
    ByteWriter writer;
    for (const std::uint64_t number :
         {static_cast<std::uint64_t>(row.inserted), row.id, row.stamp, row.record})
        writer.u64(number);
    writer.u16(row.inactive ? 1 : 0);
    writer.raw(row.hash);
    return writer.take();
}

/// What all rows add up to, in whatever order they come.
class Sum
{
public:
    void add(const CatalogueRow &row)
    {
        std::uint64_t mixed = 0;
        ByteReader hash(row.hash);
        for (const std::uint64_t part : {static_cast<std::uint64_t>(row.inserted), row.id,
                                         std::uint64_t{row.inactive}, hash.u64(), hash.u64()}) {
            mixed = (mixed ^ part) * 0x9e3779b97f4a7c15U;
            mixed ^= mixed >> 29;
        }
        value_ += mixed;
        ++rows_;
    }
    bool operator==(const Sum &) const = default;

private:
    std::uint64_t value_ = 0, rows_ = 0;
};

Bytes encode(const PieceInfo &piece)
{
    const PieceDescription &said = piece.description;
    const PieceTotals &totals = piece.totals;
    ByteWriter writer;
    for (const std::string *text : {&said.name.filespace, &said.name.highLevel, &said.name.lowLevel,
                                    &said.owner, &said.managementClass, &said.info})
        writer.text(*text);
    for (const std::uint64_t number :
         {std::uint64_t{said.name.type}, said.sizeEstimate, std::uint64_t{said.copyGroup},
          totals.streamBytes, totals.zeroBytes, totals.newBytes, totals.storedBytes,
          totals.manifestBytes, std::uint64_t{totals.deduplicated},
          std::uint64_t{totals.compressed}, static_cast<std::uint64_t>(totals.cipher),
          static_cast<std::uint64_t>(piece.inactiveAt)})
        writer.varint(number);
    return writer.take();
}

bool decode(ByteView bytes, PieceInfo &piece)
{
    ByteReader reader(bytes);
    PieceDescription &said = piece.description;
    PieceTotals &totals = piece.totals;
    for (std::string *text : {&said.name.filespace, &said.name.highLevel, &said.name.lowLevel,
                              &said.owner, &said.managementClass, &said.info})
        *text = reader.text();
    said.name.type = static_cast<std::uint16_t>(reader.varint());
    said.sizeEstimate = reader.varint();
    said.copyGroup = static_cast<std::uint32_t>(reader.varint());
    for (std::uint64_t *number : {&totals.streamBytes, &totals.zeroBytes, &totals.newBytes,
                                  &totals.storedBytes, &totals.manifestBytes})
        *number = reader.varint();
    totals.deduplicated = reader.varint() != 0;
    totals.compressed = reader.varint() != 0;
    totals.cipher = static_cast<Cipher>(reader.varint());
    piece.inactiveAt = static_cast<std::int64_t>(reader.varint());
    return reader.ok() && reader.remaining() == 0;
}

} // namespace

CatalogueFile::CatalogueFile(const std::string &path, const SecretKey &key)
    : key_(key), database_(path, kSchema, kPatience)
{
}

CatalogueFile::~CatalogueFile() = default;

bool CatalogueFile::discard()
{
    for (Statement *statement : {&under_, &insert_, &remove_, &byTime_, &byName_})
        statement->reset();
    return database_.discard();
}

/// What every call answers that fails.
bool CatalogueFile::failed()
{
    damaged_ = damaged_ || database_.isDoubtful();
    return false;
}

bool CatalogueFile::open()
{
    damaged_ = false;
    if (database_.open() && isOurs() && prepare())
        return true;
    return database_.isDoubtful() && discard() && database_.open() && isOurs() && prepare();
}

bool CatalogueFile::isOurs()
{
    const auto digest = hmacSha256(key_.view(), viewOf("whose"));
    if (!digest)
        return false;
    const std::string whose = std::string(kLayout) + toHex(*digest);
    const auto isIt = [&] {
        const Statement ask = database_.prepare("SELECT value FROM about WHERE name='whose'");
        StatementUse use(ask);
        return use.row() && use.text(0) == whose;
    };
    if (isIt())
        return true;
    {
        const Statement put = database_.prepare("INSERT OR IGNORE INTO about VALUES('whose', ?1)");
        StatementUse use(put);
        use.bind(1, whose);
        if (!use.done())
            return false;
    }
    if (isIt())
        return true;
    database_.doubt(); // another node's, or of another layout
    return false;
}

bool CatalogueFile::prepare()
{
    under_ = database_.prepare("SELECT inserted, id, inactive, hash, stamp, record FROM objects"
                               " NOT INDEXED WHERE hash>=?1 AND hash<=?2"
                               " ORDER BY hash, inserted, id, inactive");
    insert_ = database_.prepare("INSERT OR REPLACE INTO objects"
                                "(inserted, id, inactive, hash, stamp, record, sealed)"
                                " VALUES(?1,?2,?3,?4,?5,?6,?7)");
    remove_ = database_.prepare(
        "DELETE FROM objects WHERE inserted=?1 AND id=?2 AND inactive=?3 AND hash=?4");
    byTime_ = database_.prepare(
        "SELECT inserted, id, inactive, hash, stamp, record, sealed FROM objects"
        " WHERE (inserted, id, inactive)>(?1,?2,?3) ORDER BY inserted, id, inactive LIMIT ?5");
    byName_ = database_.prepare(
        "SELECT inserted, id, inactive, hash, stamp, record, sealed FROM objects NOT INDEXED"
        " WHERE (hash, inserted, id, inactive)>(?4,?1,?2,?3)"
        " ORDER BY hash, inserted, id, inactive LIMIT ?5");
    return under_ && insert_ && remove_ && byTime_ && byName_;
}

bool CatalogueFile::rowsUnder(std::byte first, std::vector<CatalogueRow> &rows)
{
    NameHash lowest{}, highest{};
    highest.fill(std::byte{0xff});
    lowest[0] = highest[0] = first;
    StatementUse use(under_, Work::whole);
    use.bind(1, ByteView(lowest));
    use.bind(2, ByteView(highest));
    while (use.row()) {
        CatalogueRow row;
        // A file that leads round in circles must not fill the memory.
        if (!readColumns(use, row) || (!rows.empty() && !(inOrder(rows.back()) < inOrder(row)))) {
            database_.doubt();
            break;
        }
        rows.push_back(std::move(row));
    }
    return use.atEnd() || failed();
}

bool CatalogueFile::insert(const CatalogueRow &row)
{
    StatementUse use(insert_);
    use.bind(1, row.inserted);
    use.bind(2, sortable(row.id));
    use.bind(3, std::int64_t{row.inactive});
    use.bind(4, ByteView(row.hash));
    use.bind(5, static_cast<std::int64_t>(row.stamp));
    use.bind(6, static_cast<std::int64_t>(row.record));
    use.bind(7, ByteView(row.sealed));
    return use.done();
}

bool CatalogueFile::remove(const CatalogueRow &row)
{
    StatementUse use(remove_);
    use.bind(1, row.inserted);
    use.bind(2, sortable(row.id));
    use.bind(3, std::int64_t{row.inactive});
    use.bind(4, ByteView(row.hash));
    return use.done();
}

bool CatalogueFile::change(const std::vector<CatalogueRow> &gone,
                           const std::vector<CatalogueRow> &fresh)
{
    if (gone.empty() && fresh.empty())
        return true;
    if (!database_.run("BEGIN IMMEDIATE"))
        return failed();
    bool good = true;
    for (std::size_t i = 0; good && i < gone.size(); ++i)
        good = remove(gone[i]);
    for (std::size_t i = 0; good && i < fresh.size(); ++i)
        good = insert(fresh[i]);
    if (good && database_.run("COMMIT"))
        return true;
    database_.rollBack();
    return failed();
}

bool CatalogueFile::isConsistent(const std::function<bool()> &goOn)
{
    database_.askWhileRunning(goOn);
    // Both in one view of the file: others may be changing it.
    const bool begun = database_.createLater() && database_.run("BEGIN");
    const bool same = begun && tableIsIndex();
    database_.askWhileRunning({});
    if (begun)
        database_.rollBack();
    return same || failed();
}

bool CatalogueFile::tableIsIndex()
{
    Sum table, index;
    bool ordered = true, good = true;
    const auto scan = [&](const char *sql, Sum &sum, auto key) {
        const Statement statement = database_.prepare(sql);
        if (!statement) {
            good = false;
            return;
        }
        StatementUse use(statement, Work::whole);
        CatalogueRow row, before;
        for (bool first = true; use.row(); first = false) {
            good = good && readColumns(use, row);
            ordered = ordered && (first || key(before) < key(row));
            sum.add(row);
            before = row;
        }
        good = good && use.atEnd();
    };
    scan("SELECT inserted, id, inactive, hash, stamp, record FROM objects NOT INDEXED"
         " ORDER BY hash, inserted, id, inactive",
         table, [](const CatalogueRow &row) { return inOrder(row); });
    scan("SELECT inserted, id, inactive, hash, 0, 0 FROM objects INDEXED BY by_time"
         " ORDER BY inserted, id, inactive, hash",
         index, [](const CatalogueRow &row) {
             return std::make_tuple(row.inserted, row.id, row.inactive, row.hash);
         });
    return good && ordered && table == index;
}

bool CatalogueFile::rowsAfter(CatalogueOrder order, const CataloguePosition &after,
                              std::size_t limit, std::vector<CatalogueRow> &rows)
{
    StatementUse use(order == CatalogueOrder::inserted ? byTime_ : byName_);
    use.bind(1, after.began ? after.inserted : std::numeric_limits<std::int64_t>::min());
    use.bind(2, after.began ? sortable(after.id) : std::numeric_limits<std::int64_t>::min());
    use.bind(3, after.began ? std::int64_t{after.inactive} : std::int64_t{-1});
    // Nothing at all comes before every hash.
    if (order == CatalogueOrder::name)
        use.bind(4, ByteView(after.hash).first(after.began ? after.hash.size() : 0));
    use.bind(5, static_cast<std::int64_t>(limit));
    while (use.row()) {
        rows.emplace_back();
        if (!readColumns(use, rows.back())) {
            database_.doubt();
            return failed();
        }
        const ByteView sealed = use.bytes(6);
        rows.back().sealed.assign(sealed.begin(), sealed.end());
    }
    return use.atEnd() || failed();
}

Result<void> CatalogueFile::seal(CatalogueRow &row, const PieceInfo &piece) const
{
    const Bytes plain = encode(piece);
    row.sealed.resize(kNonceBytes + plain.size() + kTagBytes);
    const std::span<std::byte> sealed(row.sealed);
    ARCA_CHECK(fillRandom(sealed.first(kNonceBytes)));
    ByteReader random(sealed.first(kNonceBytes));
    const std::uint32_t kind = random.u32();
    return Aead(Cipher::aes256, key_.view())
        .seal({kind, random.u64()}, boundTo(row), plain, sealed.subspan(kNonceBytes));
}

Result<PieceInfo> CatalogueFile::openRow(const CatalogueRow &row) const
{
    const Error wrong{ErrorKind::damaged, "a row of the object catalogue is damaged"};
    if (row.sealed.size() < kNonceBytes + kTagBytes)
        return wrong;
    const ByteView sealed(row.sealed);
    ByteReader random(sealed.first(kNonceBytes));
    const std::uint32_t kind = random.u32();
    Bytes plain(row.sealed.size() - kNonceBytes - kTagBytes);
    ARCA_CHECK(Aead(Cipher::aes256, key_.view())
                   .open({kind, random.u64()}, boundTo(row), sealed.subspan(kNonceBytes), plain));
    PieceInfo piece;
    piece.id = row.id;
    piece.insertedAt = row.inserted;
    if (!decode(plain, piece) || piece.isActive() == row.inactive)
        return wrong;
    return piece;
}

} // namespace arca::store
