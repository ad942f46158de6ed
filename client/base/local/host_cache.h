// A directory of this host for what can be made again from a repository. It lies outside the
// repository: its content is trusted no more than any other file of the operating-system user.
// A value that holds only the path; each thread uses a copy of its own.
#ifndef KEEL_CLIENT_BASE_LOCAL_HOST_CACHE_H
#define KEEL_CLIENT_BASE_LOCAL_HOST_CACHE_H

#include <string>
#include <vector>

namespace arca
{

class HostCache
{
public:
    /// No directory, and none was wanted: whyNone() is empty, and everything is done without.
    HostCache() = default;

    /// Returns the directory `part` in the first of `places` (absolute paths) where it can be used.
    /// A place, the directories above it and `part` are made with mode 0700 when they are not
    /// there. `part` must belong to the effective user, and its mode becomes 0700; the place must
    /// belong to that user or to root, and no other user may be able to replace what is in it.
    /// `part` itself is never reached through a link. When no place will do, the result has no
    /// directory, and whyNone() says what is wrong with the first; directories that were made
    /// stay. Throws only std::bad_alloc.
    static HostCache in(const std::vector<std::string> &places, const std::string &part);

    bool exists() const { return !directory_.empty(); }
    /// An absolute path without links; empty when there is no directory.
    const std::string &directory() const { return directory_; }
    /// A sentence; empty when there is a directory, or none was wanted.
    const std::string &whyNone() const { return whyNone_; }

private:
    std::string directory_;
    std::string whyNone_;
};

} // namespace arca

#endif
