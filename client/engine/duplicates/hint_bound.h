// Keeps the hints of a host within a bound: the packs that were not found for longest lose theirs.
// The time is counted in packs that were remembered, not in days, so no clock is asked.
//
// A pack that has lost its hints stays known, or the next comparison with the packs that are there
// would bring them back. Hints of packs that have none any more, or are gone, are swept out a part
// at a time, so that no transaction is long: others wait for it.
#ifndef KEEL_CLIENT_ENGINE_DUPLICATES_HINT_BOUND_H
#define KEEL_CLIENT_ENGINE_DUPLICATES_HINT_BOUND_H

#include "client/base/local/database.h"

#include <set>

namespace arca::engine
{

/// The caller holds the lock of the catalogue. Every function that changes the file returns false
/// on failure, next() 0; the caller rolls the transaction back.
class HintBound
{
public:
    /// `mostHints`: of all packs together.
    HintBound(Database &database, std::int64_t mostHints)
        : database_(database), mostHints_(mostHints)
    {
    }

    /// Prepares the statements. The database is open.
    bool prepare();
    /// Lets the statements go; the database may be closed then.
    void letGo();

    /// Notes that a pack was found whose last use is `used`. Written by the next write().
    void found(std::int64_t pack, std::int64_t used);
    /// In a transaction: writes what was found.
    bool write();
    /// Returns true when write() has something to write.
    bool hasFound() const { return !found_.empty(); }
    /// In a transaction: `pack` has `hints` hints now. Takes those of others away as far as the
    /// bound asks for it, and sweeps a part of the file.
    bool added(std::int64_t pack, std::int64_t hints);
    /// In a transaction: the pack is about to be forgotten.
    bool forgotten(std::int64_t pack);
    /// In a transaction: returns the number that the next pack will have; none is given twice.
    std::int64_t next();

private:
    std::int64_t hintsOf(std::int64_t pack);
    bool makeRoom(std::int64_t keep);
    bool sweep();
    bool set(const char *name, std::int64_t value);
    std::int64_t get(const char *name);
    std::int64_t count(std::int64_t value);

    Database &database_;
    const std::int64_t mostHints_;
    std::set<std::int64_t> found_;
    std::int64_t now_ = 0; // the last number that was given, as far as is known here
    Statement get_, set_, use_, count_, hintsOf_, oldest_, part_, drop_;
};

} // namespace arca::engine

#endif
