// What the streams of one node share: its keys, its packs, and what this host remembers of them. A
// block is found again in all of a node's pieces and in no other node's. Any thread may use it; it
// must not outlive the blob store.
#ifndef KEEL_CLIENT_ENGINE_DUPLICATES_DOMAIN_H
#define KEEL_CLIENT_ENGINE_DUPLICATES_DOMAIN_H

#include "client/base/crypto/secret_key.h"
#include "client/base/local/host_cache.h"
#include "client/base/thread.h"
#include "client/engine/duplicates/hint_catalogue.h"
#include "client/engine/packs/pack_store.h"

#include <atomic>
#include <mutex>

namespace arca::engine
{

/// How the small records of a repository are written: client/store/records/record_seal.h. The
/// engine reads none; it only keeps the key that proves them.
enum class RecordForm {
    plain, // without a digest; both forms are read
    keyed, // with a digest; a record without one is `damaged`
};

class Domain
{
public:
    /// Ends the thread that fills the hints, if there is one.
    ~Domain();

    /// `nodeKey`: the component of blob names that stands for what the node keeps. Derives keys
    /// only: it reads nothing, and a wrong `dataKey` is not noticed.
    static Result<std::unique_ptr<Domain>> open(blob::BlobStore &blobs, std::string nodeKey,
                                                const SecretKey &dataKey, RecordForm records,
                                                HostCache cache = {});

    blob::BlobStore &blobs() const { return blobs_; }
    /// Begins a blob, or a claim, that counts for this domain alone: reclaiming in another one does
    /// not wait for it.
    Result<std::unique_ptr<blob::BlobWriter>> beginBlob() const { return blobs_.begin(nodeKey_); }
    const std::string &nodeKey() const { return nodeKey_; }
    const HostCache &cache() const { return cache_; }
    const PackStore &packs() const { return packs_; }
    const BlockHasher &identify() const { return hasher_; }
    const SecretKey &manifestKey() const { return keys_.manifests; }
    const SecretKey &nameKey() const { return keys_.names; }
    const SecretKey &recordKey() const { return keys_.records; }
    RecordForm recordForm() const { return recordForm_; }

    /// Returns the hints, which live as long as the domain. They are opened when they are first
    /// needed, and compared with the packs that are there if that was not done for an hour: at once
    /// when little is new, else on a thread that goes on beside the streams, so that none waits for
    /// it. What that thread has not come to is found again by the next session. Call it on a thread
    /// of ours: SIGXFSZ must not be delivered to a host thread.
    HintCatalogue &hints();

private:
    struct Keys {
        SecretKey blocks;
        SecretKey packs;
        SecretKey manifests;
        SecretKey names;
        SecretKey records;
    };
    Domain(blob::BlobStore &blobs, std::string nodeKey, Keys keys, RecordForm records,
           HostCache cache);
    void beginComparing();
    enum class Much { some, all };
    bool compareHints(Much much) const;

    blob::BlobStore &blobs_;
    const std::string nodeKey_;
    const Keys keys_;
    const RecordForm recordForm_;
    const HostCache cache_;
    const PackStore packs_;
    const BlockHasher hasher_;
    std::mutex mutex_; // guards the making of hints_
    std::unique_ptr<HintCatalogue> hints_;
    std::atomic<bool> ending_ = false;
    std::unique_ptr<Thread> comparing_;
};

} // namespace arca::engine

#endif
