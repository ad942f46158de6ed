// From the text that names a repository's place to the blob store there.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_LOCATION_H
#define KEEL_CLIENT_BLOB_DIRECTORY_LOCATION_H

#include "client/blob/blob_store.h"

#include <string>
#include <string_view>

namespace arca::blob
{

/// A place, as "file:///srv/arca" names it: an absolute path in which "%20" stands for a blank and
/// so on. `badOption` with a sentence when the text is anything else.
struct Location {
    std::string directory;

    static Result<Location> parse(std::string_view text);
};

/// The store at a place. `noRepository` when the directory is not there; `denied` when the
/// repository in it belongs to another user than the effective one of this process, unless nothing
/// can be written there, or what is written there belongs to the owner whoever writes it.
Result<std::unique_ptr<BlobStore>> openStore(const Location &location);

/// Makes the directory, where it is not there, and its parents. `exists` when there is something in
/// it already that is not a repository's; `denied` when root is about to take another user's
/// directory.
Result<std::unique_ptr<BlobStore>> prepareStore(const Location &location);

} // namespace arca::blob

#endif
