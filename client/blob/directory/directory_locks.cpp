// The locks of a directory store: files in locks/, which stay, and say who holds them.
#include "client/blob/directory/directory_store.h"

#include "client/blob/directory/lock_wait.h"

namespace arca::blob
{

namespace
{

class DirectoryLock final : public BlobLock
{
public:
    explicit DirectoryLock(std::unique_ptr<File> locked) : file_(std::move(locked)) {}
    /// What it said of its holder would be wrong from now on.
    ~DirectoryLock() override { file_->setNote({}); }

private:
    std::unique_ptr<File> file_;
};

} // namespace

/// Work that frees space takes locks, so a full disk must not keep them away.
Result<std::unique_ptr<File>> DirectoryStore::openLock(const std::string &name)
{
    return withReserve(*this, [&]() -> Result<std::unique_ptr<File>> {
        ARCA_CHECK(ensureDirectory("locks"));
        return files_.openForLocking(pathOf("locks/" + name), true);
    });
}

Result<std::unique_ptr<BlobLock>> DirectoryStore::tryLock(const std::string &name,
                                                          const std::string &doing)
{
    ARCA_TRY(auto file, openLock(name));
    ARCA_TRY(const bool mine, file->lock());
    if (!mine)
        return std::unique_ptr<BlobLock>();
    file->setNote(lockNote(doing));
    return std::unique_ptr<BlobLock>(std::make_unique<DirectoryLock>(std::move(file)));
}

Result<std::unique_ptr<BlobLock>> DirectoryStore::lock(const std::string &name,
                                                       const std::string &doing)
{
    return waitForLock<BlobLock>([&] { return tryLock(name, doing); }, [&] { return heldBy(name); },
                                 patience_);
}

std::string DirectoryStore::holderOf(const std::string &lock)
{
    const auto file = openLock(lock);
    return file ? holderOfLock(**file) : holderOfLock();
}

Error DirectoryStore::heldBy(const std::string &name)
{
    return {ErrorKind::conflict,
            "the lock " + pathOf("locks/" + name) + " is held by " + holderOf(name) +
                " and did not come free; try again later, or end that process"};
}

/// Locks keep the removals of one node apart, and those of others out of their way.
Result<std::vector<std::unique_ptr<BlobLock>>> DirectoryStore::lockRemoval(const std::string &name)
{
    std::vector<std::unique_ptr<BlobLock>> locks;
    const auto first = name.find('/');
    const auto second = first == std::string::npos ? first : name.find('/', first + 1);
    const std::string under =
        second == std::string::npos ? "others" : name.substr(first + 1, second - first - 1);
    ARCA_TRY(auto own, lock("remove-" + under, "removing a blob"));
    locks.push_back(std::move(own));
    // Only releases that have one lock for all nodes make this file, and may be at work.
    if (files_.openForLocking(pathOf("locks/remove"), false)) {
        ARCA_TRY(auto all, lock("remove", "removing a blob"));
        locks.push_back(std::move(all));
    }
    return locks;
}

} // namespace arca::blob
