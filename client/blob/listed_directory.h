// Looks for many beginnings of names with one listing of each directory, when they are asked for in
// their order. For one thread.
#ifndef KEEL_CLIENT_BLOB_LISTED_DIRECTORY_H
#define KEEL_CLIENT_BLOB_LISTED_DIRECTORY_H

#include "client/blob/blob_store.h"

#include <span>
#include <string_view>
#include <vector>

namespace arca::blob
{

class ListedDirectory
{
public:
    /// `store` must outlive it.
    explicit ListedDirectory(BlobStore &store) : store_(store) {}

    /// Returns the names that begin with `prefix`, sorted, as they were when its directory was
    /// first asked about without another one in between: a name that came since is not among them,
    /// and one that is may be gone. They are kept in memory, of one directory at a time; the result
    /// is valid until the next call. After an error the directory is listed again.
    Result<std::span<const std::string>> under(std::string_view prefix);

private:
    BlobStore &store_;
    std::string directory_; // with a slash at its end; empty: none was listed
    std::vector<std::string> names_;
};

} // namespace arca::blob

#endif
