// arca rm --blob: takes damaged blobs out of the way.
#ifndef KEEL_TOOLS_ARCA_REPOSITORY_RM_BLOB_H
#define KEEL_TOOLS_ARCA_REPOSITORY_RM_BLOB_H

#include "tools/arca/command.h"
#include "tools/arca/selection.h"

#include <string>
#include <vector>

namespace arca::tool
{

struct BlobRequest {
    std::vector<std::string> names;
    bool dryRun = false, yes = false, fromStandardInput = false;
};

/// With dryRun both only print what would be done. Logs on, checks every name before it asks, and
/// then removes one after the other; the first failure ends that, and what was removed before stays
/// removed. Errors: badArgument for a blob that is not damaged, and when the answer is no; then
/// nothing is removed.
Result<void> removeBlobs(const Command &command, const BlobRequest &request, Json &result);

/// Logs on and, after asking, sets the damaged manifest of a piece aside, so that its name is free.
/// The selection's pattern, which has no wildcard, names the piece; it may be in any filespace of
/// the selection. Errors: notFound when no such piece is damaged; badArgument when pieces of that
/// name are damaged in several filespaces, and when the answer is no; damaged when only --filespace
/// can tell where the piece is.
Result<void> removeDamagedPiece(const Command &command, const Selection &selection,
                                const BlobRequest &request, Json &result);

} // namespace arca::tool

#endif
