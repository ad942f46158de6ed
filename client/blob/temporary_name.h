// Names of what lies in tmp/:
//   tmp/<pid>-<16 hexadecimal digits>        a blob being written, or a claim
//   tmp/<pid>-<16 digits>.<16 digits>        a finished blob, parked under the claim before the dot
#ifndef KEEL_CLIENT_BLOB_TEMPORARY_NAME_H
#define KEEL_CLIENT_BLOB_TEMPORARY_NAME_H

#include "client/base/result.h"

#include <string>
#include <string_view>

namespace arca::blob
{

/// Returns a name that no other writer has. Errors: io, when there are no random numbers.
Result<std::string> newTemporaryName();

/// Returns the name of what `temporary` wrote when it is parked under `claim`.
std::string parkedName(const std::string &claim, const std::string &temporary);

/// Returns true for a name as these two give them, without "tmp/". What is called otherwise was not
/// put there by a store, and is never removed.
bool isTemporaryName(std::string_view fileName);

/// Returns the file in tmp whose lock says that the writer of this one lives.
std::string lockedFor(const std::string &fileName);

/// Where locks do not exclude two descriptors of one process, a process must not take its own
/// writers for dead ones; its own dead ones wait for another process.
bool ownedByThisProcess(const std::string &fileName);

} // namespace arca::blob

#endif
