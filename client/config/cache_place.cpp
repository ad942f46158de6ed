// The places of caches: see the header.
#include "client/config/cache_place.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"

#include <climits>
#include <cstdlib>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::config
{

namespace
{

std::string variable(const char *name)
{
    const char *const value = std::getenv(name);
    return value == nullptr || *value != '/' ? std::string() : std::string(value);
}

/// Returns true for a directory that neither this user nor root owns. A change of user left its
/// name in the environment, or the caller of a set-user-ID program put it there.
bool isAnothers(const std::string &directory)
{
    struct stat state;
    return stat(directory.c_str(), &state) == 0 && state.st_uid != geteuid() && state.st_uid != 0;
}

bool isOwn(const std::string &directory)
{
    struct stat state;
    return !directory.empty() && stat(directory.c_str(), &state) == 0 && S_ISDIR(state.st_mode) &&
           state.st_uid == geteuid();
}

std::string homeOfUser()
{
    std::string home = variable("HOME");
    if (isOwn(home))
        return home;
    constexpr std::size_t kBuffer = 16 << 10;
    const auto buffer = std::make_unique<char[]>(kBuffer);
    passwd entry{};
    passwd *found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.get(), kBuffer, &found) != 0 || found == nullptr ||
        entry.pw_dir == nullptr)
        return {};
    home = entry.pw_dir;
    return isOwn(home) ? home : std::string();
}

std::vector<std::string> placesFor(const Options &options)
{
    if (!options.cache.empty())
        return {options.cache};
    std::vector<std::string> places;
    const std::string caches = variable("XDG_CACHE_HOME");
    if (!caches.empty() && !isAnothers(caches))
        places.push_back(caches + "/arca");
    else if (const std::string home = homeOfUser(); !home.empty())
        places.push_back(home + "/.cache/arca");
    // Not beside a relative name: the host's current directory may change.
    if (options.file.starts_with('/'))
        places.push_back(options.file + ".cache");
    return places;
}

std::string resolved(const std::string &path)
{
    const std::unique_ptr<char, void (*)(void *)> real(realpath(path.c_str(), nullptr), &std::free);
    return real ? real.get() : path;
}

} // namespace

HostCache cacheFor(const Options &options, const std::string &uuid, const std::string &repository)
{
    constexpr std::size_t kDigestBytes = 4;
    const auto digest = sha256({viewOf(resolved(repository))});
    if (equalIgnoringCase(options.cache, "no") || !digest)
        return {};
    return HostCache::in(placesFor(options),
                         uuid + "-" + toHex(ByteView(*digest).first(kDigestBytes)));
}

} // namespace arca::config
