// Notes of what a node has stored: see the header.
#include "client/store/pieces/inventory.h"

#include "client/base/text.h"
#include "client/blob/blob_store.h"
#include "client/store/pieces/manifest_format.h"
#include "client/store/pieces/removed_piece.h"
#include "client/store/pieces/stored_manifests.h"
#include "client/store/records/record.h"
#include "client/store/records/record_forms.h"
#include "client/store/records/record_seal.h"

#include <algorithm>
#include <map>
#include <new>
#include <optional>

namespace arca::store
{

namespace
{

using Ids = std::vector<PieceId>;

std::string roomOf(const engine::Domain &domain)
{
    return "inventory/" + domain.nodeKey() + "/";
}

Result<std::string> newNoteName(const engine::Domain &domain)
{
    Bytes random(8);
    ARCA_CHECK(fillRandom(random));
    return roomOf(domain) + toHex(random);
}

void sortOut(Ids &ids)
{
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

Ids without(const Ids &ids, const Ids &others)
{
    Ids left;
    std::set_difference(ids.begin(), ids.end(), others.begin(), others.end(),
                        std::back_inserter(left));
    return left;
}

/// The digits of a blob's last component as a number: of 8 digits what the identifiers of a name
/// begin with, of 16 an identifier.
PieceId leadingDigits(std::string_view blobName, std::size_t digits)
{
    const auto bytes = fromHex(blobName.substr(blobName.rfind('/') + 1, digits));
    PieceId value = 0;
    for (const std::byte byte : bytes.value_or(Bytes()))
        value = value << 8 | std::to_integer<PieceId>(byte);
    return value;
}

std::uint32_t upperHalf(PieceId id)
{
    return static_cast<std::uint32_t>(id >> 32);
}

struct Found {
    std::uint64_t manifests = 0;
    Ids ids;
    /// Of each damaged manifest the identifier that its header claims, or, when that cannot be, the
    /// upper half that its name gives and 0.
    Ids damaged;
    std::set<std::string> filespaces; // of the active ones

    Ids missingOf(const Ids &stock) const;
};

/// Returns what of the stock is in no manifest. A damaged one stands for one piece at most: the one
/// that it claims to be; else for some other one of its name.
Ids Found::missingOf(const Ids &stock) const
{
    Ids missing = without(stock, ids);
    std::map<std::uint32_t, std::size_t> unclear;
    for (const PieceId id : damaged) {
        const bool inStock = std::ranges::binary_search(stock, id);
        std::erase(missing, id);
        unclear[upperHalf(id)] += inStock ? 0 : 1;
    }
    std::erase_if(missing, [&](PieceId id) {
        const auto left = unclear.find(upperHalf(id));
        return left != unclear.end() && left->second != 0 && left->second-- != 0;
    });
    return missing;
}

/// The upper half of the identifier that a set-aside manifest had: the digits of its former name
/// follow its place.
std::optional<std::uint32_t> formerHalf(std::string_view blobName)
{
    const auto dash = blobName.find('-', blobName.rfind('/'));
    if (dash == std::string_view::npos)
        return std::nullopt;
    const std::string had = "/" + std::string(blobName.substr(dash + 1));
    return static_cast<std::uint32_t>(leadingDigits(had, 8));
}

/// What a damaged manifest stands for: see Found::damaged.
PieceId claimedBy(blob::BlobReader &blob, std::uint32_t half)
{
    const auto claimed = peekIdentifier(blob);
    return claimed && upperHalf(*claimed) == half ? *claimed : PieceId{half} << 32;
}

/// `but` is left out; empty: none is.
Result<Found> findManifests(engine::Domain &domain, const std::string &but = {})
{
    Found found;
    ARCA_CHECK(visitManifests(
        domain.blobs(), domain.nodeKey(), [&](const StoredManifest &stored) -> Result<void> {
            if (stored.blobName == but ||
                !isNamedFor(stored.place, domain.nodeKey(), stored.blobName))
                return {};
            ++found.manifests;
            if (stored.place == ManifestPlace::quarantined) {
                if (const auto half = formerHalf(stored.blobName))
                    found.damaged.push_back(claimedBy(stored.blob, *half));
                return {};
            }
            if (stored.place != ManifestPlace::active && stored.place != ManifestPlace::coming) {
                found.ids.push_back(leadingDigits(stored.blobName, 16));
                return {};
            }
            const auto high = static_cast<std::uint32_t>(leadingDigits(stored.blobName, 8));
            // Proven, as a header that was altered could stand for another piece of that name.
            const auto manifest = readManifest(stored.blob, domain.manifestKey());
            if (manifest && upperHalf(manifest->info.id) == high) {
                found.ids.push_back(manifest->info.id);
                found.filespaces.insert(manifest->info.description.name.filespace);
            } else {
                found.damaged.push_back(claimedBy(stored.blob, high));
            }
            return {};
        }));
    sortOut(found.ids);
    return found;
}

} // namespace

Bytes encodeNote(const Note &note)
{
    ByteWriter payload;
    for (const Ids *ids : {&note.came, &note.went}) {
        payload.u32(static_cast<std::uint32_t>(ids->size()));
        for (const PieceId id : *ids)
            payload.u64(id);
    }
    return frameRecord(form::note.kind, form::note.newest, payload.view());
}

Result<Note> decodeNote(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, form::note.kind, form::note.newest));
    ByteReader reader(payload);
    Note note;
    for (Ids *ids : {&note.came, &note.went})
        for (std::uint32_t left = reader.u32(); left != 0 && reader.ok(); --left)
            ids->push_back(reader.u64());
    if (!reader.ok() || reader.remaining() != 0)
        return Error{ErrorKind::damaged, "a note of stored pieces is damaged"};
    return note;
}

Result<std::vector<Inventory::Read>> Inventory::readAll(std::vector<std::string> &damaged)
{
    std::vector<std::string> names;
    ARCA_CHECK(domain_.blobs().list(roomOf(domain_), [&](const std::string &name) {
        names.push_back(name);
        return true;
    }));
    std::vector<Read> notes;
    for (const std::string &name : names) {
        const auto note = [&]() -> Result<Note> {
            ARCA_TRY(Bytes bytes, blob::readWhole(domain_.blobs(), name, kMaxNoteBytes));
            ARCA_TRY(const auto opened, RecordSeal(domain_).open(name, std::move(bytes)));
            return decodeNote(opened.record);
        }();
        if (note)
            notes.push_back({name, *note});
        else if (isUnreadable(note.error()) || note.error().kind == ErrorKind::newerFormat)
            damaged.push_back(name);
        else if (note.error().kind != ErrorKind::notFound) // else a compaction removed it
            return note.error();
    }
    return notes;
}

/// What came by the notes and went by none, sorted.
Result<Inventory::Noted> Inventory::readStock()
{
    Noted noted;
    ARCA_TRY(const auto notes, readAll(noted.damaged));
    noted.notes = notes.size() + noted.damaged.size();
    Ids came, went;
    for (const Read &read : notes) {
        came.insert(came.end(), read.note.came.begin(), read.note.came.end());
        went.insert(went.end(), read.note.went.begin(), read.note.went.end());
    }
    sortOut(came);
    sortOut(went);
    noted.stock = without(came, went);
    return noted;
}

Result<Stock> Inventory::check()
{
    Stock stock;
    // The notes first: what is noted later may be stored later, too.
    ARCA_TRY(Noted noted, readStock());
    stock.noted = noted.stock.size();
    stock.damaged = std::move(noted.damaged);
    ARCA_TRY(Found found, findManifests(domain_));
    stock.found = found.manifests;
    stock.missing = found.missingOf(noted.stock);
    stock.filespaces = std::move(found.filespaces);
    ARCA_TRY(stock.uncounted, isUncounted(noted, found.manifests));
    if (stock.missing.empty())
        return stock;
    // What a repair brings back from the quarantine meanwhile goes from the last place to one that
    // was visited before.
    ARCA_TRY(const Found again, findManifests(domain_));
    const Ids missedAgain = again.missingOf(noted.stock);
    std::erase_if(stock.missing,
                  [&](PieceId id) { return !std::ranges::binary_search(missedAgain, id); });
    // What was purged since the notes were read was noted as gone before.
    ARCA_TRY(const Noted now, readStock());
    std::erase_if(stock.missing,
                  [&](PieceId id) { return !std::ranges::binary_search(now.stock, id); });
    return stock;
}

Result<bool> Inventory::isUncounted(const Noted &before, std::uint64_t found)
{
    if (!isKept() || found == 0 || before.notes != 0)
        return false;
    // A piece is visible before its note is; until that is there its commit has a claim. So when
    // none is left, every note is there that the manifests which were found will ever have.
    ARCA_TRY(const auto claims, domain_.blobs().livingWriters(domain_.nodeKey()));
    if (!claims.empty())
        return false;
    ARCA_TRY(const Noted now, readStock());
    return now.notes == 0;
}

Result<void> Inventory::noteFound()
{
    ARCA_TRY(const Stock stock, check());
    if (!stock.uncounted)
        return {};
    ARCA_TRY(const Found found, findManifests(domain_));
    for (std::size_t at = 0; at < found.ids.size(); at += kMostInNote) {
        const auto some = std::span(found.ids).subspan(at);
        const auto part = some.first(std::min(some.size(), kMostInNote));
        const Note note{{part.begin(), part.end()}, {}};
        ARCA_CHECK(blob::withReserve(domain_.blobs(), [&] { return put(note); }));
    }
    return {};
}

Result<void> Inventory::noteGivenUp(const std::string &blobName)
{
    const auto half = formerHalf(blobName);
    if (!isKept() || !half)
        return {};
    ARCA_TRY(const Noted noted, readStock());
    ARCA_TRY(const Found others, findManifests(domain_, blobName));
    Ids its = others.missingOf(noted.stock);
    std::erase_if(its, [&](PieceId id) { return upperHalf(id) != *half; });
    if (its.empty())
        return {};
    // It was one piece: of several that are missing of that name, the others stay missing.
    const auto blob = domain_.blobs().open(blobName);
    const PieceId claimed = blob ? claimedBy(**blob, *half) : 0;
    return noteWent({std::ranges::binary_search(its, claimed) ? claimed : its.front()});
}

Result<void> Inventory::put(const Note &note)
{
    ARCA_TRY(const std::string name, newNoteName(domain_));
    ARCA_TRY(const Bytes sealed, RecordSeal(domain_).seal(name, encodeNote(note)));
    return blob::putWhole(domain_.blobs(), name, sealed);
}

Result<void> Inventory::noteWent(std::vector<PieceId> went)
{
    if (!isKept())
        return {};
    for (std::size_t at = 0; at < went.size(); at += kMostInNote) {
        const std::size_t end = std::min(went.size(), at + kMostInNote);
        const auto from = went.begin() + static_cast<std::ptrdiff_t>(at);
        const auto to = went.begin() + static_cast<std::ptrdiff_t>(end);
        ARCA_CHECK(blob::withReserve(domain_.blobs(), [&] { return put({{}, {from, to}}); }));
    }
    return {};
}

Result<bool> Inventory::hasGone(PieceId id)
{
    std::vector<std::string> damaged;
    ARCA_TRY(const auto notes, isKept() ? readAll(damaged) : std::vector<Read>());
    return std::ranges::any_of(
        notes, [&](const Read &read) { return std::ranges::count(read.note.went, id) != 0; });
}

Result<void> Inventory::compact()
{
    if (!isKept())
        return {};
    std::vector<std::string> damaged;
    ARCA_TRY(auto notes, readAll(damaged));
    Note all;
    for (const Read &read : notes) {
        all.came.insert(all.came.end(), read.note.came.begin(), read.note.came.end());
        all.went.insert(all.went.end(), read.note.went.begin(), read.note.went.end());
    }
    sortOut(all.came);
    sortOut(all.went);
    all.came = without(all.came, all.went);
    const bool asTheyAre =
        notes.size() <= 1 &&
        (notes.empty() || (notes[0].note.went == all.went && notes[0].note.came == all.came));
    if (asTheyAre)
        return {};
    std::size_t came = 0, went = 0;
    while (came < all.came.size() || went < all.went.size()) {
        const auto part = [](const Ids &ids, std::size_t &at) {
            const std::size_t from = std::exchange(at, std::min(ids.size(), at + kMostInNote));
            return Ids(ids.begin() + static_cast<std::ptrdiff_t>(from),
                       ids.begin() + static_cast<std::ptrdiff_t>(at));
        };
        ARCA_CHECK(put({part(all.came, came), part(all.went, went)}));
    }
    std::stable_sort(notes.begin(), notes.end(), [](const Read &one, const Read &other) {
        return one.note.went.empty() > other.note.went.empty();
    });
    for (const Read &read : notes) {
        const auto blob = domain_.blobs().open(read.name);
        if (blob)
            ARCA_CHECK(domain_.blobs().remove(read.name, **blob));
    }
    return {};
}

CommitNote::CommitNote(engine::Domain &domain) : domain_(domain)
{
    if (!Inventory(domain).isKept())
        return;
    if (auto begun = blob::withReserve(domain.blobs(), [&] { return domain.beginBlob(); }))
        blob_ = std::move(begun).value();
}

CommitNote::~CommitNote() = default;

void CommitNote::write(std::vector<PieceId> came)
{
    if (!blob_ || came.empty())
        return;
    try {
        const auto name = newNoteName(domain_);
        if (!name)
            return;
        const auto sealed = RecordSeal(domain_).seal(*name, encodeNote({std::move(came), {}}));
        // The piece took the last space, perhaps. Until the note has its name, the blob that was
        // begun goes on to be a claim.
        const bool written = sealed && blob_->append(*sealed) && blob_->commit(*name);
        if (sealed && !written)
            (void)blob::withReserve(
                domain_.blobs(), [&] { return blob::putWhole(domain_.blobs(), *name, *sealed); });
    } catch (const std::bad_alloc &) {
        // The pieces show already, so for want of memory nothing is noted either.
    }
    blob_.reset();
}

} // namespace arca::store
