// Writes the next revision of a pack: the blocks that are still needed, under the numbers they had.
#ifndef KEEL_CLIENT_ENGINE_PACK_REWRITER_H
#define KEEL_CLIENT_ENGINE_PACK_REWRITER_H

#include "client/engine/pack_store.h"

#include <functional>

namespace arca::engine
{

/// `isNeeded` is asked for numbers of blocks; at least one must be. Durable when it returns; tells
/// how large the new one is. The old one stays.
Result<std::uint64_t> rewritePack(const PackStore &packs, OpenPack &pack,
                                  const std::function<bool(std::uint32_t block)> &isNeeded);

} // namespace arca::engine

#endif
