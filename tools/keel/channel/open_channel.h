// Decides once which of the agent's two interfaces a channel drives. One thread.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_OPEN_CHANNEL_H
#define KEEL_TOOLS_KEEL_CHANNEL_OPEN_CHANNEL_H

#include "tools/keel/channel/channel.h"

namespace keel
{

/// Returns a channel, with the agent loaded and initialised. Throws Failure when that is refused,
/// and UsageError for options that the first interface cannot carry.
[[nodiscard]] std::unique_ptr<Channel> openChannel(const ChannelOptions &options);

} // namespace keel

#endif
