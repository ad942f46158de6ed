// A repository: a blob store with a format marker, the nodes it knows, and what they keep. Any
// number of processes may have it open; one thread at a time uses an object of this class.
#ifndef KEEL_CLIENT_STORE_NODES_REPOSITORY_H
#define KEEL_CLIENT_STORE_NODES_REPOSITORY_H

#include "client/store/marks/grace.h"
#include "client/store/nodes/node_registry.h"
#include "client/store/nodes/policy.h"
#include "client/store/space/node_space.h"

#include <memory>
#include <string>

namespace arca::store
{

class Repository
{
public:
    /// Opens a repository that is there; it is never made. `location` as the option REPOSITORY has
    /// it; `shownName`: what messages call it. Errors: badOption for a location that is none,
    /// noRepository, olderFormat, newerFormat, damaged.
    static Result<std::unique_ptr<Repository>> open(const std::string &location);
    static Result<std::unique_ptr<Repository>> open(std::unique_ptr<blob::BlobStore> store,
                                                    const std::string &shownName);

    /// Makes a repository in a new or empty directory, durably. After another error than exists
    /// there may be one: open() it and call writeDefaults(). Errors: exists when there is something
    /// already.
    static Result<std::unique_ptr<Repository>> create(const std::string &location);
    static Result<std::unique_ptr<Repository>> create(std::unique_ptr<blob::BlobStore> store,
                                                      const std::string &shownName);

    /// Writes durably what each repository has from its beginning (defaults.h), where it is not
    /// written: after a create() that was interrupted, or in a repository of an older release.
    Result<void> writeDefaults();

    /// 32 hexadecimal digits that no other repository has.
    const std::string &uuid() const { return uuid_; }
    /// Returns true when pieces may be made inactive. In a repository of layout 2 they may not: a
    /// release that knows no inactive pieces could be reclaiming space there.
    bool takesInactive() const { return layout_ >= 3; }
    /// How records are written here. Releases that know no digests refuse a repository with them.
    engine::RecordForm recordForm() const
    {
        return layout_ >= 4 ? engine::RecordForm::keyed : engine::RecordForm::plain;
    }
    /// What to call it in a message.
    const std::string &shownName() const { return shownName_; }

    /// Proves the records that all nodes share. Neither it nor what the next three return may
    /// outlive the repository.
    RecordSeal sharedSeal() const { return RecordSeal(classKey_, recordForm()); }
    GraceTime grace() { return {*store_, sharedSeal()}; }
    Policy policy() { return {*store_, sharedSeal()}; }
    NodeRegistry nodes() { return NodeRegistry(*store_, layout_); }
    /// Returns the keys of a node that proves who it is. Errors: as NodeRegistry::authenticate().
    Result<NodeKeys> authenticate(const std::string &node, std::string_view password);
    /// Returns the part of a node that proves who it is. Errors: the same.
    Result<std::unique_ptr<NodeSpace>> logOn(const std::string &node, std::string_view password);

    /// Sets where this host keeps what can be made again from the repository, for the node spaces
    /// that are opened from then on. Without it they use temporary files and memory.
    void use(HostCache cache) { cache_ = std::move(cache); }
    const HostCache &cache() const { return cache_; }

    /// Returns the part of a node whose data key is known; the key is not checked. When another
    /// node logged on for it, the caller lets through what is granted.
    Result<std::unique_ptr<NodeSpace>> spaceOf(const std::string &node, SecretKey dataKey,
                                               std::uint32_t incarnation);

    blob::BlobStore &blobs() { return *store_; }

private:
    Repository(std::unique_ptr<blob::BlobStore> store, std::string shownName, std::string uuid,
               std::uint32_t layout, SecretKey classKey);

    std::unique_ptr<blob::BlobStore> store_;
    std::string shownName_;
    std::string uuid_;
    std::uint32_t layout_;
    SecretKey classKey_; // no secret: of the identifier
    HostCache cache_;
};

} // namespace arca::store

#endif
