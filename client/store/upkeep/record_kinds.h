// The decoder of every kind of small record, chosen by the place of the record and never by its
// bytes: for verifying, and for feeding every decoder with anything.
#ifndef KEEL_CLIENT_STORE_UPKEEP_RECORD_KINDS_H
#define KEEL_CLIENT_STORE_UPKEEP_RECORD_KINDS_H

#include "client/base/bytes.h"
#include "client/base/result.h"
#include "client/engine/duplicates/domain.h"
#include "client/store/records/record_forms.h"
#include "client/store/records/record_seal.h"

#include <span>

namespace arca::store
{

struct RecordKind {
    RecordForm form;
    /// Takes the whole record apart. Errors: damaged, newerFormat, olderFormat.
    Result<void> (*check)(ByteView record);
};

/// A static table, as what recordKindAt() points into.
std::span<const RecordKind> recordKinds();
/// Returns the kind whose place a blob's name says; null when no record belongs there.
const RecordKind *recordKindAt(std::string_view blobName);
/// Returns how many bytes a record of that name may have.
std::size_t maxRecordBytesAt(std::string_view blobName);
/// Returns the envelope of a record as RecordKind::check() takes it, from what is stored. Its
/// digest is compared where only the node's key makes one, and, with `shared`, the seal of the
/// records that all nodes share, where only that does; else it is left out. Errors: damaged.
Result<Bytes> recordAt(const engine::Domain &domain, std::string_view blobName, Bytes stored,
                       const RecordSeal &shared = {});

} // namespace arca::store

#endif
