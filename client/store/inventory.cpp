// Notes of what a node has stored: see the header.
#include "client/store/inventory.h"

#include "client/base/text.h"
#include "client/store/manifest_format.h"
#include "client/store/record.h"
#include "client/store/record_forms.h"
#include "client/store/record_seal.h"
#include "client/store/removed_piece.h"
#include "client/store/stored_manifests.h"

#include <algorithm>
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

struct Found {
    std::uint64_t manifests = 0;
    Ids ids;
    std::vector<std::uint32_t> damaged; // upper halves of what may be in damaged manifests

    bool mayHold(PieceId id) const
    {
        return std::ranges::binary_search(damaged, static_cast<std::uint32_t>(id >> 32));
    }
};

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

/// `but` is left out; empty: none is.
Result<Found> findManifests(engine::Domain &domain, const std::string &but = {})
{
    Found found;
    ARCA_CHECK(visitManifests(
        domain.blobs(), domain.nodeKey(), [&](const StoredManifest &stored) -> Result<void> {
            if (stored.blobName == but)
                return {};
            ++found.manifests;
            if (stored.place == ManifestPlace::quarantined) {
                if (const auto half = formerHalf(stored.blobName))
                    found.damaged.push_back(*half);
                return {};
            }
            if (stored.place != ManifestPlace::active && stored.place != ManifestPlace::coming) {
                found.ids.push_back(leadingDigits(stored.blobName, 16));
                return {};
            }
            const auto high = static_cast<std::uint32_t>(leadingDigits(stored.blobName, 8));
            // Proven, as a header that was altered could stand for another piece of that name.
            const auto manifest = readManifest(stored.blob, domain.manifestKey());
            if (manifest && manifest->info.id >> 32 == high)
                found.ids.push_back(manifest->info.id);
            else
                found.damaged.push_back(high);
            return {};
        }));
    sortOut(found.ids);
    std::sort(found.damaged.begin(), found.damaged.end());
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
        else if (note.error().kind == ErrorKind::damaged ||
                 note.error().kind == ErrorKind::newerFormat)
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
    ARCA_TRY(const Found found, findManifests(domain_));
    stock.found = found.manifests;
    stock.missing = without(noted.stock, found.ids);
    std::erase_if(stock.missing, [&](PieceId id) { return found.mayHold(id); });
    if (stock.missing.empty())
        return stock;
    // What was purged since the notes were read was noted as gone before.
    ARCA_TRY(const Noted now, readStock());
    std::erase_if(stock.missing,
                  [&](PieceId id) { return !std::ranges::binary_search(now.stock, id); });
    return stock;
}

Result<void> Inventory::noteGivenUp(const std::string &blobName)
{
    const auto half = formerHalf(blobName);
    if (!isKept() || !half)
        return {};
    ARCA_TRY(const Noted noted, readStock());
    ARCA_TRY(const Found others, findManifests(domain_, blobName));
    Ids its = without(noted.stock, others.ids);
    std::erase_if(its, [&](PieceId id) {
        return static_cast<std::uint32_t>(id >> 32) != *half || others.mayHold(id);
    });
    // Of several pieces of that name, those that its header does not claim stay missing.
    const auto blob = domain_.blobs().open(blobName);
    const auto claimed = blob ? peekIdentifier(**blob) : Result<PieceId>(blob.error());
    if (claimed && std::ranges::binary_search(its, *claimed))
        its = {*claimed};
    return its.empty() ? Result<void>() : noteWent(std::move(its));
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

Result<void> Inventory::compact()
{
    if (!isKept())
        return {};
    // Before the notes are listed: whoever could still bring an old note would be among them.
    ARCA_TRY(const auto claims, domain_.blobs().livingWriters());
    std::vector<std::string> damaged;
    ARCA_TRY(auto notes, readAll(damaged));
    Note all;
    for (const Read &read : notes) {
        all.came.insert(all.came.end(), read.note.came.begin(), read.note.came.end());
        all.went.insert(all.went.end(), read.note.went.begin(), read.note.went.end());
    }
    sortOut(all.came);
    sortOut(all.went);
    const Ids left = without(all.came, all.went);
    // What went and is in no note as having come, nor can be any more.
    if (claims.empty() && damaged.empty())
        all.went = without(all.went, without(all.went, all.came));
    all.came = left;
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
    if (auto begun = domain.blobs().begin())
        blob_ = std::move(begun).value();
}

CommitNote::~CommitNote() = default;

void CommitNote::write(std::vector<PieceId> came)
{
    if (!blob_ || came.empty())
        return;
    const auto name = newNoteName(domain_);
    if (!name)
        return;
    const auto sealed = RecordSeal(domain_).seal(*name, encodeNote({std::move(came), {}}));
    if (sealed && blob_->append(*sealed))
        (void)blob_->commit(*name);
    blob_.reset();
}

} // namespace arca::store
