// See open_channel.h.
#include "tools/keel/channel/open_channel.h"

#include "tools/keel/channel/context_channel.h"
#include "tools/keel/channel/first_channel.h"

namespace keel
{

std::unique_ptr<Channel> openChannel(const ChannelOptions &options)
{
    if (options.firstVersion)
        return std::make_unique<FirstChannel>(options);
    return std::make_unique<ContextChannel>(options);
}

} // namespace keel
