// The packs of a node that reclaiming has marked: a numbered record, reclaim/<node key>/, whose
// newest state holds.
//
// A pack is marked before it is taken away or rewritten. A stream that begins after the mark sees
// it and stays off the pack; a stream that began before shows by its claim, and reclaiming waits
// until that has gone and then looks again whether the pack is needed. So neither needs a clock.
//
// Payload (kind "ARCACOND", version 1): a 32-bit count and as many identifiers of 16 bytes.
#ifndef KEEL_CLIENT_STORE_CONDEMNED_H
#define KEEL_CLIENT_STORE_CONDEMNED_H

#include "client/engine/pack_format.h"
#include "client/store/record.h"

#include <set>

namespace arca::store
{

/// As many as fit into a record; more wait for the next time.
constexpr std::size_t kMaxCondemned = 4000;

Bytes encodeCondemned(const std::set<engine::PackId> &packs);
/// `damaged`, `newerFormat`, whatever the bytes are.
Result<std::set<engine::PackId>> parseCondemned(ByteView bytes);

NumberedRecord condemnedRecord(blob::BlobStore &blobs, const std::string &nodeKey);
/// Empty when nothing was ever marked.
Result<std::set<engine::PackId>> readCondemned(blob::BlobStore &blobs, const std::string &nodeKey);

} // namespace arca::store

#endif
