// What lies in tmp/: the files of living writers, and those of dead ones.
#include "client/blob/directory/directory_store.h"
#include "client/blob/temporary_name.h"

namespace arca::blob
{

Result<std::vector<std::string>> DirectoryStore::namesIn(const char *directory)
{
    std::vector<std::string> found;
    auto listed = files_.list(pathOf(directory), [&](const std::string &entry) {
        found.push_back(entry);
        return true;
    });
    if (!listed && listed.error().kind != ErrorKind::notFound)
        return std::move(listed).error();
    return found;
}

Result<void> DirectoryStore::removeLeftovers()
{
    ARCA_TRY(const auto found, namesIn("tmp"));
    for (const std::string &entry : found) {
        if (!isTemporaryName(entry) || ownedByThisProcess(entry))
            continue;
        // Its writer may end, or another cleaner come first, at any moment: neither is a failure.
        const std::string owner = lockedFor(entry);
        auto file = files_.openForLocking(pathOf("tmp/" + owner), false);
        const bool isOrphan = !file && file.error().kind == ErrorKind::notFound && owner != entry;
        if (!file && !isOrphan)
            continue;
        const auto locked = file ? (*file)->lock() : Result<bool>(true);
        // Of what is parked, only the claim was seen to be a regular file.
        if (locked && *locked && (owner == entry || files_.open(pathOf("tmp/" + entry))))
            (void)files_.unlink(pathOf("tmp/" + entry));
    }
    return {};
}

Result<std::set<std::string>> DirectoryStore::livingWriters(const std::string &whose)
{
    ARCA_TRY(const std::string owner, ownerDigits(whose));
    ARCA_TRY(const auto found, namesIn("tmp"));
    std::set<std::string> living;
    for (const std::string &entry : found) {
        if (!isTemporaryName(entry) || lockedFor(entry) != entry)
            continue; // the claim stands for what is parked
        if (!mayCountFor(entry, owner))
            continue;
        auto file = files_.openForLocking(pathOf("tmp/" + entry), false);
        if (!file && file.error().kind == ErrorKind::notFound)
            continue;
        ARCA_TRY(const auto opened, std::move(file));
        // A writer that is only about to lock its new file finds it locked, and takes another one:
        // it began after us.
        ARCA_TRY(const bool dead, opened->lock());
        if (!dead || ownedByThisProcess(entry))
            living.insert(entry);
    }
    return living;
}

} // namespace arca::blob
