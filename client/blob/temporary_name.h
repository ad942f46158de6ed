// Names of what lies in tmp/:
//   tmp/0<pid>-<owner><random>           a blob being written, or a claim, that counts for one
//                                        owner: 8 hexadecimal digits of its digest, 8 random ones
//   tmp/<pid>-<random>                   one that counts for every owner: 16 random digits
//   tmp/<either>.<16 digits>             a finished blob, parked under the claim before the dot
//
// An earlier release has the second form only. It takes the first for one of its own, which counts
// for every owner: so no release takes away what a claim of another one keeps. Two owners of the
// same digits only wait for each other.
#ifndef KEEL_CLIENT_BLOB_TEMPORARY_NAME_H
#define KEEL_CLIENT_BLOB_TEMPORARY_NAME_H

#include "client/base/result.h"

#include <string>
#include <string_view>

namespace arca::blob
{

/// Returns a name that no other writer has. `whose`: the owner; empty: it counts for every one.
/// Errors: io, when there are no random numbers.
Result<std::string> newTemporaryName(const std::string &whose);

/// Returns the digits that stand for an owner in these names; empty for none.
Result<std::string> ownerDigits(const std::string &whose);
/// Returns false for a name that counts for another owner only. Empty digits: true.
bool mayCountFor(std::string_view fileName, std::string_view ownerDigits);
/// Returns the number of the process that made the file, as text.
std::string_view processIn(std::string_view fileName);

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
