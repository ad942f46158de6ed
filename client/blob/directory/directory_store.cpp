// The blob store in a local directory: see the header for the layout.
//
// The order of a commit is what makes it safe: content synced, then one link under the final name,
// then every directory on the way synced. Whenever the machine stops, the name is either absent or
// leads to the whole blob; and it is there for good before commit() returns.
//
// A process that named a blob, or took its name away, may have died before the sync. So an answer
// that a name is taken, or gone, is synced first: the caller counts on it as on its own work.
#include "client/blob/directory/directory_store.h"

#include "client/blob/directory/directory_reader.h"
#include "client/blob/temporary_name.h"

namespace arca::blob
{

DirectoryStore::DirectoryStore(std::string root, std::chrono::milliseconds patience)
    : root_(std::move(root)), own_(filesBelow(root_)), files_(*own_), patience_(patience)
{
}

DirectoryStore::DirectoryStore(std::string root, FileLayer &files,
                               std::chrono::milliseconds patience)
    : root_(std::move(root)), files_(files), patience_(patience)
{
}

DirectoryStore::~DirectoryStore() = default;

Result<std::unique_ptr<BlobWriter>> DirectoryStore::begin(const std::string &whose)
{
    ARCA_TRY(auto writer, beginWriter(whose));
    return std::unique_ptr<BlobWriter>(std::move(writer));
}

Result<std::unique_ptr<DirectoryWriter>> DirectoryStore::beginWriter(const std::string &whose)
{
    ARCA_CHECK(ensureDirectory("tmp"));
    for (int attempt = 0; attempt < 100; ++attempt) {
        ARCA_TRY(std::string temporary, newTemporaryName(whose));
        WritersStore &self = *this; // a private base
        auto writer = std::make_unique<DirectoryWriter>(self, std::move(temporary));
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

Result<bool> DirectoryStore::link(const std::string &from, BlobReader &opened,
                                  const std::string &to)
{
    ARCA_CHECK(expectBlobName(from));
    ARCA_CHECK(expectBlobName(to));
    const std::string directory = to.substr(0, to.rfind('/'));
    ARCA_CHECK(ensureDirectory(directory));
    const auto linked = files_.link(pathOf(from), pathOf(to));
    if (!linked)
        return afterSync(to, linked.error());
    if (!*linked)
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
    const auto present = files_.open(pathOf(name));
    if (!present)
        return afterSync(name, present.error());
    ARCA_TRY(const FileIdentity there, (*present)->identity());
    ARCA_TRY(const FileIdentity meant, static_cast<DirectoryReader &>(opened).file().identity());
    if (there != meant)
        return afterSync(name,
                         {ErrorKind::notFound, "the blob " + name + " was replaced meanwhile"});
    if (const auto gone = files_.unlink(pathOf(name)); !gone)
        return afterSync(name, gone.error());
    const auto slash = name.rfind('/');
    return files_.syncDirectory(pathOf(slash == std::string::npos ? "" : name.substr(0, slash)));
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
            return afterSync(name, std::move(moved).error());
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

/// With the directories on the way: who made one may not have come to syncing its entry. Of a
/// directory that is not there nothing is to be synced, as none is ever removed.
Result<void> DirectoryStore::sync(const std::string &name)
{
    const auto slash = name.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : name.substr(0, slash);
    auto synced = files_.syncDirectory(pathOf(directory));
    if (!synced)
        return synced.error().kind == ErrorKind::notFound ? Result<void>() : std::move(synced);
    {
        const std::lock_guard hold(mutex_);
        if (directory.empty() || durable_.contains(directory))
            return {};
    }
    ARCA_CHECK(sync(directory));
    const std::lock_guard hold(mutex_);
    durable_.insert(directory);
    return {};
}

Result<void> DirectoryStore::syncListed(const std::string &prefix)
{
    auto listed = files_.entries(pathOf(prefix), {}, false);
    if (!listed)
        return listed.error().kind == ErrorKind::notFound ? Result<void>() : listed.error();
    for (const FileLayer::Entry &entry : *listed)
        if (entry.state.directory)
            ARCA_CHECK(files_.syncDirectory(pathOf(prefix + entry.name)));
    return sync(prefix);
}

/// What is answered about a name, `exists` or `notFound`, once it is sure to stay so.
Error DirectoryStore::afterSync(const std::string &name, Error found)
{
    if (found.kind != ErrorKind::exists && found.kind != ErrorKind::notFound)
        return found;
    auto synced = sync(name);
    return synced ? found : std::move(synced).error();
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
