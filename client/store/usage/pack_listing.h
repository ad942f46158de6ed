// The packs of a node that are there, with their revisions, from one listing. A value; belongs to
// one thread.
#ifndef KEEL_CLIENT_STORE_USAGE_PACK_LISTING_H
#define KEEL_CLIENT_STORE_USAGE_PACK_LISTING_H

#include "client/engine/packs/pack_store.h"

#include <span>
#include <vector>

namespace arca::store
{

class PackListing
{
public:
    /// Lists the packs. 20 bytes of memory for each revision. Errors: what listing says.
    static Result<PackListing> of(const engine::PackStore &packs);

    /// Returns the revisions of a pack, the oldest first; empty when it was not there.
    std::span<const engine::PackName> revisionsOf(const engine::PackId &id) const;
    /// Every pack in order, one entry for each: its oldest revision.
    template <class Visit> void eachPack(Visit visit) const
    {
        for (std::size_t i = 0; i < found_.size(); ++i)
            if (i == 0 || found_[i - 1].id != found_[i].id)
                visit(found_[i].id);
    }
    /// Returns the number of revisions, of all packs together.
    std::size_t size() const { return found_.size(); }

private:
    std::vector<engine::PackName> found_; // by identifier and revision
};

} // namespace arca::store

#endif
