// Places of repositories: see the header.
#include "client/blob/location.h"

#include "client/base/text.h"
#include "client/blob/directory_store.h"

namespace arca::blob
{

static Result<std::string> percentDecoded(std::string_view text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            plain += text[i];
            continue;
        }
        const auto octet = fromHex(text.substr(i + 1, 2));
        if (!octet || octet->size() != 1 || octet->front() == std::byte{0})
            return Error{ErrorKind::badOption, "'" + printable(text) +
                                                   "' has a '%' that no two hexadecimal digits "
                                                   "follow; write %25 for the character itself"};
        plain += static_cast<char>(octet->front());
        i += 2;
    }
    return plain;
}

Result<Location> Location::parse(std::string_view text)
{
    constexpr std::string_view kScheme = "file://";
    if (!text.starts_with(kScheme) || !text.substr(kScheme.size()).starts_with('/'))
        return Error{ErrorKind::badOption, "'" + printable(text) +
                                               "' does not name a repository; write "
                                               "file:// and an absolute path, as in "
                                               "file:///srv/arca/repository"};
    ARCA_TRY(std::string path, percentDecoded(text.substr(kScheme.size())));
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return Location{path};
}

Result<std::unique_ptr<BlobStore>> openStore(const Location &location)
{
    ARCA_TRY(const bool present, systemFiles().isDirectory(location.directory));
    if (!present)
        return Error{ErrorKind::noRepository, "there is no directory " + location.directory};
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

Result<std::unique_ptr<BlobStore>> prepareStore(const Location &location)
{
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
