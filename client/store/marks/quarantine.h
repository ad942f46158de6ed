// What is damaged and in the way is set aside here, by name, so that everything else goes on:
//
//   quarantine/<node key>/<digest>.<place>-<last part of its name>   a manifest, byte for byte
//   quarantine/<node key>/<digest>.packs                             the packs that it may need
//
// The digest (XXH3-128, 32 digits) is that of the manifest's bytes as they are.
//
//   1. Nothing tells what a damaged manifest needs. But a manifest refers only to packs that were
//      durable before it was published. So the packs that are there when it is first found damaged
//      include all that it may need, and a pack that is not among them may go. That list is put
//      once for the manifest's very bytes, wherever it lies; it needs no clock.
//   2. A list that cannot be read holds every pack.
//   3. A manifest is copied here, with its list, before it leaves its place.
//   4. Nothing leaves the quarantine by itself: repairing brings back what can be read after all,
//      and a person gives up the rest by name.
//   5. Setting aside and bringing back may be at one manifest at once. Each sees to it that the
//      other place has it, removes it from the first, and then looks at the other place again: when
//      it is gone there, it is put there once more, from what is still open. So the process that
//      removes last leaves it in one place, in whatever order they come. They exclude each other by
//      the lock of changes, so that one that dies within has harmed nothing.
//
// The list of packs: the envelope of a record (record.h), but as long as it must be; kind
// "ARCAHELD", version 1: identifiers of packs, 16 bytes each.
#ifndef KEEL_CLIENT_STORE_MARKS_QUARANTINE_H
#define KEEL_CLIENT_STORE_MARKS_QUARANTINE_H

#include "client/engine/duplicates/domain.h"

#include <set>
#include <string>
#include <vector>

namespace arca::store
{

Bytes encodeHeldPacks(const std::set<engine::PackId> &packs);
/// Errors: damaged, newerFormat.
Result<std::set<engine::PackId>> decodeHeldPacks(ByteView bytes);

/// The quarantine of one node. One thread uses it at a time; it takes no lock.
class Quarantine
{
public:
    explicit Quarantine(const engine::Domain &domain)
        : blobs_(domain.blobs()), packs_(domain.packs()),
          prefix_("quarantine/" + domain.nodeKey() + "/")
    {
    }

    const std::string &prefix() const { return prefix_; }
    /// Returns true for the name of a manifest that was set aside, there or not.
    bool isManifest(std::string_view blobName) const;

    /// Moves a damaged manifest here, durably, and returns its new name. `judged` is the reader in
    /// which the caller found it damaged: only that very blob is moved, never a sound one that came
    /// under its name meanwhile. The caller holds the lock of changes. Errors: notFound when it is
    /// gone or another blob has its name by now; after any error the manifest is in its place, or
    /// here.
    Result<std::string> setAside(const std::string &blobName, blob::BlobReader &judged);

    /// Returns the packs that a damaged manifest may need; every pack when its list is damaged.
    /// With `write` the list is kept, durably; without, and when there is none yet, it is made for
    /// this once.
    Result<std::set<engine::PackId>> packsHeldFor(blob::BlobReader &manifest, bool write);

    /// Returns every pack that is there.
    Result<std::set<engine::PackId>> packsNow() const;

    /// Puts a manifest here under `name`, a whole blob name, durably and with its list, unless it
    /// is here. Errors: io when it reads differently each time; then the blob `name` may be a wrong
    /// copy.
    Result<void> keep(const std::string &name, blob::BlobReader &manifest);

    /// Deletes a manifest that was set aside for good, and its list unless another place's manifest
    /// of the same bytes needs it. Errors: notFound, also for a name that isManifest() refuses.
    Result<void> giveUp(const std::string &blobName);

private:
    Result<std::string> digestOf(blob::BlobReader &blob) const;
    Result<bool> has(const std::string &name) const;
    Result<void> remove(const std::string &blobName);

    blob::BlobStore &blobs_;
    const engine::PackStore &packs_;
    const std::string prefix_;
};

} // namespace arca::store

#endif
