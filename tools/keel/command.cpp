// See command.h.
#include "tools/keel/command.h"
#include "tools/common/command/streams.h"

#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/trailer.h"
#include "tools/timing/timing.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace keel
{

void addCommonOptions(tools::Verb verb, Command &command)
{
    verb.addOption("--optfile", command.optionFile,
                   "Option file of the agent (default: $VELO_OPTFILE, else the installed velo.opt)")
        .valueName("FILE");
    verb.addOption("--library", command.channel.library,
                   "Agent to load (default: the libobk.so installed beside this program)")
        .valueName("FILE");
    const tools::Option trace =
        verb.addOption("--trace", command.channel.traceFile,
                       "Append the agent's database trace to this file, which is "
                       "new, empty or such a trace")
            .valueName("FILE");
    verb.addOption("--trace-level", command.channel.traceLevel,
                   "0 failures, 1 also calls (default), 2 also details")
        .needs(trace)
        .valueName("N");
    verb.addOption("--log", command.logFile,
                   "Append a line about the outcome to this file, which wraps at 10 MiB")
        .valueName("FILE");
    verb.addFlag("--json", command.json, "Print one JSON object about the outcome");
    verb.addFlag("--quiet,-q", command.quiet, "Show no progress");
}

void addBlockSize(tools::Verb verb, std::size_t &blockSize)
{
    const auto valid = [](const std::string &bytes) -> std::string {
        std::size_t size = 0;
        const char *const end = bytes.data() + bytes.size();
        const auto read = std::from_chars(bytes.data(), end, size);
        if (read.ec != std::errc() || read.ptr != end || size == 0 || size > kMostBlockSize)
            return "must be at least 1 and at most 64M";
        return {};
    };
    verb.addOption("--block-size", blockSize,
                   "Bytes that go through the agent at a time, as 8192 or 256K (default: 256K)")
        .check(valid)
        .inBytes()
        .valueName("SIZE");
}

void checkBlockSize(const Command &command, std::size_t blockSize)
{
    if (blockSize % kSectorSize != 0 && !command.channel.firstVersion)
        throw UsageError(fmt::format("--block-size must be a multiple of {} bytes", kSectorSize));
}

std::string subjectOf(const std::vector<std::string> &names)
{
    return names.size() == 1 ? names.front() : std::string();
}

void reportTransfer(const Command &command, Json &result, std::uint64_t bytes, double seconds)
{
    result["bytes"] = bytes;
    result["seconds"] = seconds;
    result["bytesPerSecond"] = static_cast<double>(bytes) / std::max(seconds, 1e-6);
    if (command.timing && command.json)
        result["timing"] = tools::timesJson();
    else if (command.timing)
        tools::complain(tools::timesText(seconds));
}

} // namespace keel
