// What a writer offers that can wait for its commit without a descriptor and without memory, so
// that thousands of finished blobs may wait at once. A writer need not offer it; ask with
// dynamic_cast.
#ifndef KEEL_CLIENT_BLOB_PARKING_H
#define KEEL_CLIENT_BLOB_PARKING_H

#include "client/blob/blob_store.h"

namespace arca::blob
{

class ParkingWriter
{
public:
    virtual ~ParkingWriter() = default;

    /// After the last append(): writes and syncs what there is, and keeps no descriptor and no
    /// buffer until commit(). `claim` is a writer of the same store that was begun before this one,
    /// outlives it and is not committed: its lock keeps the parked bytes from those who clean up,
    /// and it stands for this writer among the living ones. After an error: drop the writer.
    virtual Result<void> park(const BlobWriter &claim) = 0;
};

/// Parks the writer if it can be parked.
inline Result<void> parkIfPossible(BlobWriter &writer, const BlobWriter &claim)
{
    auto *const parking = dynamic_cast<ParkingWriter *>(&writer);
    return parking == nullptr ? Result<void>() : parking->park(claim);
}

} // namespace arca::blob

#endif
