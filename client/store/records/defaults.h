// The records that a repository has from its beginning: the grace time and the class STANDARD. They
// are written when it is made, and a blob says so, so that one that got lost is told from one that
// was never written: without it, what is kept for 90 days would be purged after the default 7.
//
//   defaults   a record of kind "ARCADFLT", version 1, without a payload
//
//   1. It is put after the records. Where it is, each of them was there.
//   2. Neither record is ever taken away, so one that is not there any more was lost.
//   3. Repositories of releases that did not write it are not watched until arca init is run again.
#ifndef KEEL_CLIENT_STORE_RECORDS_DEFAULTS_H
#define KEEL_CLIENT_STORE_RECORDS_DEFAULTS_H

#include "client/store/records/numbered_record.h"

#include <optional>

namespace arca::store
{

/// Puts the blob; fine when it is there.
Result<void> noteDefaults(blob::BlobStore &blobs);

/// The newest state of a record that the repository has from its beginning; nothing when it was
/// never written. Errors: damaged, also when it was written and is lost.
Result<std::optional<NumberedRecord::State>> latestDefault(blob::BlobStore &blobs,
                                                           NumberedRecord &record);

/// Returns true when that blob is there, damaged or not: verifying says what is in it.
Result<bool> areDefaultsNoted(blob::BlobStore &blobs);
/// Returns success for the bytes of that blob. Errors: damaged, newerFormat, whatever the bytes
/// are.
Result<void> decodeDefaults(ByteView record);

} // namespace arca::store

#endif
