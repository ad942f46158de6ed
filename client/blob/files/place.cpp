// Opening the directories on the way: see the header.
#include "client/blob/files/place.h"

#include "client/base/descriptor.h"
#include "client/blob/files/file_layer.h"
#include "client/blob/files/retried.h"

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif

namespace arca::blob
{

namespace
{

/// Opens a directory to search it, nothing more.
int openOnTheWay(int directory, const char *name, int noFollow)
{
#ifdef O_PATH
    // What the host prints meanwhile cannot reach it, so no number has to be held.
    return moveAbove(retried(
        [&] { return ::openat(directory, name, O_PATH | O_DIRECTORY | O_CLOEXEC | noFollow); }));
#else
    return openAboveAt(directory, name, O_RDONLY | O_DIRECTORY | noFollow);
#endif
}

/// The same for a path of several components in one call, where the system has such a call. What
/// it refuses is opened component by component, which tells the reason.
int openAllOnTheWay([[maybe_unused]] int directory, [[maybe_unused]] const char *path)
{
#if defined(SYS_openat2) && defined(RESOLVE_NO_SYMLINKS) && defined(O_PATH)
    static std::atomic<bool> isMissing = false;
    if (isMissing)
        return -1;
    open_how how = {};
    how.flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
    const auto opened =
        retried([&] { return ::syscall(SYS_openat2, directory, path, &how, sizeof how); });
    if (opened < 0 && errno == ENOSYS)
        isMissing = true;
    return moveAbove(static_cast<int>(opened));
#else
    return -1;
#endif
}

/// Systems differ in what they call a link that is not followed.
bool mayBeLink(int number)
{
    return number == ELOOP || number == ENOTDIR || number == EMLINK;
}

bool isLink(int directory, const char *name)
{
    struct stat found;
    return fstatat(directory, name, &found, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(found.st_mode);
}

Error linkError(ErrorKind kind, const char *action, const std::string &path,
                const std::string &link)
{
    const std::string which = link == path ? "it" : link;
    return {kind, action + (" " + path) + ": " + which +
                      " is a symbolic link, and none is followed inside a repository; remove the "
                      "link and put the " +
                      (link == path ? "file or directory" : "directory") + " itself there"};
}

} // namespace

Place::Place(Place &&other) noexcept
    : directory_(std::exchange(other.directory_, -1)), follows_(other.follows_),
      name_(std::move(other.name_))
{
}

Place::~Place()
{
    if (directory_ >= 0)
        (void)close(directory_);
}

int Place::noFollow() const
{
    return follows_ ? 0 : O_NOFOLLOW;
}

int Place::noFollowAt() const
{
    return follows_ ? 0 : AT_SYMLINK_NOFOLLOW;
}

Error Place::failure(int number, const char *action, const std::string &path, ErrorKind kind) const
{
    if (!follows_ && mayBeLink(number) && isLink(directory_, name()))
        return linkError(kind, action, path, path);
    return fromErrno(number, action, path);
}

Result<Place> Place::find(const std::string &root, const std::string &path, const char *action)
{
    if (root.empty()) {
        Place place(AT_FDCWD, true);
        place.name_ = path;
        return place;
    }
    if (!path.starts_with(root) || (path.size() > root.size() && path[root.size()] != '/'))
        return Error{ErrorKind::internal, path + " does not lie in " + root};
    Place place(openOnTheWay(AT_FDCWD, root.c_str(), 0), false);
    if (place.directory_ < 0)
        return fromErrno(errno, action, path);
    const std::size_t begin = root.size() + 1, last = path.rfind('/');
    bool isOpen = false;
    if (begin < last && last + 1 < path.size()) {
        const int parent =
            openAllOnTheWay(place.directory_, path.substr(begin, last - begin).c_str());
        isOpen = parent >= 0;
        if (isOpen)
            (void)close(std::exchange(place.directory_, parent));
    }
    ARCA_CHECK(place.descend(path, isOpen ? last : root.size(), action));
    return place;
}

/// Goes from the character `at` of the path on, and stops before its last component.
Result<void> Place::descend(const std::string &path, std::size_t at, const char *action)
{
    while (at < path.size()) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty())
            continue;
        if (part == "..")
            return Error{ErrorKind::internal, path + " leads out of its repository"};
        if (!name_.empty()) { // it turns out not to be the last one
            const int next = openOnTheWay(directory_, name(), O_NOFOLLOW);
            const int number = errno;
            if (next < 0 && mayBeLink(number) && isLink(directory_, name()))
                return linkError(ErrorKind::io, action, path,
                                 path.substr(0, end - part.size() - 1));
            if (next < 0)
                return fromErrno(number, action, path);
            (void)close(std::exchange(directory_, next));
        }
        name_ = part;
    }
    if (name_.empty())
        name_ = ".";
    return {};
}

} // namespace arca::blob
