// The blob store in a local directory: see the header for the layout.
//
// The order of a commit is what makes it safe: content synced, then one link under the final name,
// then every directory on the way synced. Whenever the machine stops, the name is either absent or
// leads to the whole blob; and it is there for good before commit() returns.
#include "client/blob/directory_store.h"

#include "client/base/hash.h"
#include "client/base/text.h"
#include "client/blob/parking.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <new>
#include <thread>
#include <unistd.h>

namespace arca::blob
{

namespace
{

constexpr std::size_t kPortion = std::size_t{4} << 20;

/// Together as much as rewriting half a pack takes, and then some for records. In several files, as
/// whoever is writing at that moment may take what was given up.
constexpr int kReserveFiles = 6;
constexpr std::uint64_t kReserveFileBytes = std::uint64_t{4} << 20;

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// Of each, whether the process had a handler when a store was opened or a lock waited for.
std::atomic<bool> wasHandled[std::size(kEndingSignals)];

bool isHandled(int number)
{
    struct sigaction now = {};
    return ::sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_DFL &&
           now.sa_handler != SIG_IGN;
}

void noteHandledSignals()
{
    for (std::size_t i = 0; i < std::size(kEndingSignals); ++i)
        if (isHandled(kEndingSignals[i]))
            wasHandled[i] = true;
}

/// A program that ends in order handles the first signal only: its handler goes as it is called
/// (SA_RESETHAND), and a second signal ends the program. So a handler that is gone says that the
/// process is to end. Nothing is set here: the process may be a host's.
bool endIsWanted()
{
    for (std::size_t i = 0; i < std::size(kEndingSignals); ++i)
        if (wasHandled[i] && !isHandled(kEndingSignals[i]))
            return true;
    return false;
}

struct Free {
    void operator()(std::byte *bytes) const { std::free(bytes); }
};
using Portion = std::unique_ptr<std::byte, Free>;

/// Memory for one portion, touched only as far as it is used.
Portion allocatePortion()
{
    Portion portion(static_cast<std::byte *>(std::aligned_alloc(kTransferUnit, kPortion)));
    if (!portion)
        throw std::bad_alloc();
    return portion;
}

/// What a blob's bytes are gathered in until they make a portion.
class GatherBuffer
{
public:
    /// Takes as much as there is room for, and tells how much.
    std::size_t take(ByteView bytes)
    {
        const std::size_t length = std::min(bytes.size(), kPortion - used_);
        std::copy_n(bytes.begin(), length, bytes_.get() + used_);
        used_ += length;
        return length;
    }
    bool isFull() const { return used_ == kPortion; }
    ByteView content() const { return {bytes_.get(), used_}; }
    void clear() { used_ = 0; }
    /// Gives the memory back; nothing can be taken any more.
    void release()
    {
        bytes_.reset();
        used_ = 0;
    }

private:
    Portion bytes_ = allocatePortion();
    std::size_t used_ = 0;
};

class DirectoryReader final : public BlobReader
{
public:
    DirectoryReader(std::unique_ptr<File> file, std::uint64_t size)
        : file_(std::move(file)), size_(size)
    {
    }

    std::uint64_t size() const override { return size_; }
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) override
    {
        return file_->readAt(offset, into);
    }
    void readAhead(std::uint64_t offset, std::uint64_t length) override
    {
        file_->readAhead(offset, length);
    }
    File &file() { return *file_; }

private:
    std::unique_ptr<File> file_;
    std::uint64_t size_;
};

/// What a writer has written, through the writer's own file.
class WrittenReader final : public BlobReader
{
public:
    WrittenReader(File &file, std::uint64_t size) : file_(file), size_(size) {}

    std::uint64_t size() const override { return size_; }
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) override
    {
        return file_.readAt(offset, into);
    }
    void readAhead(std::uint64_t offset, std::uint64_t length) override
    {
        file_.readAhead(offset, length);
    }

private:
    File &file_;
    const std::uint64_t size_;
};

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

Result<std::string> temporaryName()
{
    Bytes random(8);
    ARCA_CHECK(fillRandom(random));
    return "tmp/" + std::to_string(getpid()) + "-" + toHex(random);
}

/// Between the name of a claim and the rest of the name of what is parked under it.
constexpr char kParked = '.';

/// The file in tmp whose lock says that the writer of this one lives.
std::string lockedFor(const std::string &fileName)
{
    return fileName.substr(0, fileName.find(kParked));
}

/// Where locks do not exclude two descriptors of one process, a process must not take its own
/// writers for dead ones; its own dead ones wait for another process.
bool ownedByThisProcess([[maybe_unused]] const std::string &fileName)
{
#if __has_include(<sys/file.h>)
    return false;
#else
    return fileName.starts_with(std::to_string(getpid()) + "-");
#endif
}

} // namespace

class DirectoryWriter final : public BlobWriter, public ParkingWriter
{
public:
    DirectoryWriter(DirectoryStore &store, std::string temporary)
        : store_(store), temporary_(std::move(temporary))
    {
    }

    ~DirectoryWriter() override
    {
        if (file_ || parked_)
            (void)store_.files_.unlink(store_.pathOf(temporary_));
    }

    /// Makes the file and takes the lock that shows the writer alive. False when the name was
    /// taken, or when a cleaner came between the two and took the file for a dead writer's.
    Result<bool> claim()
    {
        auto created = store_.files_.create(store_.pathOf(temporary_));
        if (!created && created.error().kind == ErrorKind::exists)
            return false;
        ARCA_TRY(file_, std::move(created));
        ARCA_TRY(const bool locked, file_->lock());
        if (!locked)
            return false;
        return file_->hasName();
    }

    /// Instead of append(): space that nobody else gets, whatever is in it.
    Result<void> allocate(std::uint64_t bytes) { return file_->allocate(bytes); }

    Result<void> append(ByteView bytes) override
    {
        while (!bytes.empty()) {
            bytes = bytes.subspan(gathered_.take(bytes));
            if (gathered_.isFull()) {
                ARCA_CHECK(file_->write(gathered_.content()));
                gathered_.clear();
            }
        }
        return {};
    }

    Result<std::unique_ptr<BlobReader>> readBack() override
    {
        ARCA_CHECK(writeRest());
        ARCA_TRY(const std::uint64_t size, file_->size());
        return std::unique_ptr<BlobReader>(std::make_unique<WrittenReader>(*file_, size));
    }

    /// The name goes on with that of the claim, which tells others whose lock to look for.
    Result<void> park(const BlobWriter &claim) override
    {
        ARCA_CHECK(writeRest());
        // Now: a file that is opened again may not be told what went wrong before.
        ARCA_CHECK(file_->sync());
        gathered_.release();
        const std::string &owner = static_cast<const DirectoryWriter &>(claim).temporary_;
        std::string parked = owner + kParked + temporary_.substr(temporary_.rfind('-') + 1);
        ARCA_CHECK(store_.files_.moveNew(store_.pathOf(temporary_), store_.pathOf(parked)));
        temporary_ = std::move(parked);
        parked_ = true;
        file_.reset();
        return {};
    }

    Result<void> commit(const std::string &name, Unsure unsure) override
    {
        if (parked_) {
            ARCA_TRY(file_, store_.files_.openForLocking(store_.pathOf(temporary_), false));
            parked_ = false;
        } else {
            ARCA_CHECK(writeRest());
            ARCA_CHECK(file_->sync());
        }
        ARCA_CHECK(store_.publish(temporary_, name, *file_, unsure));
        file_.reset();
        return {};
    }

private:
    /// In two portions, so that most of a large rest can go the fast way.
    Result<void> writeRest()
    {
        const ByteView rest = gathered_.content();
        const ByteView units = rest.first(rest.size() - rest.size() % kTransferUnit);
        if (!units.empty())
            ARCA_CHECK(file_->write(units));
        if (units.size() != rest.size())
            ARCA_CHECK(file_->write(rest.subspan(units.size())));
        gathered_.clear();
        return {};
    }

    DirectoryStore &store_;
    std::unique_ptr<File> file_; // null before claim(), parked, and once the name is the blob's
    bool parked_ = false;
    std::string temporary_;
    GatherBuffer gathered_;
};

DirectoryStore::DirectoryStore(std::string root, FileLayer &files,
                               std::chrono::milliseconds patience)
    : root_(std::move(root)), files_(files), patience_(patience)
{
    noteHandledSignals();
}

DirectoryStore::~DirectoryStore() = default;

Result<std::unique_ptr<BlobWriter>> DirectoryStore::begin()
{
    ARCA_TRY(auto writer, beginWriter());
    return std::unique_ptr<BlobWriter>(std::move(writer));
}

Result<std::unique_ptr<DirectoryWriter>> DirectoryStore::beginWriter()
{
    ARCA_CHECK(ensureDirectory("tmp"));
    for (int attempt = 0; attempt < 100; ++attempt) {
        ARCA_TRY(std::string temporary, temporaryName());
        auto writer = std::make_unique<DirectoryWriter>(*this, std::move(temporary));
        ARCA_TRY(const bool mine, writer->claim());
        if (mine)
            return writer;
    }
    return Error{ErrorKind::io, "no temporary file can be kept in " + pathOf("tmp")};
}

Result<std::unique_ptr<BlobReader>> DirectoryStore::open(const std::string &name)
{
    ARCA_CHECK(expectBlobName(name));
    ARCA_TRY(auto file, files_.open(pathOf(name)));
    ARCA_TRY(const std::uint64_t size, file->size());
    return std::unique_ptr<BlobReader>(std::make_unique<DirectoryReader>(std::move(file), size));
}

Result<void> DirectoryStore::list(const std::string &prefix,
                                  const std::function<bool(const std::string &)> &visit)
{
    return listStamped(prefix, [&](const std::string &name, std::uint64_t) { return visit(name); });
}

Result<void>
DirectoryStore::listStamped(const std::string &prefix,
                            const std::function<bool(const std::string &, std::uint64_t)> &visit)
{
    const auto slash = prefix.rfind('/');
    bool goOn = true;
    return walk(slash == std::string::npos ? "" : prefix.substr(0, slash + 1), prefix, visit, goOn);
}

Result<void>
DirectoryStore::walk(const std::string &directory, const std::string &prefix,
                     const std::function<bool(const std::string &, std::uint64_t)> &visit,
                     bool &goOn)
{
    std::vector<std::string> below;
    auto listed = files_.list(pathOf(directory), [&](const std::string &entry) {
        if (std::string name = directory + entry; name.starts_with(prefix))
            below.push_back(std::move(name));
        return true;
    });
    if (!listed && listed.error().kind == ErrorKind::notFound)
        return {};
    ARCA_CHECK(std::move(listed));
    for (const std::string &name : below) {
        if (name == "tmp" || name == "locks" || name == "reserve" || name == "cache")
            continue;
        ARCA_TRY(const FileLayer::State entry, files_.state(pathOf(name)));
        if (entry.directory)
            ARCA_CHECK(walk(name + "/", prefix, visit, goOn));
        else
            goOn = goOn && visit(name, entry.stamp);
        if (!goOn)
            break;
    }
    return {};
}

Result<bool> DirectoryStore::link(const std::string &from, BlobReader &opened,
                                  const std::string &to)
{
    ARCA_CHECK(expectBlobName(from));
    ARCA_CHECK(expectBlobName(to));
    const std::string directory = to.substr(0, to.rfind('/'));
    ARCA_CHECK(ensureDirectory(directory));
    ARCA_TRY(const bool linked, files_.link(pathOf(from), pathOf(to)));
    if (!linked)
        return false;
    // Before the look, as a server may tell only now that the name did not come about.
    ARCA_CHECK(files_.syncDirectory(pathOf(directory)));
    if (!leadsTo(to, static_cast<DirectoryReader &>(opened).file())) {
        // A caller takes notFound for done, so it must be certain.
        ARCA_TRY(const auto present, files_.open(pathOf(from)));
        // Only what was linked by mistake goes: the blob that has the first name by now. Any other
        // one came under that name since, and is another's.
        takeBack(to, *present);
        ARCA_TRY(const FileIdentity there, present->identity());
        ARCA_TRY(const FileIdentity meant,
                 static_cast<DirectoryReader &>(opened).file().identity());
        if (there == meant)
            return Error{ErrorKind::io, "the blob " + from + " cannot be given a second name"};
        return Error{ErrorKind::notFound, "the blob " + from + " was replaced meanwhile"};
    }
    return true;
}

Result<void> DirectoryStore::remove(const std::string &name, BlobReader &opened)
{
    ARCA_CHECK(expectBlobName(name));
    // Only removals take a name away, and this lock keeps them apart; so between looking and
    // removing the name cannot come to lead to another blob. The reader keeps its file open, so
    // that its identity cannot be used again meanwhile.
    ARCA_TRY(const auto guard, lockRemoval(name));
    ARCA_TRY(const auto present, files_.open(pathOf(name)));
    ARCA_TRY(const FileIdentity there, present->identity());
    ARCA_TRY(const FileIdentity meant, static_cast<DirectoryReader &>(opened).file().identity());
    if (there != meant)
        return Error{ErrorKind::notFound, "the blob " + name + " was replaced meanwhile"};
    ARCA_CHECK(files_.unlink(pathOf(name)));
    return files_.syncDirectory(pathOf(name.substr(0, name.rfind('/'))));
}

Result<std::vector<std::string>> DirectoryStore::namesIn(const char *directory)
{
    std::vector<std::string> found;
    auto listed = files_.list(pathOf(directory), [&](const std::string &entry) {
        found.push_back(entry);
        return true;
    });
    if (!listed && listed.error().kind != ErrorKind::notFound)
        return std::move(listed).error();
    return found;
}

Result<void> DirectoryStore::removeLeftovers()
{
    ARCA_TRY(const auto found, namesIn("tmp"));
    for (const std::string &entry : found) {
        if (ownedByThisProcess(entry))
            continue;
        // Its writer may end, or another cleaner come first, at any moment: neither is a failure.
        const std::string owner = lockedFor(entry);
        auto file = files_.openForLocking(pathOf("tmp/" + owner), false);
        const bool isOrphan = !file && file.error().kind == ErrorKind::notFound && owner != entry;
        if (!file && !isOrphan)
            continue;
        const auto locked = file ? (*file)->lock() : Result<bool>(true);
        if (locked && *locked)
            (void)files_.unlink(pathOf("tmp/" + entry));
    }
    return {};
}

Result<std::set<std::string>> DirectoryStore::livingWriters()
{
    ARCA_TRY(const auto found, namesIn("tmp"));
    std::set<std::string> living;
    for (const std::string &entry : found) {
        if (lockedFor(entry) != entry)
            continue; // the claim stands for it
        auto file = files_.openForLocking(pathOf("tmp/" + entry), false);
        if (!file && file.error().kind == ErrorKind::notFound)
            continue;
        ARCA_TRY(const auto opened, std::move(file));
        // A writer that is only about to lock its new file finds it locked, and takes another one:
        // it began after us.
        ARCA_TRY(const bool dead, opened->lock());
        if (!dead || ownedByThisProcess(entry))
            living.insert(entry);
    }
    return living;
}

void DirectoryStore::keepReserve()
{
    const auto found = namesIn("reserve");
    for (int n = 1; found && n <= kReserveFiles; ++n) {
        const std::string name = std::to_string(n);
        if (std::find(found->begin(), found->end(), name) != found->end())
            continue;
        const auto writer = beginWriter();
        if (!writer || !(*writer)->allocate(kReserveFileBytes) ||
            !(*writer)->commit("reserve/" + name, Unsure::leave))
            return;
    }
}

bool DirectoryStore::giveUpReserve()
{
    const auto found = namesIn("reserve");
    if (!found)
        return false;
    for (const std::string &entry : *found) {
        // Another one may have been quicker.
        if (!files_.unlink(pathOf("reserve/" + entry)))
            continue;
        // Some file systems free what was removed only with that.
        (void)files_.syncDirectory(pathOf("reserve"));
        return true;
    }
    return false;
}

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

bool DirectoryStore::leadsTo(const std::string &name, File &file)
{
    const auto there = files_.open(pathOf(name));
    const auto meant = file.identity();
    const auto found = there ? (*there)->identity() : Result<FileIdentity>(there.error());
    return meant && found && *meant == *found;
}

Result<void> DirectoryStore::publish(const std::string &temporary, const std::string &name,
                                     File &written, Unsure unsure)
{
    ARCA_CHECK(expectBlobName(name));
    const std::string directory = name.substr(0, name.rfind('/') + 1);
    if (!directory.empty())
        ARCA_CHECK(ensureDirectory(directory.substr(0, directory.size() - 1)));
    auto moved = files_.moveNew(pathOf(temporary), pathOf(name));
    if (!moved) {
        // A file server that answers a repeated request says `exists` of what the first one did.
        if (!leadsTo(name, written))
            return moved;
        (void)files_.unlink(pathOf(temporary));
    }
    auto synced = files_.syncDirectory(pathOf(directory));
    if (synced)
        return {};
    if (unsure == Unsure::takeBack)
        takeBack(name, written);
    else if (leadsTo(name, written))
        // Others may count on it by now, so it stays. An entry of a directory is not dropped by a
        // sync that failed, as the content of a file may be: the next one tells what holds.
        return files_.syncDirectory(pathOf(directory));
    return synced;
}

/// Under the lock of removals, or the name could lead to another blob by the time it is unlinked.
void DirectoryStore::takeBack(const std::string &name, File &written)
{
    const auto guard = lockRemoval(name);
    if (guard && leadsTo(name, written))
        (void)files_.unlink(pathOf(name));
}

Result<void> DirectoryStore::sync(const std::string &name)
{
    return files_.syncDirectory(pathOf(name.substr(0, name.rfind('/') + 1)));
}

Result<void> DirectoryStore::ensureDirectory(const std::string &relative)
{
    {
        const std::lock_guard hold(mutex_);
        if (durable_.contains(relative))
            return {};
    }
    const auto slash = relative.rfind('/');
    const std::string parent = slash == std::string::npos ? "" : relative.substr(0, slash);
    if (!parent.empty())
        ARCA_CHECK(ensureDirectory(parent));
    auto made = files_.makeDirectory(pathOf(relative));
    if (!made && made.error().kind != ErrorKind::exists)
        return made;
    // Also when it was there: whoever made it may not have come to syncing its entry yet.
    ARCA_CHECK(files_.syncDirectory(pathOf(parent)));
    const std::lock_guard hold(mutex_);
    durable_.insert(relative);
    return {};
}

} // namespace arca::blob
