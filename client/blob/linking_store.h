// What a store offers that can give a blob a second name: moving a blob without a moment in which
// it has none, and without space for a copy. A store need not offer it; ask with dynamic_cast.
#ifndef KEEL_CLIENT_BLOB_LINKING_STORE_H
#define KEEL_CLIENT_BLOB_LINKING_STORE_H

#include "client/blob/blob_store.h"

namespace arca::blob
{

class LinkingStore
{
public:
    virtual ~LinkingStore() = default;

    /// Makes the very blob that `opened` reads appear under `to` as well, durably and in one step.
    /// Returns false, with nothing done, where it turns out that a blob cannot have two names.
    /// Errors: notFound when `from` leads to another blob by now or to none, exists.
    virtual Result<bool> link(const std::string &from, BlobReader &opened,
                              const std::string &to) = 0;
};

enum class SecondName { linked, copied };

/// Links the blob, or copies it where it cannot be linked, and returns which. Errors: as link().
/// Whether a copy is what was read is for the caller to prove, and a copy is made also when `from`
/// has gone meanwhile.
Result<SecondName> linkOrCopy(BlobStore &store, const std::string &from, BlobReader &opened,
                              const std::string &to);

} // namespace arca::blob

#endif
