// The packs of a node that reclaiming has marked: a numbered record, reclaim/<node key>/, whose
// newest state holds.
//
// A pack is marked before it is deleted or rewritten. A stream that begins after the mark sees it
// and stays off the pack; a stream that began before shows by its claim, and reclaiming waits until
// that has gone and then looks again whether the pack is needed. So neither needs a clock.
//
// What is marked are revisions of a pack: all up to the number that the mark has for it. Any number
// of runs may act by one mark, as a run may sleep at any step, and lose its lock to another one:
//
//   1. A run deletes marked revisions only, the oldest first. What came later is another mark's.
//   2. A run rewrites a pack into the revision after the marked ones, whatever else is there. That
//      name is put if absent, so of all that act by one mark one decides what the revision has.
//   3. A run goes on writing only when the mark is the same after it took its claim. The next mark
//      waits for such a claim, so no revision that it marks appears once it is swept.
//   4. A pack is unmarked when none of its marked revisions is left, and only then. So a run that
//      wakes late finds nothing to delete, and what streams have come to count on stays.
//
// A mark that is damaged stops no backup: it counts as a mark of every pack as it is now, and
// streams store again what they bring. The next run of reclaiming replaces it by such a mark, and
// gives each pack that is needed its next revision: the same blob under another name.
//
// A mark of version 1 has no revisions. Streams stay off its packs, and nothing is deleted by it:
// the next run marks the revisions that there are.
//
// Payload (kind "ARCACOND", version 2): the number of packs (4) and as many identifiers of 16
// bytes; flags (4): 1 when the claims at the time of the mark are known, 2 when it stands for a
// damaged one; the number of the claims (4), and for each a 16-bit length and as many bytes; for
// each pack, in the same order, the newest revision that is marked (4). Version 1 lacks these.
#ifndef KEEL_CLIENT_STORE_MARKS_MARKED_PACKS_H
#define KEEL_CLIENT_STORE_MARKS_MARKED_PACKS_H

#include "client/engine/packs/pack_format.h"
#include "client/store/records/numbered_record.h"

#include <limits>
#include <map>
#include <set>

namespace arca::store
{

/// In the place of a revision: the mark that was read has none.
constexpr std::uint32_t kUnknownRevision = std::numeric_limits<std::uint32_t>::max();

struct Mark {
    std::map<engine::PackId, std::uint32_t> packs; // with the newest revision that is marked
    /// Who lived when the packs were marked; nothing: that was not yet asked.
    std::optional<std::set<std::string>> claims;
    /// Every pack was marked in place of the few that a damaged mark had. Streams cannot stay off
    /// them for good, or all would be stored again: what is needed gets its next revision as it is.
    bool inPlaceOfDamaged = false;

    std::set<engine::PackId> packIds() const;
    /// Marks all revisions up to `revision`, and those that are marked already.
    void add(const engine::PackId &pack, std::uint32_t revision);
    /// Returns true when some packs are marked without a revision, so that nothing can be deleted.
    bool lacksRevisions() const;
};

/// More packs wait for the next mark, and with more claims than that they are asked for again each
/// time.
constexpr std::size_t kMaxMarkedPacks = std::size_t{1} << 22;
constexpr std::size_t kMaxMarkedClaims = 400;
constexpr std::size_t kMaxMarkBytes =
    kMaxMarkedPacks * (sizeof(engine::PackId) + 4) + kMaxMarkedClaims * 64 + 1024;

/// More claims than kMaxMarkedClaims are written as unknown.
Bytes encodeMark(const Mark &mark);
/// Errors: damaged, newerFormat, whatever the bytes are.
Result<Mark> parseMark(ByteView bytes);

/// Limits packs that are marked without a revision to the revisions that there are now; packs that
/// are gone are no longer marked. Write the result as a new mark before anything is deleted by it.
Result<void> limitToPresent(Mark &mark, const engine::PackStore &packs);

/// Returns the record, which refers to `domain`.
NumberedRecord markRecord(const engine::Domain &domain);
/// The mark that holds now; an empty one when there is none.
struct CurrentMark {
    Mark mark;
    std::uint32_t number = 0; // of its state; 0: there is none
    /// Its blob when it cannot be read. Then `mark` has every revision of every pack that is there:
    /// a stream that took its claim before it asked cannot know which of them reclaiming will
    /// delete, but what comes later was never marked. Its claims are unknown.
    std::string unreadable;
    /// True when it is damaged, and not just out of reach now. Only then may another one replace
    /// it.
    bool damaged = false;
};
/// Returns it for a run that marks or unmarks. Errors: io when the mark is out of reach now, and as
/// currentMark().
Result<CurrentMark> markToChange(const engine::Domain &domain);
/// Returns it for a stream, which took its claim before. A mark that is damaged or gives io is no
/// error: see CurrentMark::unreadable. Errors: denied, newerFormat, what listing says.
Result<CurrentMark> currentMark(const engine::Domain &domain);

} // namespace arca::store

#endif
