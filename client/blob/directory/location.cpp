// Places of repositories: see the header.
#include "client/blob/directory/location.h"

#include "client/base/descriptor.h"
#include "client/base/text.h"
#include "client/blob/directory/directory_store.h"
#include "client/blob/directory/location_text.h"
#include "client/blob/files/place.h"
#include "client/blob/temporary_name.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace arca::blob
{

Result<Location> Location::parse(std::string_view text)
{
    if (!text.starts_with(kDirectoryScheme) ||
        !text.substr(kDirectoryScheme.size()).starts_with('/'))
        return Error{ErrorKind::badOption, "'" + printable(text) +
                                               "' does not name a repository; write "
                                               "file:// and an absolute path, as in "
                                               "file:///srv/arca/repository"};
    auto path = directoryNamed(text);
    if (!path)
        return Error{ErrorKind::badOption, "'" + printable(text.substr(kDirectoryScheme.size())) +
                                               "' has a '%' that no two hexadecimal digits "
                                               "follow; write %25 for the character itself"};
    return Location{std::move(*path)};
}

/// Whether a file that this process makes there belongs to `owner` all the same: a file server may
/// map every user to one. Of the file nothing stays.
static bool givesFilesTo(uid_t owner, const std::string &directory)
{
    const auto name = newTemporaryName({});
    if (!name)
        return false;
    const auto place = Place::find(directory, directory + "/" + *name, "creating");
    if (!place)
        return false;
    int file = -1;
#ifdef O_TMPFILE
    file = openAboveAt(place->directory(), ".", O_TMPFILE | O_WRONLY);
#endif
    if (file < 0) { // a file system that knows no files without a name
        file = openAboveAt(place->directory(), place->name(),
                           O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW);
        if (file < 0)
            return false;
        (void)::unlinkat(place->directory(), place->name(), 0);
    }
    struct stat made = {};
    const bool given = ::fstat(file, &made) == 0 && made.st_uid == owner;
    ::close(file);
    return given;
}

/// Sessions write, also those that only read pieces: claims, locks, records of who logged on. What
/// another user than the owner writes, root above all, the owner cannot open, lock or remove any
/// more. Only where nothing can be written it does not matter who reads.
static Result<void> expectOwner(const std::string &directory)
{
    struct stat marker = {};
    struct statvfs system = {};
    const uid_t own = ::geteuid();
    if (::lstat((directory + "/format").c_str(), &marker) != 0 || marker.st_uid == own)
        return {};
    const bool readOnly =
        ::statvfs(directory.c_str(), &system) == 0 && (system.f_flag & ST_RDONLY) != 0;
    if (readOnly || givesFilesTo(marker.st_uid, directory))
        return {};
    return Error{ErrorKind::denied,
                 "the repository " + directory + " belongs to the user with the number " +
                     std::to_string(marker.st_uid) + ", and this process runs as number " +
                     std::to_string(own) + "; run it as the repository's owner"};
}

Result<std::unique_ptr<BlobStore>> openStore(const Location &location)
{
    ARCA_TRY(const bool present, systemFiles().isDirectory(location.directory));
    if (!present)
        return Error{ErrorKind::noRepository, "there is no directory " + location.directory};
    ARCA_CHECK(expectOwner(location.directory));
    return std::unique_ptr<BlobStore>(std::make_unique<DirectoryStore>(location.directory));
}

/// Each new directory is made to survive the loss of power before anything is put into it.
static Result<void> makeDirectories(const std::string &path)
{
    FileLayer &files = systemFiles();
    ARCA_TRY(const bool present, files.isDirectory(path));
    if (present)
        return {};
    const auto slash = path.rfind('/');
    const std::string parent = slash == 0 ? "/" : path.substr(0, slash);
    ARCA_CHECK(makeDirectories(parent));
    auto made = files.makeDirectory(path);
    if (!made && made.error().kind != ErrorKind::exists)
        return made;
    return files.syncDirectory(parent);
}

/// A directory that was made ready for another user is no place for a repository of root.
static Result<void> expectOwnDirectory(const std::string &directory)
{
    struct stat status = {};
    if (::geteuid() != 0 || ::stat(directory.c_str(), &status) != 0 || status.st_uid == 0)
        return {};
    return Error{ErrorKind::denied, "the directory " + directory +
                                        " belongs to the user with the number " +
                                        std::to_string(status.st_uid) +
                                        ", and this process runs as root; run it as that user"};
}

Result<std::unique_ptr<BlobStore>> prepareStore(const Location &location)
{
    ARCA_CHECK(expectOwnDirectory(location.directory));
    ARCA_CHECK(makeDirectories(location.directory));
    std::string stranger;
    ARCA_CHECK(systemFiles().list(location.directory, [&](const std::string &name) {
        // What an interrupted beginning leaves behind is no obstacle to the next one.
        if (name != "tmp" && name != "locks" && name != "lost+found")
            stranger = name;
        return stranger.empty();
    }));
    if (!stranger.empty())
        return Error{ErrorKind::exists, location.directory + " is not empty (there is '" +
                                            printable(stranger) +
                                            "' in it); name a new or an empty directory"};
    return std::unique_ptr<BlobStore>(std::make_unique<DirectoryStore>(location.directory));
}

} // namespace arca::blob
