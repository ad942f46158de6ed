// The agent's library, loaded as the database loads it, and its first call. One thread.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_AGENT_H
#define KEEL_TOOLS_KEEL_CHANNEL_AGENT_H

#include "tools/keel/channel/channel.h"

#include <cstdint>
#include <string>

namespace keel
{

class Agent
{
public:
    /// Loads the library, which stays loaded for the life of the process. Throws Failure when that
    /// cannot be done; whether it is an agent shows when an entry point is asked for.
    explicit Agent(const ChannelOptions &options);

    /// What sbtinit hands out. The table is the library's memory.
    struct Offer {
        void *const *table = nullptr;  ///< SBT_FN_COUNT entry points; null: none was handed out
        std::uint64_t contextSize = 0; ///< bytes; 0: none was handed out
    };

    /// Calls sbtinit, which opens a channel. Throws Failure with the SBT code when it is refused.
    [[nodiscard]] Offer initialise();

    /// Sets `entry` to the entry point of that name. Throws Failure when the library lacks it.
    template <class Function> void take(Function *&entry, const char *name) const
    {
        entry = reinterpret_cast<Function *>(symbol(name));
    }
    [[nodiscard]] const std::string &library() const { return library_; }

private:
    [[nodiscard]] void *symbol(const char *name) const;

    std::string library_;
    std::string traceFile_;
    void *handle_ = nullptr; ///< never closed: the agent stays for the life of the process
};

/// Returns the seconds since 1970 of a creation or expiry time that the agent reports (`told`),
/// which is an hour early when it lies in standard time.
[[nodiscard]] std::int64_t agentTime(std::uint64_t told);

} // namespace keel

#endif
