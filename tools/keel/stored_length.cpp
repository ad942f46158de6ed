// See stored_length.h.
#include "tools/keel/stored_length.h"

#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/channel/trailer.h"
#include "tools/keel/command.h"

#include <algorithm>

#include <fmt/format.h>

namespace keel
{

void addStoredLengths(ChannelOptions options, std::vector<PieceInfo> &pieces)
{
    options.firstVersion = true;
    options.traceFile.clear();
    options.traceLevel.reset();
    // The first version refuses an impossible name only after it opened a channel, which then stays
    // open. The second version reports what is wrong with the name.
    constexpr std::size_t longestName = 255;
    for (PieceInfo &piece : pieces) {
        if (!piece.found || piece.size || piece.name.empty() || piece.name.size() > longestName)
            continue;
        try {
            piece.size = openChannel(options)->info({piece.name}).front().size;
        } catch (const Failure &) {
            piece.size.reset();
        }
    }
}

std::size_t restoreBlockSize(std::size_t asked, std::optional<std::uint64_t> storedLength)
{
    const std::size_t wanted = asked != 0 ? asked : kDefaultBlockSize;
    // The agent refuses a size that is no whole number of sectors.
    if (!storedLength || wanted % kSectorSize != 0 || *storedLength % wanted == 0)
        return wanted;
    if (*storedLength % kSectorSize != 0)
        throw Failure(fmt::format("{} bytes are stored, no multiple of {}: keel did not store "
                                  "them, and cannot tell where they end",
                                  *storedLength, kSectorSize));
    const std::uint64_t power = *storedLength & (~*storedLength + 1);
    const auto fitting =
        static_cast<std::size_t>(std::min<std::uint64_t>(power, kDefaultBlockSize));
    if (asked == 0)
        return fitting;
    throw Failure(fmt::format("{} bytes are stored, no multiple of {}: the piece was stored in "
                              "other blocks; use --block-size {}, or none",
                              *storedLength, asked, fitting));
}

} // namespace keel
