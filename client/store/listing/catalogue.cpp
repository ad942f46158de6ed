// Comparing the catalogue with the blobs, and reading it out.
//
// The blobs of active and of inactive pieces are spread over 256 directories each by the beginning
// of the name hash, which is that of the identifier, too; so the comparison goes through 256 parts,
// and holds the names of one part at a time. All that writes runs on a thread of ours.
#include "client/store/listing/catalogue.h"

#include "client/base/text.h"
#include "client/base/thread.h"
#include "client/store/changes/coming_piece.h"
#include "client/store/listing/named_pieces.h"
#include "client/store/listing/remembered_name.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace arca::store
{

namespace
{

constexpr std::size_t kRowsAtOnce = 512;
constexpr unsigned kParts = 256;
constexpr int kMaxFills = 3; // of one listing: the first, and when the file turns out to be damaged

constexpr const char *kComing = "coming/", *kActive = "pieces/", *kInactive = "inactive/";

/// The last component of a blob's name, as bytes; empty when it is none.
Bytes digitsIn(const std::string &blobName)
{
    const auto bytes = fromHex(std::string_view(blobName).substr(blobName.rfind('/') + 1));
    return bytes ? *bytes : Bytes();
}

PieceId idIn(ByteView digits)
{
    PieceId id = 0;
    for (const std::byte digit : digits)
        id = id << 8 | std::to_integer<PieceId>(digit);
    return id;
}

} // namespace

bool ListSelection::admits(const PieceInfo &piece) const
{
    const PieceDescription &said = piece.description;
    const auto matches = [](const std::string &text, const std::string &pattern) {
        return pattern.empty() || matchesPattern(text, pattern);
    };
    return matches(said.name.filespace, filespace) && matches(said.name.highLevel, highLevel) &&
           matches(said.name.lowLevel, lowLevel) && (owner.empty() || said.owner == owner) &&
           (managementClass.empty() || equalIgnoringCase(said.managementClass, managementClass)) &&
           piece.totals.streamBytes >= minBytes &&
           (maxBytes == 0 || piece.totals.streamBytes <= maxBytes) &&
           (inactiveBefore == 0 || (!piece.isActive() && piece.inactiveAt < inactiveBefore));
}

bool ListSelection::admits(bool inactive, std::int64_t inserted) const
{
    return (state == State::any || inactive == (state == State::inactive)) &&
           inserted >= insertedFrom && (insertedBefore == 0 || inserted < insertedBefore);
}

Listing::Listing(NodeSpace &space, ListSelection selection, SecretKey key)
    : space_(space), blobs_(space.domain().blobs()), selection_(std::move(selection)),
      key_(std::move(key))
{
    if (selection_.order == CatalogueOrder::inserted && selection_.insertedFrom > 0)
        position_ = {true, {}, selection_.insertedFrom, 0, false}; // no piece has identifier 0
}

Listing::~Listing()
{
    if (!file_)
        return;
    try {
        onThreadOfOurs([&] { file_.reset(); });
    } catch (...) {
        // There is no memory for a thread: it is closed on this one.
    }
}

Result<std::unique_ptr<Listing>> Listing::begin(NodeSpace &space, ListSelection selection,
                                                Progress progress)
{
    ARCA_TRY(SecretKey key, catalogueKeyOf(space));
    std::unique_ptr<Listing> listing(new Listing(space, std::move(selection), std::move(key)));
    ARCA_TRY(const bool found, listing->findNamed());
    if (found)
        return listing;
    listing->progress_ = std::move(progress);
    ARCA_CHECK(listing->fill());
    listing->ready_ = true;
    ARCA_CHECK(listing->tell(listing->looked_, listing->looked_));
    return listing;
}

Result<bool> Listing::findNamed()
{
    ARCA_TRY(const auto names,
             literalNames(space_, selection_.filespace, selection_.highLevel, selection_.lowLevel));
    if (!names)
        return false;
    std::vector<PieceInfo> all;
    for (const ObjectName &name : *names) {
        ARCA_TRY(auto found, versionsOf(space_, name));
        if (!found)
            return false;
        for (std::string &hurt : found->hurt)
            noteHurt(std::move(hurt));
        std::ranges::move(found->pieces, std::back_inserter(all));
    }
    // Names come in an order that never changes, and so do those that share one.
    if (selection_.order == CatalogueOrder::inserted)
        std::ranges::sort(all, {}, [](const PieceInfo &piece) {
            return std::tuple(piece.insertedAt, piece.id, !piece.isActive());
        });
    for (PieceInfo &piece : all)
        if (selection_.admits(!piece.isActive(), piece.insertedAt) && selection_.admits(piece))
            pieces_.push_back(std::move(piece));
    atEnd_ = true;
    return true;
}

/// In the file of this host if that can be, else in one without a name, else in memory.
Result<void> Listing::fill()
{
    Result<bool> filled = false;
    onThreadOfOurs([&] {
        std::vector<std::string> places = {Database::kTemporary, Database::kInMemory};
        if (std::string kept = cataloguePathOf(space_); !kept.empty())
            places.insert(places.begin(), std::move(kept));
        for (const std::string &place : places) {
            file_ = std::make_unique<CatalogueFile>(place, key_);
            filled = fillFile();
            if (!filled || *filled)
                return;
        }
    });
    ARCA_TRY(const bool good, std::move(filled));
    if (!good)
        return Error{ErrorKind::full, "there is no place for the catalogue of the objects"};
    return {};
}

Result<bool> Listing::fillFile()
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        hurt_.clear();
        bool good = file_->open();
        if (good) {
            ARCA_TRY(good, compare());
        }
        Result<void> wanted;
        const bool consistent = good && file_->isConsistent([&] {
            wanted = tell(looked_, looked_);
            return static_cast<bool>(wanted);
        });
        ARCA_CHECK(wanted);
        if (consistent)
            return true;
        if (!good && !file_->isDamaged())
            return false; // full, read-only, or somebody else's for too long
        if (!file_->discard())
            return false; // the last one to have it open can
    }
    return false;
}

Result<void> Listing::tell(std::uint64_t done, std::uint64_t planned) const
{
    // Both are the same only when begin() has all.
    const bool goOn = !progress_ || progress_(done, ready_ ? planned : std::max(planned, done + 1));
    if (!goOn)
        return Error{ErrorKind::stopped, "nobody waits for the list of objects any more"};
    return {};
}

Result<bool> Listing::compare()
{
    looked_ = 0;
    ARCA_TRY(changing_, space_.beingChanged());
    ARCA_CHECK(listRecords());
    for (unsigned part = 0; part < kParts; ++part) {
        ARCA_TRY(const bool good, comparePart(static_cast<std::byte>(part)));
        if (!good)
            return false;
    }
    records_ = {};
    return true;
}

Result<void> Listing::listRecords()
{
    records_.clear();
    const std::string prefix = "objects/" + space_.domain().nodeKey() + "/";
    Result<void> wanted;
    ARCA_CHECK(blobs_.listStamped(prefix, [&](const std::string &name, std::uint64_t stamp) {
        if (records_.size() % kRowsAtOnce == 0)
            wanted = tell(0, records_.size());
        if (!wanted)
            return false;
        const std::string_view inner = std::string_view(name).substr(prefix.size());
        const auto digits = fromHex(inner.substr(0, inner.find('/')));
        if (!digits || digits->size() != sizeof(PieceId))
            return true;
        const PieceId id = idIn(*digits);
        // The states of one record come one after the other.
        if (records_.empty() || records_.back().first != id)
            records_.emplace_back(id, 0);
        records_.back().second += stamp | 1;
        return true;
    }));
    std::sort(records_.begin(), records_.end());
    return wanted;
}

std::uint64_t Listing::recordOf(PieceId id) const
{
    const auto found =
        std::lower_bound(records_.begin(), records_.end(), std::pair(id, std::uint64_t{0}));
    return found != records_.end() && found->first == id ? found->second : 0;
}

Result<void> Listing::listStored(std::byte first, Stored &stored)
{
    // In this order: a piece is in its next place before it leaves the one before.
    for (const std::string place : {kComing, kActive, kInactive}) {
        const std::string directory =
            place + space_.domain().nodeKey() + "/" + toHex(ByteView(&first, 1)) + "/";
        ARCA_CHECK(blobs_.listStamped(directory, [&](const std::string &name, std::uint64_t stamp) {
            addStored(name, stamp, stored);
            return true;
        }));
    }
    return {};
}

void Listing::addStored(const std::string &blobName, std::uint64_t stamp, Stored &stored)
{
    const bool comes = isComingName(blobName), active = comes || blobName.starts_with(kActive);
    // The name of one that comes, and of an inactive one, goes on with its change.
    const Bytes digits = digitsIn(blobName.substr(0, blobName.find('.')));
    NameHash hash{};
    if (digits.size() != (active ? hash.size() : sizeof(PieceId)) ||
        (comes && !waitsForChange(blobName)))
        return noteHurt("no piece has a name as the blob " + blobName);
    if (active) {
        std::copy(digits.begin(), digits.end(), hash.begin());
        if (comes)
            stored.coming.emplace(hash, blobName);
        else
            stored.active[hash] = stamp;
    } else {
        InactiveCopies &copies = stored.inactive[idIn(digits)];
        copies.stamp += stamp;
        copies.names.push_back(blobName);
    }
}

bool Listing::isRight(const CatalogueRow &row, Stored &stored) const
{
    if (row.stamp == 0 || row.record != recordOf(row.id) || changing_.contains(row.id))
        return false;
    const auto take = [&](auto &names, const auto &name) {
        const auto found = names.find(name);
        if (found == names.end() || stampOf(found->second) != row.stamp)
            return false;
        names.erase(found);
        return true;
    };
    if (row.inactive)
        return take(stored.inactive, row.id);
    return !stored.coming.contains(row.hash) && take(stored.active, row.hash);
}

Result<bool> Listing::comparePart(std::byte first)
{
    Stored stored;
    ARCA_CHECK(listStored(first, stored));
    // Hashes are spread evenly, so what is in the parts so far tells how much there is in all.
    looked_ += stored.active.size() + stored.inactive.size();
    planned_ = looked_ * kParts / (std::to_integer<unsigned>(first) + 1);
    std::vector<CatalogueRow> rows, gone, fresh;
    if (!file_->rowsUnder(first, rows))
        return false;
    for (CatalogueRow &row : rows)
        if (!isRight(row, stored))
            gone.push_back(row);
    rows = {};
    const std::string within = space_.domain().nodeKey() + "/" + toHex(ByteView(&first, 1)) + "/";
    bool good = true;
    std::uint64_t left = stored.active.size() + stored.inactive.size();
    const auto add = [&](const std::string &name, std::uint64_t stamp) -> Result<void> {
        ARCA_CHECK(tell(looked_ - left--, planned_));
        ARCA_TRY(auto row, readRow(name, stamp));
        if (row)
            fresh.push_back(std::move(*row));
        if (fresh.size() < kRowsAtOnce)
            return {};
        good = good && file_->change(gone, fresh);
        gone.clear();
        fresh.clear();
        return {};
    };
    for (const auto &[hash, name] : stored.coming) {
        ARCA_CHECK(add(name, 0));
        stored.active.try_emplace(hash, 0); // where it may be by now
    }
    for (const auto &[hash, stamp] : stored.active)
        ARCA_CHECK(add(std::string(kActive) + within + toHex(hash), stamp));
    for (const auto &[id, copies] : stored.inactive)
        for (const std::string &name : copies.names)
            ARCA_CHECK(add(name, copies.stamp));
    ARCA_CHECK(tell(looked_, planned_));
    return good && file_->change(gone, fresh);
}

Result<std::optional<CatalogueRow>> Listing::tryRow(const std::string &blobName,
                                                    std::uint64_t stamp)
{
    ARCA_TRY(const auto blob, blobs_.open(blobName));
    ARCA_TRY(const auto piece, space_.readShown(*blob, blobName));
    if (!piece)
        return std::optional<CatalogueRow>();
    ARCA_TRY(const Sha256 hash, space_.hashOf(piece->description.name));
    CatalogueRow row{piece->insertedAt,   piece->id, !piece->isActive(), {}, stamp,
                     recordOf(piece->id), {}};
    std::copy_n(hash.begin(), row.hash.size(), row.hash.begin());
    ARCA_CHECK(file_->seal(row, *piece));
    return std::optional(std::move(row));
}

Result<std::optional<CatalogueRow>> Listing::readRow(const std::string &blobName,
                                                     std::uint64_t stamp)
{
    auto row = tryRow(blobName, stamp);
    if (row)
        return row;
    if (row.error().kind != ErrorKind::notFound) // else removed since the listing
        noteHurt(row.error().text);
    return std::optional<CatalogueRow>();
}

void Listing::noteHurt(std::string what)
{
    if (hurt_.size() < kHurtKept)
        hurt_.push_back(std::move(what));
}

/// False when one of them is not what was put there.
bool Listing::takeRows(const std::vector<CatalogueRow> &rows)
{
    for (const CatalogueRow &row : rows) {
        if (selection_.admits(row.inactive, row.inserted)) {
            auto piece = file_->openRow(row);
            if (!piece)
                return false;
            if (selection_.admits(*piece))
                pieces_.push_back(std::move(piece).value());
        }
        position_ = {true, row.hash, row.inserted, row.id, row.inactive};
    }
    const bool beyond = selection_.order == CatalogueOrder::inserted && !rows.empty() &&
                        selection_.insertedBefore != 0 &&
                        rows.back().inserted >= selection_.insertedBefore;
    atEnd_ = rows.size() < kRowsAtOnce || beyond;
    return true;
}

Result<void> Listing::loadMore()
{
    for (int fills = 1;; ++fills) {
        std::vector<CatalogueRow> rows;
        bool good = false;
        onThreadOfOurs([&] {
            good =
                file_->rowsAfter(selection_.order, position_, kRowsAtOnce, rows) && takeRows(rows);
            if (!good)
                file_->discard();
        });
        if (good) {
            walked_ += rows.size();
            return tell(std::min(walked_, looked_), looked_);
        }
        if (fills == kMaxFills)
            return Error{ErrorKind::io, "the catalogue of the objects is damaged again and again"};
        ARCA_CHECK(fill());
    }
}

Result<bool> Listing::isRegistered(const std::string &filespace)
{
    auto known = registered_.find(filespace);
    if (known == registered_.end()) {
        ARCA_TRY(const auto found, space_.filespace(filespace));
        known = registered_.emplace(filespace, found.has_value()).first;
    }
    return known->second;
}

Result<std::optional<PieceInfo>> Listing::next()
{
    for (;;) {
        while (pieces_.empty() && !atEnd_)
            ARCA_CHECK(loadMore());
        if (pieces_.empty())
            return std::optional<PieceInfo>();
        std::optional<PieceInfo> piece(std::move(pieces_.front()));
        pieces_.pop_front();
        // A filespace that is deleted takes its pieces along at once; they go one by one.
        ARCA_TRY(const bool registered, isRegistered(piece->description.name.filespace));
        if (registered)
            return piece;
    }
}

} // namespace arca::store
