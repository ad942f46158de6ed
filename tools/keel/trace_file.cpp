// See trace_file.h.
#include "tools/keel/trace_file.h"

#include "tools/common/text.h"
#include "tools/keel/channel/failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

namespace fs = std::filesystem;

/// Returns true when both names lead to one file, or would once it is made.
bool leadsTo(const std::string &name, const std::string &other)
{
    struct stat named = {}, status = {};
    const bool exists = ::stat(name.c_str(), &named) == 0;
    if (exists && S_ISCHR(named.st_mode))
        return false;
    if (::stat(other.c_str(), &status) == 0)
        return exists && named.st_dev == status.st_dev && named.st_ino == status.st_ino;
    std::error_code error;
    const fs::path place = fs::weakly_canonical(fs::absolute(name, error), error);
    return !error && place == fs::weakly_canonical(fs::absolute(other, error), error) && !error;
}

/// Returns true for the beginning of a trace with its banner, and for one whose banner could not be
/// written.
bool beginsAsTrace(std::string_view beginning)
{
    const std::size_t line = beginning.find_first_not_of('=');
    return (line != 0 && line != std::string_view::npos &&
            beginning.substr(line).starts_with("\nTracing started for:\n")) ||
           (beginning.starts_with("SBT-") && beginning.size() > 4 && beginning[4] >= '0' &&
            beginning[4] <= '9');
}

void expectOwnFile(const char *option, const std::string &name,
                   const std::vector<std::string> &others)
{
    for (const std::string &other : others)
        if (!other.empty() && leadsTo(name, other))
            throw UsageError(fmt::format("{} needs a file of its own: {} is that of another "
                                         "option, too",
                                         option, tools::printable(name)));
}

} // namespace

void expectLogFile(const std::string &log, const std::string &data)
{
    if (!log.empty())
        expectOwnFile("--log", log, {data});
}

void expectTraceFile(const std::string &trace, const std::vector<std::string> &others)
{
    if (trace.empty())
        return;
    expectOwnFile("--trace", trace, others);
    struct stat status = {};
    if (::stat(trace.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0)
        return; // the agent reports what it cannot open
    char beginning[128];
    const int file = ::open(trace.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const ssize_t count = file < 0 ? -1 : ::read(file, beginning, sizeof beginning);
    const int error = errno;
    if (file >= 0)
        ::close(file);
    if (count < 0)
        throw Failure(
            fmt::format("cannot read {}: {}", tools::printable(trace), std::strerror(error)));
    if (!beginsAsTrace({beginning, static_cast<std::size_t>(count)}))
        throw Failure(fmt::format("{} holds something else than a database trace, and nothing is "
                                  "appended to it; name another file with --trace",
                                  tools::printable(trace)));
}

} // namespace keel
