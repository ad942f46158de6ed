// What a store offers in which a name, or its absence, may show before it survives a loss of power.
// A store need not offer it; ask with dynamic_cast.
#ifndef KEEL_CLIENT_BLOB_SYNCING_STORE_H
#define KEEL_CLIENT_BLOB_SYNCING_STORE_H

#include "client/blob/blob_store.h"

namespace arca::blob
{

class SyncingStore
{
public:
    virtual ~SyncingStore() = default;

    /// Makes the names and the absences that a listing of `prefix`, which ends with a slash, told
    /// survive a loss of power: those right below it, and those one component further down. Who
    /// takes something away by what a listing lacks calls it in between, because the process
    /// that took the name away may have died before that was durable.
    virtual Result<void> syncListed(const std::string &prefix) = 0;
};

/// Does nothing in a store that needs none of it.
inline Result<void> syncListed(BlobStore &store, const std::string &prefix)
{
    auto *const syncing = dynamic_cast<SyncingStore *>(&store);
    return syncing == nullptr ? Result<void>() : syncing->syncListed(prefix);
}

} // namespace arca::blob

#endif
