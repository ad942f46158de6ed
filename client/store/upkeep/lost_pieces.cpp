// Going through the manifests for what needs lost blocks.
#include "client/store/upkeep/lost_pieces.h"

#include "client/base/text.h"
#include "client/store/pieces/manifest_writer.h"
#include "client/store/pieces/stored_manifests.h"

namespace arca::store
{

namespace
{

/// Why the piece is lost; nothing when it is not.
Result<std::optional<std::string>> lossOf(const NodeSpace &space, const std::string &blobName,
                                          blob::BlobReader &blob, const LostBlocks &lost,
                                          std::string &name)
{
    ARCA_TRY(const Manifest manifest, space.readOwn(blob, blobName));
    name = manifest.info.description.name.joined();
    ManifestRuns runs(blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return std::optional<std::string>();
        if (lost.touches(*run))
            return std::optional<std::string>("it needs blocks of the pack " + toHex(run->pack) +
                                              " that no pack has a good copy of");
    }
}

} // namespace

Result<void> visitLostPieces(NodeSpace &space, const LostBlocks &lost,
                             const std::function<void(const LostPiece &)> &visit)
{
    return visitManifests(space.domain().blobs(), space.domain().nodeKey(),
                          [&](const StoredManifest &stored) -> Result<void> {
                              std::string name = stored.blobName;
                              const auto loss =
                                  lossOf(space, stored.blobName, stored.blob, lost, name);
                              if (!loss && !isUnreadable(loss.error()))
                                  return loss.error();
                              if (!loss)
                                  visit({name, loss.error().text});
                              else if (*loss)
                                  visit({name, **loss});
                              return {};
                          });
}

} // namespace arca::store
