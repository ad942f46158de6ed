// One message catalogue: its bytes, checked once and kept.
//
// What gencat writes with this C library, all numbers 32 bits wide in the machine's order:
//
//    0  magic   4  plane size P   8  plane depth D
//   12  P * D entries of (set + 1, message, offset of the text), then the same entries once more
//       in the other byte order
//       the texts, each ended by a NUL; offsets count from the first
//
// The library's own reader walks them without checking that a text lies inside the file, and maps
// the file: who cuts it in place, as by copying another release over it, ends the host. So the
// bytes are read here.
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
constexpr std::uint32_t textSet = 1;

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

constexpr std::uint32_t catalogueMagic = 0x960408de;
constexpr std::size_t headerSize = 12;
constexpr std::size_t entrySize = 12;

std::uint32_t numberAt(const char *bytes) noexcept
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// Returns the number of entries, or 0 for contents that are not sound.
std::size_t entriesIn(const char *bytes, std::size_t size) noexcept
{
    if (size < headerSize || numberAt(bytes) != catalogueMagic || bytes[size - 1] != '\0')
        return 0;
    const std::uint64_t entries = std::uint64_t{numberAt(bytes + 4)} * numberAt(bytes + 8);
    if (entries > (size - headerSize) / (2 * entrySize))
        return 0;
    const auto count = static_cast<std::size_t>(entries);
    const std::size_t textsAt = headerSize + 2 * entrySize * count;
    if (textsAt >= size)
        return 0;
    for (std::size_t i = 0; i < count; ++i)
        if (numberAt(bytes + headerSize + i * entrySize + 8) >= size - textsAt)
            return 0;
    return count;
}
} // namespace

bool nlsCatalogue_t::open(const char *path) noexcept
{
    close();
    if (path == nullptr || std::strchr(path, '/') == nullptr)
        return false;
    const int descriptor = psFileOpenDescriptor(path, O_RDONLY);
    if (descriptor < 0)
        return false;
    struct stat file {
    };
    if (fstat(descriptor, &file) == 0 && file.st_size > 0 && file.st_size <= maxFileSize) {
        const auto size = static_cast<std::size_t>(file.st_size);
        bytes.reset(static_cast<char *>(utMalloc(size)));
        if (bytes != nullptr && readWhole(descriptor, bytes.get(), size))
            entries = entriesIn(bytes.get(), size);
        if (!isOpen())
            close();
    }
    ::close(descriptor);
    return isOpen();
}

void nlsCatalogue_t::close() noexcept
{
    bytes.reset();
    entries = 0;
}

const char *nlsCatalogue_t::get(int msgNum, const char *absent) const noexcept
{
    for (std::size_t i = 0; i < entries; ++i) {
        const char *const table = bytes.get() + headerSize, *const entry = table + i * entrySize;
        if (numberAt(entry) == textSet + 1 && numberAt(entry + 4) == static_cast<unsigned>(msgNum))
            return table + 2 * entrySize * entries + numberAt(entry + 8);
    }
    return absent;
}
