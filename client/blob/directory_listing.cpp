// Listing the blobs of a directory store.
#include "client/blob/directory_store.h"

namespace arca::blob
{

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

} // namespace arca::blob
