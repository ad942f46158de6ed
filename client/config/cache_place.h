// Where this host keeps what can be made again from a repository.
#ifndef KEEL_CLIENT_CONFIG_CACHE_PLACE_H
#define KEEL_CLIENT_CONFIG_CACHE_PLACE_H

#include "client/base/host_cache.h"
#include "client/config/options.h"

#include <string>

namespace arca::config
{

/// The cache of a repository: the directory that the option CACHE names, and nothing else; without
/// the option $XDG_CACHE_HOME/arca, else .cache/arca in the user's home, else <option file>.cache,
/// whichever can be used first; none with "CACHE no". In it each repository has a directory of its
/// own, named by its identifier `uuid` and a digest of `repository`, the directory where it lies:
/// so a copy of a repository on the same host has another one. Makes the directory. Never fails:
/// see HostCache.
HostCache cacheFor(const Options &options, const std::string &uuid, const std::string &repository);

} // namespace arca::config

#endif
