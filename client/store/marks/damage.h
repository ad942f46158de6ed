// What was found damaged of a node's packs, kept in the repository so that every host respects it:
//
//   damage/<node key>/<pack: 32 digits>.<revision>-f<frame: 8 digits>   one frame
//   damage/<node key>/<pack>.<revision>-whole   header, index or trailer
//   damage/<node key>/<pack>.<revision>-gaps    blocks that pieces need were dropped by a repair
//
//   1. A record is put once and never changed, so writing it again is harmless.
//   2. Its name says all that a stream needs. A stream takes the names without opening the records:
//      a record that is damaged itself, or forged, costs space and never a piece.
//   3. A stream reads them after it took its claim, as it does with the marks of reclaiming. From
//      then on it refers to no block that they name, and stores what it brings of these again.
//   4. A record goes only when its part was read and found right, or when its revision is gone. Who
//      writes the next revision records what is damaged in that before the old one goes; of gaps a
//      record is written for it again.
//
// Payload (kind "ARCADMGE", version 1): pack (16 bytes), revision (4), kind (4: 0 frame, 1 whole,
// 2 gaps), frame (4), when it was found, seconds since 1970, UTC (8), and what was found: a 16-bit
// length and as many bytes.
#ifndef KEEL_CLIENT_STORE_MARKS_DAMAGE_H
#define KEEL_CLIENT_STORE_MARKS_DAMAGE_H

#include "client/blob/blob_store.h"
#include "client/engine/duplicates/domain.h"
#include "client/engine/packs/damage.h"
#include "client/store/records/record.h"

#include <string_view>

namespace arca::store
{

struct DamageRecord {
    engine::DamagedPart part;
    std::int64_t foundAt = 0; // seconds since 1970, UTC
    std::string found;        // one line
};

Bytes encodeDamage(const DamageRecord &record);
/// Errors: damaged, newerFormat.
Result<DamageRecord> decodeDamage(ByteView bytes);

/// "frame 12", "its header, index or trailer", "blocks that no pack has".
std::string partText(const engine::DamagedPart &part);

/// The records of one node. Any thread may use it; it takes no lock.
class DamageRecords
{
public:
    explicit DamageRecords(const engine::Domain &domain)
        : blobs_(domain.blobs()), prefix_("damage/" + domain.nodeKey() + "/")
    {
    }

    std::string nameOf(const engine::DamagedPart &part) const;
    /// The part that a blob of this place is about; nothing when its name is none of ours.
    std::optional<engine::DamagedPart> partIn(std::string_view blobName) const;

    /// Durable when it returns; fine when the part is recorded already, whatever that record says.
    /// `found` is made printable and cut to 1,000 bytes. Errors: what the store says; then the part
    /// may not be recorded.
    Result<void> note(const engine::DamagedPart &part, const std::string &found);
    /// Of a revision that is gone: what is recorded of its gaps is recorded of the newest revision,
    /// which has no block more. Does nothing for another part, or when the pack is gone.
    Result<void> passOnGaps(const engine::PackStore &packs, const engine::DamagedPart &part,
                            const std::string &found);
    /// Returns everything that is recorded, by the names alone; blobs with other names are left
    /// out.
    Result<engine::DamagedParts> all() const;
    /// Of one revision of a pack.
    Result<engine::DamagedParts> of(const engine::PackName &pack) const;
    /// Removes the record of a part; fine when there is none.
    Result<void> remove(const engine::DamagedPart &part);

private:
    Result<engine::DamagedParts> under(const std::string &prefix) const;

    blob::BlobStore &blobs_;
    const std::string prefix_;
};

} // namespace arca::store

#endif
