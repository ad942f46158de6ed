// The blob store in a local directory.
//
//   ROOT/<name>              a blob: complete, synced, never changed
//   ROOT/tmp/<pid>-<random>  a blob being written; its writer holds a lock on it while it lives;
//                            temporary_name.h has the forms of its name
//   ROOT/tmp/<pid>-<random>.<random>
//                            a finished blob that is parked: who holds the lock on the file of the
//                            name before the dot commits it, or gives it up
//   ROOT/locks/<name>        a lock, and who holds it: "<process> <since> <host> <doing>"
//   ROOT/locks/remove-<...>  held while a blob is removed, by the second component of its name
//   ROOT/reserve/<n>         space, and inodes, kept back, which work that frees space gives up on
//   a
//                            full disk
//   ROOT/cache/              of an earlier release: what a host could make again; left alone
//
// A file in tmp that can be locked has no writer any more and is removed, and so is what is parked
// under such a file, or under none. Directories appear as they are needed and are never removed. No
// symbolic link below ROOT is followed: a listing names it as if it were a blob, open() answers
// `damaged`, and all else `io`.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_STORE_H
#define KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_STORE_H

#include "client/blob/blob_store.h"
#include "client/blob/directory/directory_writer.h"
#include "client/blob/files/file_layer.h"
#include "client/blob/linking_store.h"
#include "client/blob/lock_holder.h"
#include "client/blob/syncing_store.h"

#include <chrono>
#include <mutex>
#include <set>

namespace arca::blob
{

class DirectoryStore final : public BlobStore,
                             public LinkingStore,
                             public SyncingStore,
                             public NamesHolders,
                             private WritersStore
{
public:
    /// `root` is an absolute path of an existing directory, and may lead through symbolic links;
    /// below it none is followed. `patience`: how long a lock is waited for.
    explicit DirectoryStore(std::string root, std::chrono::milliseconds patience = kPatience);
    /// The same over a layer that leads to `root`, and must outlive the store.
    DirectoryStore(std::string root, FileLayer &files,
                   std::chrono::milliseconds patience = kPatience);
    ~DirectoryStore() override;

    Result<std::unique_ptr<BlobWriter>> begin(const std::string &whose = {}) override;
    Result<std::unique_ptr<BlobReader>> open(const std::string &name) override;
    Result<void> list(const std::string &prefix,
                      const std::function<bool(const std::string &)> &visit) override;
    Result<void>
    listStamped(const std::string &prefix,
                const std::function<bool(const std::string &, std::uint64_t)> &visit) override;
    Result<bool> link(const std::string &from, BlobReader &opened, const std::string &to) override;
    Result<void> remove(const std::string &name, BlobReader &opened) override;
    Result<void> sync(const std::string &name) override;
    Result<void> syncListed(const std::string &prefix) override;
    Result<void> removeLeftovers() override;
    /// A file in locks/, which stays.
    Result<std::unique_ptr<BlobLock>> tryLock(const std::string &name,
                                              const std::string &doing) override;
    Result<std::unique_ptr<BlobLock>> lock(const std::string &name,
                                           const std::string &doing) override;
    std::string holderOf(const std::string &lock) override;
    Result<std::set<std::string>> livingWriters(const std::string &whose = {}) override;
    /// Of the files in reserve/, those that are missing are made.
    void keepReserve() override;
    bool giveUpReserve() override;

    /// Longer than any work under a lock takes as a rule; whoever is kept waiting for that long
    /// waits for a process that is stopped.
    static constexpr std::chrono::milliseconds kPatience = std::chrono::minutes(3);

private:
    Result<std::vector<std::string>> namesIn(const char *directory);
    Result<std::unique_ptr<File>> openLock(const std::string &name);
    Error heldBy(const std::string &name);
    Result<std::vector<std::unique_ptr<BlobLock>>> lockRemoval(const std::string &name);
    Result<std::unique_ptr<DirectoryWriter>> beginWriter(const std::string &whose);
    Result<void> publish(const std::string &temporary, const std::string &name, File &written,
                         Unsure unsure) override;
    void takeBack(const std::string &name, File &written);
    bool leadsTo(const std::string &name, File &file);
    Error afterSync(const std::string &name, Error found);
    Result<void> ensureDirectory(const std::string &relative);
    Result<void> walk(const std::string &prefix, bool stamped,
                      const std::function<bool(const std::string &, std::uint64_t)> &visit);
    FileLayer &files() override { return files_; }
    std::string pathOf(const std::string &name) const override { return root_ + "/" + name; }

    const std::string root_;
    const std::unique_ptr<FileLayer> own_; // null: the layer is the caller's
    FileLayer &files_;
    const std::chrono::milliseconds patience_;

    std::mutex mutex_;
    std::set<std::string> durable_; // guarded by mutex_: directories known to survive power loss
};

} // namespace arca::blob

#endif
