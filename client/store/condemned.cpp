// The record of marked packs, to and from bytes.
#include "client/store/condemned.h"

#include "client/store/record_forms.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::mark.kind;
constexpr std::uint32_t kVersion = form::mark.newest;

} // namespace

Bytes encodeMark(const Mark &mark)
{
    ByteWriter payload;
    payload.u32(static_cast<std::uint32_t>(mark.packs.size()));
    for (const engine::PackId &pack : mark.packs)
        payload.raw(pack);
    const bool known = mark.claims && mark.claims->size() <= kMaxMarkedClaims;
    payload.u32(known ? 1 : 0);
    payload.u32(known ? static_cast<std::uint32_t>(mark.claims->size()) : 0);
    if (known)
        for (const std::string &claim : *mark.claims)
            payload.text(claim);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<Mark> parseMark(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    Mark mark;
    for (std::uint32_t left = reader.u32(); left != 0 && reader.ok(); --left) {
        const ByteView id = reader.raw(sizeof(engine::PackId));
        engine::PackId pack{};
        std::copy(id.begin(), id.end(), pack.begin());
        mark.packs.insert(pack);
    }
    const bool known = reader.u32() == 1;
    std::set<std::string> claims;
    for (std::uint32_t left = reader.u32(); left != 0 && reader.ok(); --left)
        claims.insert(reader.text());
    if (!reader.ok() || reader.remaining() != 0)
        return Error{ErrorKind::damaged, "the list of marked packs is damaged"};
    if (known)
        mark.claims = std::move(claims);
    return mark;
}

NumberedRecord markRecord(const engine::Domain &domain)
{
    return {domain.blobs(), "reclaim/" + domain.nodeKey(), RecordSeal(domain)};
}

Result<std::set<engine::PackId>> readMarkedPacks(const engine::Domain &domain)
{
    ARCA_TRY(const auto state, markRecord(domain).latest());
    if (!state)
        return std::set<engine::PackId>();
    ARCA_TRY(Mark mark, parseMark(state->bytes));
    return std::move(mark.packs);
}

} // namespace arca::store
