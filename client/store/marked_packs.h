// The packs of a node that reclaiming has marked: a numbered record, reclaim/<node key>/, whose
// newest state holds.
//
// A pack is marked before it is taken away or rewritten. A stream that begins after the mark sees
// it and stays off the pack; a stream that began before shows by its claim, and reclaiming waits
// until that has gone and then looks again whether the pack is needed. So neither needs a clock.
//
// A mark goes only with the pack, or with the revision that was marked: whoever unmarks has deleted
// the pack or has put its next revision. A run that found marked blocks needed by nobody may be
// held up for any time, lose its lock to another run, and still delete them when it wakes. So
// nothing new may ever count on that revision, however much the other run finds it needed; it stays
// marked until it is rewritten or dead.
//
// A mark that is damaged stops no backup: it counts as a mark of every pack, streams store again
// what they bring, and the next run of reclaiming replaces it.
//
// Payload (kind "ARCACOND", version 1): the number of packs (4) and as many identifiers of 16
// bytes; flags (4): 1 when the claims at the time of the mark are known, 2 when it stands for a
// damaged one; the number of the claims (4), and for each a 16-bit length and as many bytes.
#ifndef KEEL_CLIENT_STORE_MARKED_PACKS_H
#define KEEL_CLIENT_STORE_MARKED_PACKS_H

#include "client/engine/pack_format.h"
#include "client/store/record.h"

#include <set>

namespace arca::store
{

struct Mark {
    std::set<engine::PackId> packs;
    /// Who lived when the packs were marked; nothing: that was not yet asked.
    std::optional<std::set<std::string>> claims;
    /// Every pack was marked in place of the few that a damaged mark had. Streams can not stay off
    /// them for good, or all would be stored again: it goes as a whole once it is swept.
    bool inPlaceOfDamaged = false;
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
    /// Whether it is damaged, and not just out of reach now. Only then may another one replace it.
    bool damaged = false;
};
/// The same for whoever marks and unmarks: `io` when the mark is out of reach now.
Result<CurrentMark> markToChange(const engine::Domain &domain);
Result<CurrentMark> currentMark(const engine::Domain &domain);

} // namespace arca::store

#endif
