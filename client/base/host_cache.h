// A directory of this host for what can be made again from a repository. It lies outside the
// repository: what is in it is trusted no more than any other file of the operating-system user.
// A value; any thread may use one of its own.
#ifndef KEEL_CLIENT_BASE_HOST_CACHE_H
#define KEEL_CLIENT_BASE_HOST_CACHE_H

#include <string>
#include <vector>

namespace arca
{

class HostCache
{
public:
    /// No directory, for no reason that is worth telling: everything is done without.
    HostCache() = default;

    /// The directory `part` in the first of `places` (absolute paths) where it can be used; both
    /// are made with mode 0700 if need be, with the directories above a place. It must belong to
    /// this user, and its mode becomes 0700; the place must belong to this user or to root, and
    /// nobody else may be able to replace what is in it. `part` itself is never reached through a
    /// link. Where no place will do, there is no directory, and whyNone() says what is wrong with
    /// the first.
    static HostCache in(const std::vector<std::string> &places, const std::string &part);

    bool exists() const { return !directory_.empty(); }
    /// An absolute path without links; empty: there is none.
    const std::string &directory() const { return directory_; }
    /// A sentence; empty when there is a directory, or none was wanted.
    const std::string &whyNone() const { return whyNone_; }

private:
    std::string directory_;
    std::string whyNone_;
};

} // namespace arca

#endif
