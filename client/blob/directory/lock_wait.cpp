// The notes in lock files: see the header.
#include "client/blob/directory/lock_wait.h"

#include "client/base/text.h"
#include "common/cu/cutime.h"

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace arca::blob
{

namespace
{

constexpr std::size_t kMostNote = 512;

/// What a note says, in words. It is of another process, of another host perhaps: the number tells
/// a person whom to look for.
std::string holderIn(const std::string &note)
{
    unsigned long process = 0;
    long long since = 0;
    char host[257] = "";
    int used = 0;
    if (std::sscanf(note.c_str(), "%lu %lld %256s %n", &process, &since, host, &used) != 3 ||
        used == 0)
        return holderOfLock();
    std::tm when{};
    char text[32] = "?";
    if (cuUtcTime(static_cast<std::time_t>(since), &when))
        (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &when);
    return "process " + std::to_string(process) + " on " + printable(host) + " since " + text +
           " (" + printable(std::string_view(note).substr(static_cast<std::size_t>(used))) + ")";
}

} // namespace

std::string lockNote(const std::string &doing)
{
    char host[256] = "";
    if (gethostname(host, sizeof host - 1) != 0)
        host[0] = '\0';
    return std::to_string(getpid()) + " " + std::to_string(std::time(nullptr)) + " " +
           (host[0] == '\0' ? "-" : host) + " " + doing;
}

std::string holderOfLock(File &file)
{
    Bytes note(kMostNote);
    const auto got = file.readAt(0, note);
    return holderIn(std::string(textOf(ByteView(note).first(got ? *got : 0))));
}

std::string holderOfLock()
{
    return "another process";
}

} // namespace arca::blob
