// The record of marked packs, to and from bytes.
#include "client/store/condemned.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = "ARCACOND";
constexpr std::uint32_t kVersion = 1;

} // namespace

Bytes encodeCondemned(const std::set<engine::PackId> &packs)
{
    ByteWriter payload;
    payload.u32(static_cast<std::uint32_t>(packs.size()));
    for (const engine::PackId &pack : packs)
        payload.raw(pack);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<std::set<engine::PackId>> parseCondemned(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    const std::uint32_t count = reader.u32();
    std::set<engine::PackId> packs;
    if (reader.remaining() != count * std::uint64_t{sizeof(engine::PackId)})
        return Error{ErrorKind::damaged, "the list of marked packs has an impossible length"};
    for (std::uint32_t i = 0; i < count; ++i) {
        const ByteView id = reader.raw(sizeof(engine::PackId));
        engine::PackId pack;
        std::copy(id.begin(), id.end(), pack.begin());
        packs.insert(pack);
    }
    return packs;
}

NumberedRecord condemnedRecord(blob::BlobStore &blobs, const std::string &nodeKey)
{
    return {blobs, "reclaim/" + nodeKey};
}

Result<std::set<engine::PackId>> readCondemned(blob::BlobStore &blobs, const std::string &nodeKey)
{
    ARCA_TRY(const auto state, condemnedRecord(blobs, nodeKey).latest());
    if (!state)
        return std::set<engine::PackId>();
    return parseCondemned(state->bytes);
}

} // namespace arca::store
