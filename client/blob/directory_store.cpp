// The blob store in a local directory: see the header for the layout.
//
// The order of a commit is what makes it safe: content synced, then one link under the final name,
// then every directory on the way synced. Whenever the machine stops, the name is either absent or
// leads to the whole blob; and it is there for good before commit() returns.
#include "client/blob/directory_store.h"

#include "client/base/hash.h"
#include "client/base/text.h"

#include <algorithm>
#include <unistd.h>

namespace arca::blob
{

namespace
{

// Written in large portions, and handed to the disk early so that the last sync has little left to
// do.
constexpr std::size_t kGather = std::size_t{256} << 10;
constexpr std::uint64_t kWriteBackEvery = std::uint64_t{8} << 20;

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

Result<std::string> temporaryName()
{
    Bytes random(8);
    ARCA_CHECK(fillRandom(random));
    return "tmp/" + std::to_string(getpid()) + "-" + toHex(random);
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

class DirectoryWriter final : public BlobWriter
{
public:
    DirectoryWriter(DirectoryStore &store, std::unique_ptr<File> file, std::string temporary)
        : store_(store), file_(std::move(file)), temporary_(std::move(temporary))
    {
        gathered_.reserve(kGather);
    }

    ~DirectoryWriter() override
    {
        if (file_)
            (void)store_.files_.unlink(store_.pathOf(temporary_));
    }

    /// Takes the lock that shows the writer alive; false when a cleaner was faster.
    Result<bool> claim()
    {
        ARCA_TRY(const bool locked, file_->lock(false));
        if (!locked)
            return false;
        return file_->hasName();
    }

    Result<void> append(ByteView bytes) override
    {
        if (gathered_.size() + bytes.size() > kGather)
            ARCA_CHECK(flush());
        if (bytes.size() >= kGather)
            return writeThrough(bytes);
        gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
        return {};
    }

    Result<void> commit(const std::string &name) override
    {
        ARCA_CHECK(flush());
        ARCA_CHECK(file_->sync());
        ARCA_CHECK(store_.publish(temporary_, name));
        file_.reset();
        return {};
    }

private:
    Result<void> flush()
    {
        ARCA_CHECK(writeThrough(gathered_));
        gathered_.clear();
        return {};
    }

    Result<void> writeThrough(ByteView bytes)
    {
        ARCA_CHECK(file_->write(bytes));
        written_ += bytes.size();
        if (written_ - handedOver_ >= kWriteBackEvery) {
            file_->startWriteBack(handedOver_, written_ - handedOver_);
            handedOver_ = written_;
        }
        return {};
    }

    DirectoryStore &store_;
    std::unique_ptr<File> file_; // null once the name belongs to the blob
    std::string temporary_;
    Bytes gathered_;
    std::uint64_t written_ = 0;
    std::uint64_t handedOver_ = 0;
};

DirectoryStore::DirectoryStore(std::string root, FileLayer &files)
    : root_(std::move(root)), files_(files)
{
}

DirectoryStore::~DirectoryStore() = default;

Result<std::unique_ptr<BlobWriter>> DirectoryStore::begin()
{
    ARCA_CHECK(ensureDirectory("tmp"));
    // A cleaner may come between creating and locking, take the file for a dead writer's and remove
    // it. Then it has no name any more, and another one is made.
    for (int attempt = 0; attempt < 100; ++attempt) {
        ARCA_TRY(const std::string temporary, temporaryName());
        auto created = files_.create(pathOf(temporary));
        if (!created && created.error().kind == ErrorKind::exists)
            continue;
        ARCA_TRY(auto file, std::move(created));
        auto writer = std::make_unique<DirectoryWriter>(*this, std::move(file), temporary);
        ARCA_TRY(const bool mine, writer->claim());
        if (mine)
            return std::unique_ptr<BlobWriter>(std::move(writer));
    }
    return Error{ErrorKind::io, "no temporary file can be kept in " + pathOf("tmp")};
}

Result<std::unique_ptr<BlobReader>> DirectoryStore::open(const std::string &name)
{
    ARCA_TRY(auto file, files_.open(pathOf(name)));
    ARCA_TRY(const std::uint64_t size, file->size());
    return std::unique_ptr<BlobReader>(std::make_unique<DirectoryReader>(std::move(file), size));
}

Result<void> DirectoryStore::list(const std::string &prefix,
                                  const std::function<bool(const std::string &)> &visit)
{
    const auto slash = prefix.rfind('/');
    bool goOn = true;
    return walk(slash == std::string::npos ? "" : prefix.substr(0, slash + 1), prefix, visit, goOn);
}

Result<void> DirectoryStore::walk(const std::string &directory, const std::string &prefix,
                                  const std::function<bool(const std::string &)> &visit, bool &goOn)
{
    std::vector<std::string> below;
    auto listed = files_.list(pathOf(directory), [&](const std::string &entry) {
        if ((directory + entry).starts_with(prefix))
            below.push_back(directory + entry);
        return true;
    });
    if (!listed && listed.error().kind == ErrorKind::notFound)
        return {};
    ARCA_CHECK(std::move(listed));
    for (const std::string &name : below) {
        if (name == "tmp" || name == "locks")
            continue;
        ARCA_TRY(const bool inner, files_.isDirectory(pathOf(name)));
        if (inner)
            ARCA_CHECK(walk(name + "/", prefix, visit, goOn));
        else
            goOn = goOn && visit(name);
        if (!goOn)
            break;
    }
    return {};
}

Result<void> DirectoryStore::remove(const std::string &name, BlobReader &opened)
{
    // Only removals take a name away, and this lock keeps them apart; so between looking and
    // removing the name cannot come to lead to another blob. The reader keeps its file open, so
    // that its identity cannot be used again meanwhile.
    ARCA_CHECK(ensureDirectory("locks"));
    ARCA_TRY(const auto guard, files_.openForLocking(pathOf("locks/remove"), true));
    ARCA_CHECK(guard->lock(true));
    ARCA_TRY(const auto present, files_.open(pathOf(name)));
    ARCA_TRY(const FileIdentity there, present->identity());
    ARCA_TRY(const FileIdentity meant, static_cast<DirectoryReader &>(opened).file().identity());
    if (there != meant)
        return Error{ErrorKind::notFound, "the blob " + name + " was replaced meanwhile"};
    ARCA_CHECK(files_.unlink(pathOf(name)));
    return files_.syncDirectory(pathOf(name.substr(0, name.rfind('/'))));
}

Result<void> DirectoryStore::removeLeftovers()
{
    std::vector<std::string> leftovers;
    auto listed = files_.list(pathOf("tmp"), [&](const std::string &entry) {
        if (!ownedByThisProcess(entry))
            leftovers.push_back("tmp/" + entry);
        return true;
    });
    if (!listed && listed.error().kind == ErrorKind::notFound)
        return {};
    ARCA_CHECK(std::move(listed));
    for (const std::string &name : leftovers) {
        // Its writer may end, or another cleaner come first, at any moment: neither is a failure.
        auto file = files_.openForLocking(pathOf(name), false);
        if (!file)
            continue;
        const auto locked = (*file)->lock(false);
        if (locked && *locked)
            (void)files_.unlink(pathOf(name));
    }
    return {};
}

Result<void> DirectoryStore::publish(const std::string &temporary, const std::string &name)
{
    const std::string directory = name.substr(0, name.rfind('/') + 1);
    if (!directory.empty())
        ARCA_CHECK(ensureDirectory(directory.substr(0, directory.size() - 1)));
    ARCA_CHECK(files_.moveNew(pathOf(temporary), pathOf(name)));
    auto synced = files_.syncDirectory(pathOf(directory));
    if (!synced) {
        // Whether the name would survive is unknown, so it must not be taken for committed.
        (void)files_.unlink(pathOf(name));
        return synced;
    }
    return {};
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
