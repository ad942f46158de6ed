// Where this host keeps what can be made again from a repository: the choice of the directory.
#ifndef KEEL_CLIENT_CONFIG_CACHE_PLACE_H
#define KEEL_CLIENT_CONFIG_CACHE_PLACE_H

#include "client/base/local/host_cache.h"
#include "client/config/options.h"

#include <string>

namespace arca::config
{

/// Returns the cache of a repository, whose directory it makes. With the option CACHE only the
/// directory that it names is tried, and with "CACHE no" none. Without the option: $XDG_CACHE_HOME
/// or, when that is not set or another user's, .cache in the user's home, in either a directory
/// "arca"; then <option file>.cache. In it each repository has a directory of its own, named by its
/// identifier `uuid` and a digest of `repository`, the directory where it lies: so a copy of a
/// repository on the same host has another one. When no directory can be used the result has none
/// and says why: see HostCache. Any thread, unless another changes the environment.
HostCache cacheFor(const Options &options, const std::string &uuid, const std::string &repository);

} // namespace arca::config

#endif
