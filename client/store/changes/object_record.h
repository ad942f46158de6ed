// What became of a piece after it was stored. The piece itself never changes; most have no such
// record, and then everything is as the piece says.
//
//   objects/<node key>/<identifier: 16 digits>/<number>   the numbered record of a piece
//
// A record outlives its piece when the piece was removed (until it is purged), renamed or brought
// back (it leads on), or came with an undone change (change_plan.h), or when a process died between
// removing the two. That is harmless: no identifier is given twice.
#ifndef KEEL_CLIENT_STORE_CHANGES_OBJECT_RECORD_H
#define KEEL_CLIENT_STORE_CHANGES_OBJECT_RECORD_H

#include "client/store/pieces/manifest_place.h"
#include "client/store/pieces/piece.h"
#include "client/store/records/numbered_record.h"

#include <optional>
#include <string>

namespace arca::store
{

struct ObjectRecord {
    PieceId id = 0;
    PieceId origin = 0;          // what it was stored as, before it was renamed; 0: as itself
    PieceId renamedTo = 0;       // where it is now, once the change `goneBy` is done
    ChangeId shownBy = 0;        // it shows once that change is done
    ChangeId goneBy = 0;         // it is gone once that change is done
    std::int64_t insertedAt = 0; // seconds since 1970, UTC; 0: as the piece says
    bool described = false;      // the texts below hold, in place of those of the piece
    std::string owner, managementClass, info;

    PieceId first() const { return origin != 0 ? origin : id; }
    /// Takes owner, class and information over; applyTo() puts them, and the time, into a piece.
    void describe(const PieceDescription &as);
    void applyTo(PieceInfo &piece) const;
};

/// The payload of a record of kind "ARCAOBJE": identifier, origin, renamed to, shown by, gone by,
/// time of insertion (8 bytes each), 1 when described (2 bytes), then owner, management class and
/// information, each a 16-bit length and as many bytes.
Bytes encodeObjectRecord(const ObjectRecord &record);
Result<ObjectRecord> decodeObjectRecord(ByteView record);

/// The records of one node. The caller of write() and remove() holds the node's lock of changes.
/// Errors of all calls: damaged, newerFormat.
class ObjectRecords
{
public:
    explicit ObjectRecords(const engine::Domain &domain)
        : store_(domain.blobs()), seal_(domain), prefix_("objects/" + domain.nodeKey() + "/")
    {
    }

    struct State {
        std::uint32_t number = 0; // 0: there is no record, and the fields are those of none
        ObjectRecord record;
    };
    Result<State> read(PieceId id);
    /// Writes `next.record` as the state after the one that read() returned, durably. Errors:
    /// conflict when another one was faster.
    Result<void> write(const State &next);
    /// Takes the record away; fine when there is none.
    Result<void> remove(PieceId id);

private:
    NumberedRecord recordOf(PieceId id);

    blob::BlobStore &store_;
    RecordSeal seal_;
    std::string prefix_;
};

} // namespace arca::store

#endif
