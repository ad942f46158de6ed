// What is proven of a blob: of a record its form and its place, of a pack that it is whole, of a
// piece that every byte of it leads to a block that is there; with `readData` that each byte is the
// one that was stored. One thread uses it at a time.
#ifndef KEEL_CLIENT_STORE_UPKEEP_BLOB_PROOF_H
#define KEEL_CLIENT_STORE_UPKEEP_BLOB_PROOF_H

#include "client/engine/mending/pack_check.h"
#include "client/store/marks/damage.h"
#include "client/store/records/record_forms.h"
#include "client/store/records/record_seal.h"
#include "client/store/upkeep/verify_report.h"

namespace arca::store
{

class BlobProof
{
public:
    /// All must outlive it. `shared` proves the records that all nodes share. `isOut` says that no
    /// more time may be spent on the piece that is read.
    BlobProof(NodeSpace &space, bool readData, const RecordSeal &shared, VerifyReport &report,
              std::function<bool()> isOut)
        : space_(space), blobs_(space.domain().blobs()), packs_(space.domain().packs()),
          damage_(space.domain()), readData_(readData), shared_(shared), report_(report),
          isOut_(std::move(isOut))
    {
    }

    /// Returns success for a sound blob, and after wasCutShort(). Fails with what is wrong with the
    /// blob, also when it was removed meanwhile: the caller looks whether it is there. Damaged
    /// parts of packs are recorded, as far as anything can be written, and those that were found
    /// right go.
    Result<void> prove(const std::string &blobName, Checked what);
    /// Returns true when the last proof was given up because `isOut` said so: nothing is known
    /// then.
    bool wasCutShort() const { return cutShort_; }

private:
    Result<void> proveRecord(const std::string &blobName);
    Result<void> proveLog(const std::string &blobName);
    Result<void> proveNode(ByteView bytes);
    bool isOwn(const RecordForm &form, const std::string &blobName) const;
    Result<void> proveFilespace(const std::string &blobName, Bytes stored);
    Result<void> proveRule(const std::string &blobName);
    Result<void> proveDamage(const std::string &blobName, ByteView bytes);
    Result<void> provePack(const std::string &blobName);
    Result<std::size_t> settleKnown(const engine::PackName &pack,
                                    const engine::PackFindings &found);
    void record(const engine::DamagedPart &part, const std::string &reason);
    Result<void> provePiece(const std::string &blobName);
    Result<void> proveFilespaceOf(const Manifest &manifest);
    Result<void> proveRuns(blob::BlobReader &blob, const Manifest &manifest);
    Result<void> proveStream(blob::BlobReader &blob, const Manifest &manifest);

    NodeSpace &space_;
    blob::BlobStore &blobs_;
    const engine::PackStore &packs_;
    DamageRecords damage_;
    const bool readData_;
    const RecordSeal shared_;
    VerifyReport &report_;
    const std::function<bool()> isOut_;
    bool cutShort_ = false; // the time ran out within a piece
};

} // namespace arca::store

#endif
