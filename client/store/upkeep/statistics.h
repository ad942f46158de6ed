// What a node keeps, in numbers: of its pieces as their manifests tell, of its packs as they lie
// there.
#ifndef KEEL_CLIENT_STORE_UPKEEP_STATISTICS_H
#define KEEL_CLIENT_STORE_UPKEEP_STATISTICS_H

#include "client/store/listing/progress.h"
#include "client/store/space/node_space.h"

#include <map>

namespace arca::store
{

/// Sums over pieces: what came in, and where it went.
struct PieceSums {
    std::uint64_t pieces = 0;
    std::uint64_t streamBytes = 0;
    std::uint64_t zeroBytes = 0;      // not stored, as they are zeros
    std::uint64_t duplicateBytes = 0; // not stored, as they were there already
    std::uint64_t newBytes = 0;       // stored
    std::uint64_t storedBytes = 0;    // what the new ones came to, compressed and sealed

    void add(const PieceTotals &totals);
};

struct Statistics {
    PieceSums all;
    std::uint64_t inactivePieces = 0;       // among them
    std::map<std::int64_t, PieceSums> days; // by the day of storing: days since 1970, UTC
    std::int64_t newest = 0; // when the last was stored: seconds since 1970, UTC, as lastDamage
    std::uint64_t manifestBytes = 0;
    std::uint64_t unreadable = 0;   // pieces and packs that cannot be opened; they are in no sum
    std::uint64_t damagedParts = 0; // of packs, that have a record
    std::int64_t lastDamage = 0;    // when the newest of these was found, as far as they tell
    std::uint64_t quarantined = 0;  // manifests that were set aside
    std::uint64_t packs = 0;
    std::uint64_t packBytes = 0; // also of blocks that no piece needs any more
};

/// Sums up the pieces that show now, and every revision of every pack; what comes or goes meanwhile
/// may be counted or not. `progress` is told of pieces and packs. Errors: stopped, what listing
/// says.
Result<Statistics> gatherStatistics(NodeSpace &space, const Progress &progress = {});

} // namespace arca::store

#endif
