// How long removed pieces of a repository are kept before reclaiming purges them: its grace time,
// the same for all nodes. A numbered record, options/grace/<number>, that is written when the
// repository is made; in repositories of older releases the default holds without one.
//
// Payload (kind "ARCAGRAC", version 1): the time in seconds (8 bytes).
#ifndef KEEL_CLIENT_STORE_MARKS_GRACE_H
#define KEEL_CLIENT_STORE_MARKS_GRACE_H

#include "client/store/records/numbered_record.h"

namespace arca::store
{

constexpr std::string_view kGracePlace = "options/grace";
constexpr std::int64_t kDefaultGrace = 7 * 86400; // seconds, as the next
constexpr std::int64_t kMaxGrace = std::int64_t{100} * 365 * 86400;

class GraceTime
{
public:
    /// `seal`: of the repository's records.
    GraceTime(blob::BlobStore &blobs, RecordSeal seal)
        : blobs_(blobs), record_(blobs, std::string(kGracePlace), seal)
    {
    }

    /// Returns seconds. Errors: damaged, also when the record is lost (defaults.h).
    Result<std::int64_t> read();
    /// Writes kDefaultGrace durably, where there is no record yet.
    Result<void> writeDefault();
    /// Durable on return; replaces a record that cannot be read, too. After another error than
    /// these the new time may hold. Errors: conflict when another process set it at the same time;
    /// badArgument when `seconds` is negative or beyond kMaxGrace.
    Result<void> write(std::int64_t seconds);

private:
    blob::BlobStore &blobs_;
    NumberedRecord record_;
};

/// Errors: damaged, newerFormat, whatever the bytes are.
Result<std::int64_t> decodeGrace(ByteView record);

} // namespace arca::store

#endif
