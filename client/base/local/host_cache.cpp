// Making and checking the directory of a cache: see the header.
#include "client/base/local/host_cache.h"

#include "client/base/descriptor.h"
#include "client/base/result.h"
#include "client/base/text.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace arca
{

namespace
{

Error refused(const std::string &path, const std::string &why)
{
    return {ErrorKind::io, "the cache directory " + printable(path) + " cannot be used: " + why};
}

Error refused(const std::string &path, int number)
{
    return refused(path, std::generic_category().message(number));
}

/// Makes the directory and those above it; returns true when it is there, else false with errno.
bool makeDirectories(const std::string &path)
{
    if (makeDirectoryAt(AT_FDCWD, path.c_str()) == 0 || errno == EEXIST)
        return true;
    const auto slash = path.rfind('/');
    return errno == ENOENT && slash != std::string::npos && slash != 0 &&
           makeDirectories(path.substr(0, slash)) &&
           (makeDirectoryAt(AT_FDCWD, path.c_str()) == 0 || errno == EEXIST);
}

/// The path without links.
Result<std::string> resolved(const std::string &path)
{
    const std::unique_ptr<char, void (*)(void *)> real(realpath(path.c_str(), nullptr), &std::free);
    if (!real)
        return refused(path, errno);
    return std::string(real.get());
}

/// Another user must not be able to put a directory in the place of ours.
Result<void> checkPlace(const std::string &path)
{
    struct stat state;
    if (stat(path.c_str(), &state) != 0)
        return refused(path, errno);
    if (!S_ISDIR(state.st_mode))
        return refused(path, "it is no directory");
    if (state.st_uid != geteuid() && state.st_uid != 0)
        return refused(path, "it belongs to another user");
    if ((state.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (state.st_mode & S_ISVTX) == 0)
        return refused(path, "others may write in it (mode 0700 keeps them out)");
    return {};
}

/// Makes the directory, if need be, and makes it private. What is checked and changed is the open
/// directory, so a name that is replaced meanwhile misleads neither.
Result<void> claim(const std::string &path)
{
    if (makeDirectoryAt(AT_FDCWD, path.c_str()) != 0 && errno != EEXIST)
        return refused(path, errno);
    const int descriptor = openAbove(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (descriptor < 0)
        return refused(path, errno);
    struct stat state;
    Result<void> done;
    if (fstat(descriptor, &state) != 0)
        done = refused(path, errno);
    else if (state.st_uid != geteuid())
        done = refused(path, "it belongs to another user");
    else if ((state.st_mode & 07777) != 0700 && fchmod(descriptor, 0700) != 0)
        done = refused(path, errno);
    (void)close(descriptor);
    if (done && faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) !=
                    0) // of a file system that is mounted read-only
        done = refused(path, errno);
    return done;
}

Result<std::string> directoryIn(const std::string &place, const std::string &part)
{
    if (!place.starts_with('/'))
        return refused(place, "it is no absolute path");
    if (!makeDirectories(place))
        return refused(place, errno);
    ARCA_TRY(const std::string real, resolved(place));
    ARCA_CHECK(checkPlace(real));
    std::string path = real + "/" + part;
    ARCA_CHECK(claim(path));
    return path;
}

} // namespace

HostCache HostCache::in(const std::vector<std::string> &places, const std::string &part)
{
    HostCache cache;
    for (const std::string &place : places) {
        auto found = directoryIn(place, part);
        if (found) {
            cache.directory_ = std::move(found).value();
            cache.whyNone_.clear();
            break;
        }
        if (cache.whyNone_.empty())
            cache.whyNone_ = std::move(found).error().text;
    }
    return cache;
}

} // namespace arca
