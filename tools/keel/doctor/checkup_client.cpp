// The storage client's side of the check-up, and the piece that is stored and read: see checkup.h.
#include "agents/common/maint/mtoperations.h"
#include "client/blob/directory/location_text.h"
#include "tools/common/text.h"
#include "tools/keel/channel/blocks.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/doctor/checkup.h"
#include "tools/keel/option_lines.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace fs = std::filesystem;

namespace
{

constexpr const char *kClientLibrary = "libApiHX64.so";

std::string shown(const std::string &name)
{
    return tools::printable(name);
}

/// Returns where the agent would find the storage client: it opens the bare name, and looks in its
/// own directory and the one beside it.
std::string findClientLibrary(const std::string &agent)
{
    std::vector<fs::path> places;
    const char *searched = std::getenv("LD_LIBRARY_PATH");
    std::string directories = searched ? searched : "";
    while (!directories.empty()) {
        const std::size_t end = directories.find(':');
        if (end != 0)
            places.emplace_back(directories.substr(0, end));
        directories.erase(0, end == std::string::npos ? end : end + 1);
    }
    std::error_code error;
    const fs::path own = fs::weakly_canonical(agent, error).parent_path();
    places.push_back(own);
    places.push_back((own / "../../api/bin64").lexically_normal());
    for (const fs::path &place : places) {
        if (fs::exists(place / kClientLibrary, error))
            return (place / kClientLibrary).string();
    }
    return kClientLibrary;
}

/// Returns what keel doctor stores: some of it compresses and some does not.
std::string sampleStream()
{
    std::string stream(100'000, 'k');
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < stream.size() / 2; ++i) {
        state = state * 1664525 + 1013904223;
        stream[i] = static_cast<char>(state >> 24);
    }
    return stream;
}

using LogSizes = std::map<std::string, std::uint64_t>;

/// Returns the clause "; if nothing did, FILE tells more" for the error log that has grown; empty
/// when none has.
std::string grownLog(const LogSizes &before, const LogSizes &now)
{
    for (const auto &[log, size] : now) {
        const auto known = before.find(log);
        if (size > (known == before.end() ? 0 : known->second))
            return fmt::format("; if nothing did, {} tells more", shown(log));
    }
    return "";
}

constexpr std::size_t kBlock = std::size_t{64} << 10;

void sendAll(Channel &channel, const std::string &stream)
{
    std::size_t at = 0;
    storeStream(
        [&](std::span<std::byte> bytes) {
            const std::size_t count =
                stream.copy(reinterpret_cast<char *>(bytes.data()), bytes.size(), at);
            at += count;
            return count;
        },
        [&](std::span<std::byte> block) { channel.writeBlock(block); }, kBlock);
    channel.closePiece();
}

std::string fetch(Channel &channel, const std::string &name)
{
    std::string stream;
    channel.beginRestore(name, kBlock);
    restoreStream([&](std::span<std::byte> block) { return channel.readBlock(block); },
                  [&](std::span<const std::byte> bytes) {
                      stream.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
                  },
                  kBlock);
    channel.closePiece();
    return stream;
}

} // namespace

std::string Checkup::clientOption(const std::string &keyword) const
{
    std::string value;
    for (const auto &[known, text] : client_) {
        if (known == keyword)
            value = text;
    }
    return value;
}

void Checkup::lookAtClientLibrary()
{
    const char *cure = "Install the storage client, or put its directory into LD_LIBRARY_PATH of "
                       "the database.";
    const std::string file = findClientLibrary(channel_.library);
    void *library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        return bad("client", shown(::dlerror()), cure);
    std::size_t count = 0;
    const char *const *operations = mtOperationNames(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (!::dlsym(library, operations[i]))
            return bad("client", fmt::format("{} has no {}", shown(file), operations[i]), cure);
    }
    good("client", fmt::format("{}, {}", shown(file), tools::counted(count, "operation")));
}

void Checkup::lookAtClientOptions()
{
    const std::string file = options_.clientFile();
    const std::string reason = whyUnreadable(file);
    if (!reason.empty())
        return bad("arca.opt", fmt::format("{} cannot be read: {}", shown(file), reason),
                   fmt::format("Make the storage client's option file, or name it as "
                               "HOXI_ORC_CONFIG in {}.",
                               shown(options_.file())));
    client_ = readOptionLines(file);
    if (clientOption("REPOSITORY").empty())
        bad("arca.opt", fmt::format("{} names no REPOSITORY", shown(file)),
            "Add the line: REPOSITORY file:///srv/arca/repository (the place that you choose).");
    else
        good("arca.opt", shown(file));
}

void Checkup::lookAtPassword()
{
    const bool prompt = tools::lowered(clientOption("PASSWORDACCESS")) == "prompt";
    const std::string node = options_.value("VELO_NODE");
    const std::string file =
        prompt ? options_.passwordDirectory() + "/VELO." + node : options_.clientFile() + ".keys";
    if (prompt && node.empty())
        return bad("password", "PASSWORDACCESS is prompt, and VELO_NODE names no node",
                   fmt::format("Set VELO_NODE in {} and run keel passwd, or set PASSWORDACCESS "
                               "generate in {}.",
                               shown(options_.file()), shown(options_.clientFile())));
    if (const std::string reason = whyUnreadable(file); !reason.empty())
        return bad("password", fmt::format("{} cannot be read: {}", shown(file), reason),
                   prompt ? "Run keel passwd as the user that the database runs as."
                          : fmt::format("Run as the user that the database runs as: arca init "
                                        "--optfile {}",
                                        shown(options_.clientFile())));
    struct stat status = {};
    if (!prompt && ::stat(file.c_str(), &status) == 0 && (status.st_mode & 077) != 0)
        return warn("password", fmt::format("others may read {}", shown(file)),
                    fmt::format("Run: chmod 600 {}", shown(file)));
    good("password", shown(file));
}

void Checkup::lookAtRepository()
{
    const auto named = arca::blob::directoryNamed(clientOption("REPOSITORY"));
    if (!named)
        return; // tryPiece() reports it
    const std::string &directory = *named;
    struct stat status = {};
    if (::stat(directory.c_str(), &status) != 0)
        return bad("repository", fmt::format("{}: {}", shown(directory), std::strerror(errno)),
                   fmt::format("Mount its file system; if it was never made, run: arca init "
                               "--optfile {}",
                               shown(options_.clientFile())));
    if (!mayAccess(directory, R_OK | W_OK | X_OK))
        return bad("repository", fmt::format("{}: {}", shown(directory), std::strerror(errno)),
                   "Give the directory, with all in it, to the user that the database runs as.");
    good("repository", shown(directory));
    lookAtDamage(directory);
    lookAtSpace("space", directory,
                "Free space there: arca rm or expire, then arca reclaim --grace 0.");
    lookAtSpace("logspace", options_.logDirectory(),
                "Free space there: put away logs and traces that nobody needs any more, or set "
                "HOXI_LOG to another directory.");
}

void Checkup::lookAtSpace(const std::string &check, const std::string &directory,
                          const std::string &cure)
{
    constexpr std::uint64_t kTooLittle = std::uint64_t{64} << 20;
    struct statvfs space = {};
    if (::statvfs(directory.c_str(), &space) != 0)
        return; // another check has reported that the directory is not there
    const std::uint64_t free = std::uint64_t{space.f_bavail} * space.f_frsize;
    const std::uint64_t all = std::uint64_t{space.f_blocks} * space.f_frsize;
    const std::string text =
        fmt::format("{} free in {}", tools::byteText(static_cast<double>(free)), shown(directory));
    if (free < kTooLittle || (space.f_files != 0 && space.f_favail < 16))
        bad(check, text, cure);
    else if (free < all / 20)
        warn(check, text, "It is less than a twentieth: make room before the next backup.");
    else
        good(check, text);
}

/// Removes the piece that could not be read back, on a channel of its own: the other one may be of
/// no use any more. Returns a clause when the piece is still there, else nothing.
std::string Checkup::dropSample(const std::string &name) const
{
    try {
        const auto channel = openChannel(channel_);
        channel->remove({name});
        if (!channel->info({name}).front().found)
            return "";
    } catch (const Failure &) {
        // As below: it is still there.
    }
    return fmt::format("; the piece {} is still there (keel remove {} --yes)", name, name);
}

void Checkup::tryPiece()
{
    const auto logs = errorLogs();
    bool stored = false;
    const std::string name = fmt::format("keel-doctor-{}-{}", ::getpid(), std::time(nullptr));
    const std::string stream = sampleStream();
    const char *step = "session";
    try {
        const auto channel = openChannel(channel_);
        channel->beginBackup(name, {}, kBlock);
        good("session", "the agent logs on and may store");
        step = "piece";
        stored = true; // perhaps, from here on
        sendAll(*channel, stream);
        const bool same = fetch(*channel, name) == stream;
        channel->remove({name});
        if (!same)
            return bad(step, "what came back is not what was stored",
                       "Run arca verify --read-data, and have the memory and the disks examined.");
        if (channel->info({name}).front().found)
            return bad(step, fmt::format("{} was removed, and is still there", name),
                       fmt::format("Mend what failed above{}.", grownLog(logs, errorLogs())));
        good(step, "stored, read back, compared, removed");
    } catch (const Failure &failure) {
        const std::string more = grownLog(logs, errorLogs());
        const std::string code =
            failure.sbtCode() == 0 ? "" : fmt::format("SBT {}: ", failure.sbtCode());
        bad(step, code + failure.what() + (stored ? dropSample(name) : ""),
            fmt::format("Mend what failed above{}.", more));
    } catch (...) { // no memory, say
        if (stored)
            (void)dropSample(name);
        throw;
    }
}

} // namespace keel
