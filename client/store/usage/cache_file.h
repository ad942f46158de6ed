// A small file in the host's cache of a repository, which is read and replaced as a whole. Any
// thread may call these.
#ifndef KEEL_CLIENT_STORE_USAGE_CACHE_FILE_H
#define KEEL_CLIENT_STORE_USAGE_CACHE_FILE_H

#include "client/base/bytes.h"

#include <string>

namespace arca::store
{

/// Returns what the file holds, at most `limit` bytes; nothing when it cannot be read, or is no
/// regular file; or when `directory` is empty. Whoever may write in the cache may have written it.
Bytes readCacheFile(const std::string &directory, const std::string &name, std::size_t limit);

/// Replaces the file, and makes the directory and its parent if need be. A process that is killed,
/// or a failure, which is not reported, leaves the file as it was. Nothing is synced: after a loss
/// of power it may be anything. With an empty directory nothing is done.
void replaceCacheFile(const std::string &directory, const std::string &name, ByteView content);

} // namespace arca::store

#endif
