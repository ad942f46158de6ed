// The locks of a directory store: files in locks/, which stay, and say who holds them.
#include "client/blob/directory_store.h"

#include "client/base/text.h"
#include "client/blob/ending_signals.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <thread>
#include <unistd.h>

namespace arca::blob
{

namespace
{

constexpr std::size_t kMostNote = 512;

/// Who takes a lock now, for those who wait for it.
std::string noteOf(const std::string &doing)
{
    char host[256] = "";
    if (gethostname(host, sizeof host - 1) != 0)
        host[0] = '\0';
    return std::to_string(getpid()) + " " + std::to_string(std::time(nullptr)) + " " +
           (host[0] == '\0' ? "-" : host) + " " + doing;
}

/// What a note says, in words. It is of another process, of another host perhaps: the number tells
/// a person whom to look for, and nothing is decided by it.
std::string holderIn(const std::string &note)
{
    unsigned long process = 0;
    long long since = 0;
    char host[257] = "";
    int used = 0;
    if (std::sscanf(note.c_str(), "%lu %lld %256s %n", &process, &since, host, &used) != 3 ||
        used == 0)
        return "another process";
    const std::time_t seconds = static_cast<std::time_t>(since);
    std::tm when{};
    char text[32] = "?";
    if (gmtime_r(&seconds, &when) != nullptr)
        (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &when);
    return "process " + std::to_string(process) + " on " + printable(host) + " since " + text +
           " (" + printable(std::string_view(note).substr(static_cast<std::size_t>(used))) + ")";
}

class DirectoryLock final : public BlobLock
{
public:
    explicit DirectoryLock(std::unique_ptr<File> locked) : file_(std::move(locked)) {}
    /// What it said of its holder would be wrong from now on.
    ~DirectoryLock() override { file_->setNote({}); }

private:
    std::unique_ptr<File> file_;
};

} // namespace

/// Whoever frees space takes locks, so a full disk must not keep them away.
Result<std::unique_ptr<File>> DirectoryStore::openLock(const std::string &name)
{
    return withReserve(*this, [&]() -> Result<std::unique_ptr<File>> {
        ARCA_CHECK(ensureDirectory("locks"));
        return files_.openForLocking(pathOf("locks/" + name), true);
    });
}

Result<std::unique_ptr<BlobLock>> DirectoryStore::tryLock(const std::string &name,
                                                          const std::string &doing)
{
    ARCA_TRY(auto file, openLock(name));
    ARCA_TRY(const bool mine, file->lock());
    if (!mine)
        return std::unique_ptr<BlobLock>();
    file->setNote(noteOf(doing));
    return std::unique_ptr<BlobLock>(std::make_unique<DirectoryLock>(std::move(file)));
}

/// Asked for again and again, as a wait of the system's would not end by itself.
Result<std::unique_ptr<BlobLock>> DirectoryStore::lock(const std::string &name,
                                                       const std::string &doing)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestPause{50};
    const auto deadline = Clock::now() + patience_;
    noteHandledSignals();
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, kLongestPause)) {
        ARCA_TRY(auto mine, tryLock(name, doing));
        if (mine)
            return mine;
        const bool ended = endIsWanted();
        if (ended || Clock::now() >= deadline) {
            Error held = heldBy(name);
            return ended ? Error{ErrorKind::stopped, "ended by a signal; " + held.text} : held;
        }
        std::this_thread::sleep_for(pause);
    }
}

std::string DirectoryStore::holderOf(const std::string &lock)
{
    Bytes note(kMostNote);
    const auto file = openLock(lock);
    const auto got = file ? (*file)->readAt(0, note) : Result<std::size_t>(file.error());
    return holderIn(std::string(textOf(ByteView(note).first(got ? *got : 0))));
}

Error DirectoryStore::heldBy(const std::string &name)
{
    return {ErrorKind::conflict,
            "the lock " + pathOf("locks/" + name) + " is held by " + holderOf(name) +
                " and did not come free; try again later, or end that process"};
}

/// Locks keep the removals of one node apart, and those of others out of their way.
Result<std::vector<std::unique_ptr<BlobLock>>> DirectoryStore::lockRemoval(const std::string &name)
{
    std::vector<std::unique_ptr<BlobLock>> locks;
    const auto first = name.find('/');
    const auto second = first == std::string::npos ? first : name.find('/', first + 1);
    const std::string under =
        second == std::string::npos ? "others" : name.substr(first + 1, second - first - 1);
    ARCA_TRY(auto own, lock("remove-" + under, "removing a blob"));
    locks.push_back(std::move(own));
    // Only releases that have one lock for all nodes make this file, and may be at work.
    if (files_.openForLocking(pathOf("locks/remove"), false)) {
        ARCA_TRY(auto all, lock("remove", "removing a blob"));
        locks.push_back(std::move(all));
    }
    return locks;
}

} // namespace arca::blob
