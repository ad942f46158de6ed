// The lengths of pieces as they are stored, which only the first version of the agent's interface
// reports. A process may use one version after the other, not both at once.
#ifndef KEEL_TOOLS_KEEL_STORED_LENGTH_H
#define KEEL_TOOLS_KEEL_STORED_LENGTH_H

#include "tools/keel/channel/channel.h"

namespace keel
{

/// Fills in the size of every piece that was found. The size of a piece that the agent does not
/// describe, and of one with a name above 255 bytes, stays empty: the call that needs the piece
/// reports why. No channel may be open; each piece takes a session of its own. Nothing is written
/// to the database trace. Throws only std::bad_alloc.
void addStoredLengths(ChannelOptions options, std::vector<PieceInfo> &pieces);

/// Returns the size of the blocks to restore a piece in, in bytes: `asked`, or when that is 0 the
/// default, or, where the stored length is no multiple of that, the largest power of two below it
/// that fits. Throws Failure when the length is no multiple of `asked` (the piece was stored in
/// other blocks; in which, the length does not show) or of any block size of keel. Without a length
/// nothing is checked.
[[nodiscard]] std::size_t restoreBlockSize(std::size_t asked,
                                           std::optional<std::uint64_t> storedLength);

} // namespace keel

#endif
