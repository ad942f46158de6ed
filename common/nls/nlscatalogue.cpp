// One open message catalogue, and the check that comes before it is opened.
//
// What gencat writes with this C library, all numbers 32 bits wide in the machine's order:
//
//    0  magic   4  plane size P   8  plane depth D
//   12  P * D entries of (set + 1, message, offset of the text), then the same entries once more
//       in the other byte order
//       the texts, each ended by a NUL; offsets count from the first
//
// A lookup divides by P, walks D planes and adds the offset to the start of the texts without
// checking that any of them lies inside the file.
#include "common/nls/nlscatalogue.h"

#include "common/unx/psfile.h"
#include "common/ut/utmem.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr off_t maxFileSize = 16 * 1024 * 1024;
constexpr int textSet = 1;

bool readWhole(int descriptor, char *buffer, std::size_t size) noexcept
{
    std::size_t length = 0;
    while (length < size) {
        const ssize_t got = read(descriptor, buffer + length, size - length);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        length += static_cast<std::size_t>(got);
    }
    return true;
}

#if defined(__GLIBC__)
constexpr std::uint32_t catalogueMagic = 0x960408de;
constexpr std::size_t headerSize = 12;
constexpr std::size_t entrySize = 12;

std::uint32_t numberAt(const char *bytes) noexcept
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

bool contentsSound(const char *bytes, std::size_t size) noexcept
{
    if (size < headerSize || numberAt(bytes) != catalogueMagic || bytes[size - 1] != '\0')
        return false;
    const std::uint64_t entries = std::uint64_t{numberAt(bytes + 4)} * numberAt(bytes + 8);
    if (entries == 0 || entries > (size - headerSize) / (2 * entrySize))
        return false;
    const std::size_t textsAt = headerSize + 2 * entrySize * static_cast<std::size_t>(entries);
    if (textsAt >= size)
        return false;
    for (std::size_t i = 0; i < entries; ++i)
        if (numberAt(bytes + headerSize + i * entrySize + 8) >= size - textsAt)
            return false;
    return true;
}
#else
bool contentsSound(const char *, std::size_t size) noexcept
{
    return size > 0;
}
#endif

bool fileSound(int descriptor) noexcept
{
    struct stat file {
    };
    if (fstat(descriptor, &file) != 0 || file.st_size <= 0 || file.st_size > maxFileSize)
        return false;
    const auto size = static_cast<std::size_t>(file.st_size);
    const utOwned<char> bytes(static_cast<char *>(utMalloc(size)));
    return bytes != nullptr && readWhole(descriptor, bytes.get(), size) &&
           contentsSound(bytes.get(), size);
}
} // namespace

bool nlsCatalogueSound(const char *path) noexcept
{
    const int descriptor = psFileOpenDescriptor(path, O_RDONLY);
    if (descriptor < 0)
        return false;
    const bool sound = fileSound(descriptor);
    close(descriptor);
    return sound;
}

bool nlsCatalogue_t::open(const char *path) noexcept
{
    close();
    // A name without a slash would be searched for along the host's NLSPATH.
    if (path == nullptr || std::strchr(path, '/') == nullptr || !nlsCatalogueSound(path))
        return false;
    handle = catopen(path, 0);
    return isOpen();
}

void nlsCatalogue_t::close() noexcept
{
    if (isOpen())
        catclose(handle);
    handle = closed();
}

const char *nlsCatalogue_t::get(int msgNum, const char *absent) const noexcept
{
    return isOpen() ? catgets(handle, textSet, msgNum, absent) : absent;
}
