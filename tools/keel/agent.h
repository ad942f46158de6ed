// The agent's library, loaded as the database loads it, and its first call.
#ifndef KEEL_TOOLS_KEEL_AGENT_H
#define KEEL_TOOLS_KEEL_AGENT_H

#include "tools/keel/channel.h"

#include <cstdint>
#include <string>

namespace keel
{

class Agent
{
public:
    /// Loads the library; Failure when that cannot be done, or it is no agent.
    explicit Agent(const ChannelOptions &options);

    /// What sbtinit hands out; the library's own memory.
    struct Offer {
        void *const *table = nullptr; ///< SBT_FN_COUNT entry points
        std::uint64_t contextSize = 0;
    };

    /// Calls sbtinit, which opens a channel.
    [[nodiscard]] Offer initialise();

    /// The entry point of that name; Failure when the library lacks it.
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

/// The seconds that the agent tells as a creation or expiry time, put right.
[[nodiscard]] std::int64_t agentTime(std::uint64_t told);

} // namespace keel

#endif
