// arca rm --blob: takes damaged blobs out of the way.
#ifndef KEEL_TOOLS_ARCA_RM_BLOB_H
#define KEEL_TOOLS_ARCA_RM_BLOB_H

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

/// Checks every name before it asks, and then removes one after the other. Errors: badArgument for
/// a blob that is not damaged, and then nothing is removed.
Result<void> removeBlobs(const Command &command, const BlobRequest &request, Json &result);

/// Sets the damaged manifest of a piece aside, so that its name is free. The piece is the one that
/// the selection's pattern, without a wildcard, names in whatever filespace of the selection it is
/// damaged in. Errors: notFound, and badArgument when it is damaged in several.
Result<void> removeDamagedPiece(const Command &command, const Selection &selection,
                                const BlobRequest &request, Json &result);

} // namespace arca::tool

#endif
