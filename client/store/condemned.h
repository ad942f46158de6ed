// The packs of a node that reclaiming has marked: a numbered record, reclaim/<node key>/, whose
// newest state holds.
//
// A pack is marked before it is taken away or rewritten. A stream that begins after the mark sees
// it and stays off the pack; a stream that began before shows by its claim, and reclaiming waits
// until that has gone and then looks again whether the pack is needed. So neither needs a clock.
//
// A mark that is damaged stops no backup: it counts as a mark of every pack, streams store again
// what they bring, and the next run of reclaiming replaces it.
//
// Payload (kind "ARCACOND", version 1): the number of packs (4) and as many identifiers of 16
// bytes; 1 when the claims at the time of the mark are known, else 0 (4); their number (4), and for
// each a 16-bit length and as many bytes.
#ifndef KEEL_CLIENT_STORE_CONDEMNED_H
#define KEEL_CLIENT_STORE_CONDEMNED_H

#include "client/engine/pack_format.h"
#include "client/store/record.h"

#include <set>

namespace arca::store
{

struct Mark {
    std::set<engine::PackId> packs;
    /// Who lived when the packs were marked; nothing: that was not yet asked.
    std::optional<std::set<std::string>> claims;
};

/// More packs wait for the next mark, and with more claims than that they are asked for again each
/// time.
constexpr std::size_t kMaxMarkedPacks = std::size_t{1} << 22;
constexpr std::size_t kMaxMarkedClaims = 400;
constexpr std::size_t kMaxMarkBytes =
    kMaxMarkedPacks * sizeof(engine::PackId) + kMaxMarkedClaims * 64 + 1024;

Bytes encodeMark(const Mark &mark);
/// `damaged`, `newerFormat`, whatever the bytes are.
Result<Mark> parseMark(ByteView bytes);

NumberedRecord markRecord(const engine::Domain &domain);
/// The mark that holds now.
struct CurrentMark {
    Mark mark;
    std::uint32_t number = 0; // of its state; 0: there is none
    /// Its blob when it cannot be read. Then `mark` has every pack that is there: a stream that
    /// took its claim before it asked cannot know which of them reclaiming will take away, but
    /// packs that come later were never marked. Its claims are unknown.
    std::string unreadable;
};
Result<CurrentMark> currentMark(const engine::Domain &domain);

} // namespace arca::store

#endif
