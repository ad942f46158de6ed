// Where a path leads, so that no symbolic link below a repository's root is ever followed: one that
// lies there by mistake or malice would lead out of the repository, and files would be removed or
// cut that are not the repository's.
#ifndef KEEL_CLIENT_BLOB_FILES_PLACE_H
#define KEEL_CLIENT_BLOB_FILES_PLACE_H

#include "client/base/result.h"

#include <string>

namespace arca::blob
{

/// The directory that holds the last component of a path, opened, and that component: a pair for
/// openat(2) and its like. Below a root every component on the way is opened by itself, and must be
/// a directory. Closes the directory; a child that is forked meanwhile keeps it open, which locks
/// nothing.
class Place
{
public:
    /// `root` is empty, and links are followed as open(2) does; or it is an absolute path, which
    /// may lead through links, and `path` is the root itself or lies below. `action` is for errors,
    /// as in "opening". Errors: notFound, denied, io (a link is on the way).
    static Result<Place> find(const std::string &root, const std::string &path, const char *action);

    Place(Place &&other) noexcept;
    Place &operator=(Place &&) = delete;
    ~Place();

    int directory() const { return directory_; }
    const char *name() const { return name_.c_str(); }
    /// O_NOFOLLOW where the last component must not be followed, or 0.
    int noFollow() const;
    /// AT_SYMLINK_NOFOLLOW in the same way.
    int noFollowAt() const;
    /// Returns the error of a call on this place that failed with `number`. It says so when the
    /// last component is a link that was not followed; `kind` is for that.
    Error failure(int number, const char *action, const std::string &path, ErrorKind kind) const;

private:
    Place(int directory, bool follows) : directory_(directory), follows_(follows) {}
    Result<void> descend(const std::string &path, std::size_t at, const char *action);

    int directory_;
    bool follows_;
    std::string name_;
};

} // namespace arca::blob

#endif
