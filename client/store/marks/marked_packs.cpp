// The record of marked packs, to and from bytes.
#include "client/store/marks/marked_packs.h"

#include "client/store/records/record_forms.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::mark.kind;
constexpr std::uint32_t kVersion = form::mark.newest;
constexpr std::uint32_t kClaimsKnown = 1;
constexpr std::uint32_t kInPlaceOfDamaged = 2;

} // namespace

std::set<engine::PackId> Mark::packIds() const
{
    std::set<engine::PackId> ids;
    for (const auto &[pack, revision] : packs)
        ids.insert(ids.end(), pack);
    return ids;
}

void Mark::add(const engine::PackId &pack, std::uint32_t revision)
{
    std::uint32_t &newest = packs.try_emplace(pack, revision).first->second;
    newest = std::max(newest, revision);
}

bool Mark::lacksRevisions() const
{
    return std::ranges::any_of(packs,
                               [](const auto &pack) { return pack.second == kUnknownRevision; });
}

Bytes encodeMark(const Mark &mark)
{
    ByteWriter payload;
    payload.u32(static_cast<std::uint32_t>(mark.packs.size()));
    for (const auto &[pack, revision] : mark.packs)
        payload.raw(pack);
    const bool known = mark.claims && mark.claims->size() <= kMaxMarkedClaims;
    payload.u32((known ? kClaimsKnown : 0) | (mark.inPlaceOfDamaged ? kInPlaceOfDamaged : 0));
    payload.u32(known ? static_cast<std::uint32_t>(mark.claims->size()) : 0);
    if (known)
        for (const std::string &claim : *mark.claims)
            payload.text(claim);
    for (const auto &[pack, revision] : mark.packs)
        payload.u32(revision);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<Mark> parseMark(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    std::vector<engine::PackId> packs;
    for (std::uint32_t left = reader.u32(); left != 0 && reader.ok(); --left) {
        const ByteView id = reader.raw(sizeof(engine::PackId));
        engine::PackId pack{};
        std::copy(id.begin(), id.end(), pack.begin());
        packs.push_back(pack);
    }
    Mark mark;
    const std::uint32_t flags = reader.u32();
    mark.inPlaceOfDamaged = (flags & kInPlaceOfDamaged) != 0;
    std::set<std::string> claims;
    for (std::uint32_t left = reader.u32(); left != 0 && reader.ok(); --left)
        claims.insert(reader.text());
    const bool hasRevisions = reader.remaining() != 0; // of version 2
    for (std::size_t i = 0; i < packs.size() && reader.ok(); ++i)
        mark.add(packs[i], hasRevisions ? reader.u32() : kUnknownRevision);
    if (!reader.ok() || reader.remaining() != 0)
        return Error{ErrorKind::damaged, "the list of marked packs is damaged"};
    if ((flags & kClaimsKnown) != 0)
        mark.claims = std::move(claims);
    return mark;
}

Result<void> limitToPresent(Mark &mark, const engine::PackStore &packs)
{
    if (!mark.lacksRevisions())
        return {};
    Mark present;
    ARCA_CHECK(packs.list([&](const engine::PackName &pack) {
        present.add(pack.id, pack.revision);
        return true;
    }));
    for (auto pack = mark.packs.begin(); pack != mark.packs.end();) {
        const auto there = present.packs.find(pack->first);
        const bool lacks = pack->second == kUnknownRevision;
        if (lacks && there != present.packs.end())
            pack->second = there->second;
        pack = lacks && there == present.packs.end() ? mark.packs.erase(pack) : std::next(pack);
    }
    return {};
}

NumberedRecord markRecord(const engine::Domain &domain)
{
    return {domain.blobs(), "reclaim/" + domain.nodeKey(), RecordSeal(domain), kMaxMarkBytes};
}

Result<CurrentMark> currentMark(const engine::Domain &domain)
{
    NumberedRecord record = markRecord(domain);
    CurrentMark current;
    const auto read = [&]() -> Result<void> {
        ARCA_TRY(const auto state, record.latest());
        if (!state)
            return {};
        current.number = state->number;
        ARCA_TRY(current.mark, parseMark(state->bytes));
        return {};
    }();
    if (read || (read.error().kind != ErrorKind::damaged && read.error().kind != ErrorKind::io)) {
        ARCA_CHECK(read);
        return current;
    }
    ARCA_TRY(current.number, record.newestNumber());
    current.unreadable = record.nameOf(current.number);
    current.damaged = read.error().kind == ErrorKind::damaged;
    current.mark.inPlaceOfDamaged = true;
    ARCA_CHECK(domain.packs().list([&](const engine::PackName &pack) {
        current.mark.add(pack.id, pack.revision);
        return true;
    }));
    return current;
}

Result<CurrentMark> markToChange(const engine::Domain &domain)
{
    ARCA_TRY(CurrentMark current, currentMark(domain));
    if (!current.unreadable.empty() && !current.damaged)
        return Error{ErrorKind::io, "the list of marked packs, " + current.unreadable +
                                        ", cannot be read now; try again"};
    return current;
}

} // namespace arca::store
