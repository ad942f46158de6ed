// arca unlock: shows locks and claims, and removes what dead processes left. A lock ends with its
// process, so no lock has to be broken: the holder of one is alive.
#include "client/base/descriptor.h"
#include "client/blob/directory/location.h"
#include "client/blob/files/file_layer.h"
#include "client/blob/temporary_name.h"
#include "client/store/nodes/node_list.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/command.h"
#include "tools/arca/moment.h"
#include "tools/arca/object_text.h"
#include "tools/common/command/streams.h"
#include "tools/common/table.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

namespace fs = std::filesystem;

struct Held {
    std::string what;
    std::string process; // empty: not of this host
    std::int64_t age = 0;
    std::uint64_t bytes = 0;
    bool living = true;
    std::string file; // its name in tmp; a lock has none there
};

struct Leftovers {
    std::uint64_t count = 0, bytes = 0;
};

using Nodes = std::map<std::string, std::string>;

std::int64_t ageOf(const fs::path &file)
{
    std::error_code error;
    const auto written = fs::last_write_time(file, error);
    if (error)
        return 0;
    const auto age = fs::file_time_type::clock::now() - written;
    return std::chrono::duration_cast<std::chrono::seconds>(age).count();
}

std::uint64_t sizeOf(const fs::path &file)
{
    std::error_code error;
    const auto size = fs::file_size(file, error);
    return error ? 0 : size;
}

/// Returns "4711 (rman)"; empty when this host has no such process.
std::string processText(const std::string &number)
{
    std::ifstream file("/proc/" + number + "/comm");
    std::string name;
    if (!std::getline(file, name))
        return {};
    return number + " (" + name + ")";
}

/// Returns the number behind `key` in the first line of a file that begins with it; empty without
/// one.
std::string fieldOf(const std::string &file, const std::string &key)
{
    std::ifstream lines(file);
    for (std::string first, second; lines >> first;) {
        if (first == key && lines >> second)
            return second;
        std::getline(lines, second);
    }
    return {};
}

/// Returns the device of a directory as /proc/locks writes it, "fd:01:". It is that of the mount,
/// as the files of some file systems say that they have another one. Empty where that is not told.
std::string deviceOf(const std::string &directory)
{
    const int descriptor = openAbove(directory.c_str(), O_RDONLY | O_DIRECTORY);
    const std::string mount = fieldOf("/proc/self/fdinfo/" + std::to_string(descriptor), "mnt_id:");
    if (descriptor >= 0)
        ::close(descriptor);
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; !mount.empty() && std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string number, parent;
        unsigned major = 0, minor = 0;
        char colon = 0;
        if (fields >> number >> parent >> major >> colon >> minor && number == mount)
            return fmt::format("{:02x}:{:02x}:", major, minor);
    }
    return {};
}

/// Returns the process that holds a lock on the file, as far as /proc/locks shows it: it has a line
/// for each lock, with the process and the file as "major:minor:inode". `device` is from
/// deviceOf(): files of different file systems may have the same inode.
std::string holderOf(const std::string &device, std::uint64_t inode)
{
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number, kind, mode, access, process, file;
        fields >> number >> kind >> mode >> access >> process >> file;
        if (mode != "->" && !device.empty() && file == device + std::to_string(inode))
            return processText(process);
    }
    return {};
}

std::string purposeOf(const std::string &lock, const Nodes &nodes)
{
    const std::pair<std::string_view, std::string_view> purposes[] = {
        {"change-", "pieces are being removed or changed"},
        {"reclaim-", "packs are being reclaimed"},
        {"attempt-", "a password is being checked"},
        {"remove-", "a blob is being removed"},
    };
    for (const auto &[prefix, purpose] : purposes) {
        if (!lock.starts_with(prefix))
            continue;
        const auto node = nodes.find(lock.substr(prefix.size()));
        return (node == nodes.end() ? "a node that is gone" : "node " + node->second) + ": " +
               std::string(purpose);
    }
    return lock == "remove" ? "a blob is being removed" : lock;
}

Result<std::vector<std::string>> namesIn(const std::string &root, const char *directory)
{
    std::vector<std::string> names;
    const auto files = blob::filesBelow(root);
    auto listed = files->list(root + "/" + directory, [&](const std::string &name) {
        names.push_back(name);
        return true;
    });
    if (!listed && listed.error().kind != ErrorKind::notFound)
        return std::move(listed).error();
    return names;
}

/// Returns the locks that a process holds now.
Result<std::vector<Held>> locksIn(const std::string &root, const Nodes &nodes)
{
    std::vector<Held> held;
    ARCA_TRY(const auto names, namesIn(root, "locks"));
    const auto files = blob::filesBelow(root);
    const std::string device = deviceOf(root + "/locks");
    for (const std::string &name : names) {
        const std::string path = root + "/locks/" + name;
        auto file = files->openForLocking(path, false);
        if (!file)
            continue;
        ARCA_TRY(const bool ours, (*file)->lock());
        if (ours)
            continue; // free; `file` releases it at once
        ARCA_TRY(const blob::FileIdentity identity, (*file)->identity());
        held.push_back(
            {purposeOf(name, nodes), holderOf(device, identity.inode), ageOf(path), 0, true, {}});
    }
    return held;
}

/// Returns the claims of backups and restores that are running, and what dead ones left in tmp.
Result<std::vector<Held>> claimsIn(const std::string &root, blob::BlobStore &blobs)
{
    // In this order: a name that was there before, and is there afterwards without being among the
    // living, is of a dead one, and not of one that began or ended meanwhile.
    ARCA_TRY(const auto names, namesIn(root, "tmp"));
    ARCA_TRY(const auto living, blobs.livingWriters());
    std::vector<Held> held;
    for (const std::string &name : names) {
        if (!blob::isTemporaryName(name))
            continue; // not of the store, and not removed
        const fs::path path = root + "/tmp/" + name;
        const bool lives = living.contains(blob::lockedFor(name));
        std::error_code error;
        if (!lives && !fs::exists(fs::symlink_status(path, error)))
            continue;
        const std::string number(blob::processIn(name));
        const std::string process = lives ? processText(number) : number;
        held.push_back({lives ? "a backup or restore is under way" : "left by a process that died",
                        process, ageOf(path), sizeOf(path), lives, name});
    }
    return held;
}

Json jsonOf(const Held &held)
{
    return {{"what", held.what},
            {"process", held.process.empty() ? Json(nullptr) : Json(held.process)},
            {"seconds", held.age},
            {"bytes", held.bytes},
            {"living", held.living}};
}

void print(const std::vector<Held> &all)
{
    using tools::Align;
    tools::Table table({{"For", Align::kRight}, {"Process"}, {"Size", Align::kRight}, {"What"}});
    for (const Held &held : all)
        table.add({ageText(held.age), held.process.empty() ? "on another host" : held.process,
                   held.bytes == 0 ? "" : sizeText(held.bytes), held.what});
    if (!table.empty())
        tools::print("{}", table.text());
}

/// Counts what dead processes left. Of a file that is there `again`, nothing counts.
Leftovers leftoversAmong(const std::vector<Held> &all, const std::vector<std::string> &again = {})
{
    Leftovers sum;
    for (const Held &held : all) {
        if (held.living || std::ranges::find(again, held.file) != again.end())
            continue;
        ++sum.count;
        sum.bytes += held.bytes;
    }
    return sum;
}

void tell(const Leftovers &found, const Leftovers &removed, bool dryRun)
{
    const auto amount = [](const Leftovers &some) {
        return fmt::format("{} of processes that died, {}", some.count, sizeText(some.bytes));
    };
    const std::uint64_t left = found.count - removed.count;
    if (removed.count != 0)
        tools::print("Removed {}\n", amount(removed));
    if (left != 0 && dryRun)
        tools::print("{} {}\n", left == 1 ? "There is" : "There are", amount(found));
    else if (left != 0)
        tools::print("{} of processes that died could not be removed\n", left);
}

Result<void> unlock(const Command &command, bool dryRun, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    const std::string &root = repository->shownName();
    result["repository"] = root;
    ARCA_TRY(const Nodes nodes, store::nodesByKey(repository->blobs()));
    ARCA_TRY(std::vector<Held> all, locksIn(root, nodes));
    ARCA_TRY(const auto claims, claimsIn(root, repository->blobs()));
    all.insert(all.end(), claims.begin(), claims.end());
    Json &shown = result["held"] = Json::array();
    for (const Held &held : all)
        shown.push_back(jsonOf(held));
    const Leftovers found = leftoversAmong(all);
    Leftovers removed;
    if (!dryRun) {
        ARCA_CHECK(repository->blobs().removeLeftovers());
        ARCA_TRY(const auto left, namesIn(root, "tmp"));
        removed = leftoversAmong(all, left);
    }
    result["dryRun"] = dryRun;
    result["leftovers"] = found.count;
    result["leftoverBytes"] = found.bytes;
    result["removed"] = removed.count;
    if (command.json)
        return {};
    print(all);
    tell(found, removed, dryRun);
    if (found.count < all.size())
        tools::print("What is held is held by processes that live, and goes with them: wait for "
                     "them, or end them\n");
    if (all.empty())
        tools::print("Nothing is held, and nothing was left behind\n");
    return {};
}

} // namespace

void addUnlock(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb(
        "unlock", "Show who holds what in the repository, and clear up behind the dead");
    auto dryRun = std::make_shared<bool>(false);
    verb.addFlag("--dry-run", *dryRun, "Show it; remove nothing");
    addCommonOptions(verb, command);
    verb.footer("Example: arca unlock\n"
                "Locks go with their processes, so none is ever broken open: only what dead "
                "processes left behind is removed.");
    verb.onChosen([&command, dryRun] {
        command.verb = "unlock";
        command.run = [&command, dryRun](Json &result) { return unlock(command, *dryRun, result); };
    });
}

} // namespace arca::tool
