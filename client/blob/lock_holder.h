// What a store offers that can name the holder of a lock. A store need not offer it.
#ifndef KEEL_CLIENT_BLOB_LOCK_HOLDER_H
#define KEEL_CLIENT_BLOB_LOCK_HOLDER_H

#include "client/blob/blob_store.h"

namespace arca::blob
{

class NamesHolders
{
public:
    virtual ~NamesHolders() = default;

    /// Returns who holds a lock, in words: process, host, since when and for what, by its own note.
    /// It may have let go meanwhile; nothing may be decided by the answer.
    virtual std::string holderOf(const std::string &lock) = 0;
};

/// Returns the same; "another process" where the store cannot name it.
inline std::string holderOf(BlobStore &store, const std::string &lock)
{
    auto *const naming = dynamic_cast<NamesHolders *>(&store);
    return naming == nullptr ? std::string("another process") : naming->holderOf(lock);
}

} // namespace arca::blob

#endif
