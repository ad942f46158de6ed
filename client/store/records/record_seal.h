// Proof of who wrote a record, and for which place: a digest under a key.
//
// A small record is no secret, but it says where a piece lies or what it means, so one that was
// written without the key, or copied from another place, must be refused. What is proven is the
// place (the whole name of the blob), the kind, the version and the payload. An earlier state of
// the same place that is put back while the later ones are removed is not noticed.
//
// A keyed record is an envelope (client/store/records/record.h) like any other; bit 31 of its
// version is set, and its payload ends with the digest, which its length includes:
//
//   HMAC-SHA-256(record key, place | kind | version without bit 31 | payload without the digest)
//
// place as a 16-bit length and as many bytes, version as 4 bytes.
//
// Repositories of layout 4 have keyed records only. In one of an earlier layout records are written
// as the older releases read them, which may be at work there, too; both forms are read.
#ifndef KEEL_CLIENT_STORE_RECORDS_RECORD_SEAL_H
#define KEEL_CLIENT_STORE_RECORDS_RECORD_SEAL_H

#include "client/base/bytes.h"
#include "client/base/result.h"
#include "client/engine/duplicates/domain.h"

#include <string_view>

namespace arca::store
{

/// Makes and checks the proof of records. A value that refers to a key: the key's owner must
/// outlive it. Any thread may use it.
class RecordSeal
{
public:
    /// Without a key: nothing is proven. Plain records are written, and of keyed ones the payload
    /// is taken as it stands. For records of nodes, and for looking at those of others.
    RecordSeal() = default;
    RecordSeal(const SecretKey &key, engine::RecordForm form) : key_(&key), form_(form) {}
    /// Of the records of a node.
    explicit RecordSeal(const engine::Domain &domain)
        : RecordSeal(domain.recordKey(), domain.recordForm())
    {
    }

    /// Returns `record`, an envelope of frameRecord(), as it is stored at `place`.
    Result<Bytes> seal(std::string_view place, Bytes record) const;

    struct Opened {
        Bytes record; // the envelope that seal() was given
        bool proven;  // its digest was there and is right
    };
    /// Returns what stands at `place`. Errors: damaged. The envelope's own checksum, kind and
    /// version are left to unframeRecord().
    Result<Opened> open(std::string_view place, Bytes stored) const;

    /// Returns true when a record without a digest is refused.
    bool provesAll() const { return key_ && form_ == engine::RecordForm::keyed && !readsPlain_; }
    /// The same seal, which also opens plain records; the caller looks at `proven`.
    RecordSeal lenient() const;

private:
    Result<Bytes> digestOf(std::string_view place, ByteView record) const;

    const SecretKey *key_ = nullptr;
    engine::RecordForm form_ = engine::RecordForm::plain;
    bool readsPlain_ = false;
};

} // namespace arca::store

#endif
