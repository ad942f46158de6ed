// The envelope of small stored records (all numbers little-endian):
//
//   offset  size
//        0     8  kind, eight letters
//        8     4  version of the payload's layout
//       12     4  length n of the payload
//       16     n  payload
//     16+n     8  XXH3-64 of everything before
//
// The encode and decode functions of each kind, beside its struct, make and take a whole envelope,
// before RecordSeal seals it. Decoding takes any bytes. Errors: damaged, newerFormat, and
// olderFormat where record_forms.h says that the first versions are not read any more.
#ifndef KEEL_CLIENT_STORE_RECORDS_RECORD_H
#define KEEL_CLIENT_STORE_RECORDS_RECORD_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <cstdint>
#include <string_view>

namespace arca::store
{

constexpr std::size_t kMaxRecordBytes = 64 * 1024;

/// Returns the whole envelope. `kind` has eight letters.
Bytes frameRecord(std::string_view kind, std::uint32_t version, ByteView payload);

/// Returns the payload as a view into `bytes`, which may be anything. Errors: damaged when they are
/// no such record, newerFormat when its version is beyond `newestVersion`, olderFormat when it is
/// before `oldestVersion`.
Result<ByteView> unframeRecord(ByteView bytes, std::string_view kind, std::uint32_t newestVersion,
                               std::uint32_t oldestVersion = 1);

/// Returns what can be done about a damaged record in a blob of that name: half a sentence.
std::string cureForRecord(std::string_view blobName);
/// Returns a failure to read the record in `blobName` with the name and, when the record is
/// damaged, the cure; each unless the text has it already.
Error aboutRecord(Error failure, const std::string &blobName);
/// Returns what was decoded of the record in `blobName`; a failure is aboutRecord().
template <class T> Result<T> inRecord(const std::string &blobName, Result<T> decoded)
{
    return decoded ? std::move(decoded)
                   : Result<T>(aboutRecord(std::move(decoded).error(), blobName));
}

} // namespace arca::store

#endif
