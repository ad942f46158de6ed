// What is kept back in reserve/ for work that frees space: space, and names where the number of
// files is limited.
//
//   reserve/1 .. 6    4 MiB each
//   reserve/7 .. 54   empty: each keeps an inode
#include "client/blob/directory/directory_store.h"

#include <algorithm>
#include <sys/statvfs.h>

namespace arca::blob
{

namespace
{

/// Together as much as rewriting half a pack takes, and then some for records. In several files, as
/// a writer of that moment may take what was given up.
constexpr int kLargeFiles = 6;
constexpr std::uint64_t kLargeBytes = std::uint64_t{4} << 20;
/// A removal makes half a dozen files and directories, and a reclaiming a dozen.
constexpr int kEmptyFiles = 48;

/// What a file system has left that refuses a file. A guess: of quotas it tells nothing.
struct Left {
    bool space = true, inodes = true;
};

Left leftOf(const std::string &directory)
{
    struct statvfs system = {};
    if (::statvfs(directory.c_str(), &system) != 0)
        return {};
    return {system.f_bavail > kLargeBytes / std::max(system.f_frsize, 1UL),
            system.f_files == 0 || system.f_favail != 0};
}

} // namespace

void DirectoryStore::keepReserve()
{
    const auto found = namesIn("reserve");
    bool made = false;
    for (int n = 1; found && n <= kLargeFiles + kEmptyFiles; ++n) {
        const std::string name = "reserve/" + std::to_string(n);
        if (std::ranges::count(*found, std::to_string(n)) != 0)
            continue;
        if (n > kLargeFiles) {
            if (!ensureDirectory("reserve") || !files_.create(pathOf(name)))
                break;
            made = true;
            continue;
        }
        const auto writer = beginWriter({});
        if (!writer || !(*writer)->allocate(kLargeBytes) || !(*writer)->commit(name, Unsure::leave))
            return;
    }
    if (made)
        (void)files_.syncDirectory(pathOf("reserve"));
}

bool DirectoryStore::giveUpReserve()
{
    const Left left = leftOf(root_);
    const bool emptyFirst = left.space && !left.inodes;
    constexpr int kAll = kLargeFiles + kEmptyFiles;
    // Without space, an inode is of no use.
    for (int i = 1; i <= (left.space ? kAll : kLargeFiles); ++i) {
        const int n = emptyFirst ? kAll + 1 - i : i;
        const std::string name = pathOf("reserve/" + std::to_string(n));
        // Another process may have been quicker; and what is no file was not put there by us.
        if (!files_.open(name) || !files_.unlink(name))
            continue;
        // Some file systems free what was removed only with that.
        (void)files_.syncDirectory(pathOf("reserve"));
        return true;
    }
    return false;
}

} // namespace arca::blob
