// See agent.h.
#include "tools/keel/channel/agent.h"

#include "agents/oracle/common/sbt.h"
#include "tools/keel/channel/failure.h"

#include <dlfcn.h>

#include <ctime>

#include <fmt/format.h>

namespace keel
{

namespace
{

const char *initMeaning(std::uint32_t secondary)
{
    switch (secondary) {
    case 2:
        return "the message catalogue velo.cat cannot be used";
    case 104:
        return "the storage client cannot be loaded";
    case 107:
        return "the storage client is too old";
    case 2522:
        return "not enough memory";
    case 2534:
        return "the option file (VELO_OPTFILE, --optfile) is missing or wrong";
    case 2601:
        return "the agent is not installed";
    default:
        return "the agent cannot start";
    }
}

} // namespace

Agent::Agent(const ChannelOptions &options)
    : library_(options.library), traceFile_(options.traceFile),
      handle_(::dlopen(library_.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (!handle_)
        throw Failure(fmt::format("cannot load the agent: {}", ::dlerror()));
}

void *Agent::symbol(const char *name) const
{
    void *entry = ::dlsym(handle_, name);
    if (!entry)
        throw Failure(fmt::format("{} is no agent: it has no {}", library_, name));
    return entry;
}

Agent::Offer Agent::initialise()
{
    decltype(::sbtinit) *init = nullptr;
    take(init, "sbtinit");
    const sbtPair in[] = {{SBTINIT_TRACEFILE, traceFile_.empty() ? nullptr : traceFile_.data()},
                          {SBTINIT_END, nullptr}};
    sbtInitError error = {};
    sbtPair *out = nullptr;
    if (init(&error, in, &out) != 0) {
        throw Failure(fmt::format("{} (code {}); veloerror.log tells more",
                                  initMeaning(error.secondary), error.secondary),
                      error.code);
    }
    Offer offer;
    for (const sbtPair *item = out; item && item->code != SBTINIT_END; ++item) {
        if (item->code == SBTINIT_FUNCTIONS)
            offer.table = static_cast<void *const *>(item->value);
        else if (item->code == SBTINIT_CTXSIZE && item->value)
            offer.contextSize = *static_cast<const std::uint64_t *>(item->value);
    }
    return offer;
}

// The agent turns local times into seconds as if daylight saving time were always in force, so
// those of the other half of the year come out an hour early.
std::int64_t agentTime(std::uint64_t told)
{
    constexpr std::int64_t kHour = 3600;
    const auto seconds = static_cast<std::int64_t>(told);
    const auto later = static_cast<std::time_t>(seconds + kHour);
    std::tm parts = {};
    const bool early = seconds != 0 && ::localtime_r(&later, &parts) && parts.tm_isdst == 0;
    return early ? seconds + kHour : seconds;
}

} // namespace keel
