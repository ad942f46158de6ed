// Written beside it and renamed: see the header.
#include "client/store/usage/cache_file.h"

#include "client/base/descriptor.h"
#include "client/blob/files/file_layer.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::store
{

Bytes readCacheFile(const std::string &directory, const std::string &name, std::size_t limit)
{
    if (directory.empty())
        return {};
    // The file layer opens regular files only and waits for none.
    const auto file = blob::systemFiles().open(directory + "/" + name);
    if (!file)
        return {};
    const auto size = (*file)->size();
    Bytes content(size ? static_cast<std::size_t>(std::min<std::uint64_t>(*size, limit)) : 0);
    const auto count = (*file)->readAt(0, content);
    content.resize(count ? *count : 0);
    return content;
}

void replaceCacheFile(const std::string &directory, const std::string &name, ByteView content)
{
    if (directory.empty())
        return;
    (void)makeDirectoryAt(AT_FDCWD, directory.substr(0, directory.rfind('/')).c_str());
    (void)makeDirectoryAt(AT_FDCWD, directory.c_str());
    const std::string path = directory + "/" + name;
    const std::string fresh = path + "." + std::to_string(getpid());
    blob::FileLayer &files = blob::systemFiles();
    (void)files.unlink(fresh); // of a process that had the number before and was killed
    auto file = files.create(fresh);
    if (!file)
        return;
    if (!(*file)->write(content) || std::rename(fresh.c_str(), path.c_str()) != 0)
        (void)files.unlink(fresh);
}

} // namespace arca::store
