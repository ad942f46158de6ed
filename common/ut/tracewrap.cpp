// A trace file that never grows past a maximum.
//
// The first line says where the next line is to be written:
//
//    0..11  "ARCA Trace" padded with blanks
//   12..23  the position of the next line, decimal, left-aligned; 123456789012 while the file is
//           being made
//   24..    the maximum in megabytes, left-aligned in ten characters, a blank, the build, and two
//           line ends
//
// The data start behind the first empty line. Lines go up to the maximum and then from the data
// start again; "END OF DATA" follows the newest line, and the oldest remaining line follows that.
//
// What must stay true:
// 1. A file that is not empty and does not begin with the tag is none of ours and is never changed.
// 2. A file of ours is emptied only when its header is bad or when the segment before it is full,
//    because other channels may be writing to it.
// 3. The header's maximum bounds the file for every process, whatever the process's own maximum.
//    Only the maximum of a single file is ever raised; none is lowered.
// 4. Header, line and position are read and written under the lock of the file. The line is written
//    before its position is recorded, so a crash between the two leaves the old position.
#include "common/ut/tracewrap.h"

#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"
#include "common/ut/tracebuild.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr std::uint64_t megabyte = 1'048'576;
constexpr std::uint64_t largestPosition = 999'999'999'999; // twelve digits
constexpr off_t positionAt = 12;
constexpr std::size_t positionWidth = 12;
constexpr off_t maximumAt = 24;
constexpr std::size_t maximumWidth = 10;
constexpr std::string_view tag = "ARCA Trace  ";
constexpr std::string_view tagText = "ARCA Trace";
constexpr std::uint64_t largestSingleFile = 1000; // megabytes; larger ones are kept in segments
constexpr std::string_view continued = "\nContinued at beginning of file\n\n";
constexpr std::string_view continuedInSegment = "\nContinued at beginning of segment ";
constexpr std::size_t longestContinued = continuedInSegment.size() + 12;
static_assert(longestContinued > traceEndLength, "it must cover the marker it replaces");

// Parses a number left-aligned in a field of blanks; false for anything else.
bool parseField(std::string_view field, std::uint64_t &number) noexcept
{
    const std::size_t digits = std::min(field.find(' '), field.size());
    if (field.find_first_not_of(' ', digits) != std::string_view::npos)
        return false;
    const auto parsed = std::from_chars(field.data(), field.data() + digits, number);
    return digits > 0 && parsed.ec == std::errc() && parsed.ptr == field.data() + digits;
}

struct Header {
    std::uint64_t position;
    std::uint64_t maximum;
    off_t dataStart;
    off_t size;
};

bool readHeader(int descriptor, Header &header) noexcept
{
    char bytes[256];
    struct stat file {
    };
    const ssize_t length = pread(descriptor, bytes, sizeof bytes, 0);
    if (length <= 0 || fstat(descriptor, &file) != 0)
        return false;
    const std::string_view text(bytes, static_cast<std::size_t>(length));
    const std::size_t end = text.find("\n\n");
    if (end == std::string_view::npos || end < maximumAt + maximumWidth ||
        text.substr(0, tag.size()) != tag ||
        !parseField(text.substr(positionAt, positionWidth), header.position) ||
        !parseField(text.substr(maximumAt, maximumWidth), header.maximum))
        return false;
    header.dataStart = static_cast<off_t>(end + 2);
    header.size = file.st_size;
    return header.position >= end + 2 &&
           header.position <= static_cast<std::uint64_t>(file.st_size);
}

// False with EAGAIN when another process keeps the lock for long. Any other failure counts as
// success: on a file system without locks, lines that overwrite each other are better than no
// trace.
bool lockFile(int descriptor) noexcept
{
    const int rc = psFileLock(descriptor);
    errno = rc;
    return rc != EAGAIN;
}
} // namespace

bool traceIsOurs(int descriptor) noexcept
{
    char bytes[tagText.size()];
    const ssize_t length = pread(descriptor, bytes, sizeof bytes, 0);
    return length >= 0 &&
           tagText.starts_with(std::string_view(bytes, static_cast<std::size_t>(length)));
}

unsigned traceLimits_t::segments() const noexcept
{
    if (segmentSize == 0)
        return 1;
    return maximum == 0 ? ~0U : (maximum - 1) / segmentSize + 1;
}

std::uint64_t traceLimits_t::bytes(unsigned segment) const noexcept
{
    std::uint64_t size = segmentSize == 0 ? maximum : segmentSize;
    if (segmentSize != 0 && maximum != 0 && segment == segments() && maximum % segmentSize != 0)
        size = maximum % segmentSize;
    return std::min(size * megabyte, largestPosition);
}

bool traceWrap_t::open(const char *name, const traceLimits_t &wanted) noexcept
{
    fileName = name;
    limits = wanted;
    if (!openSegment(1))
        return false;
    off_t dataStart = 0;
    off_t position = 0;
    const bool good =
        lockFile(descriptor) && locate(dataStart, position) && raiseTo(wanted.maximum);
    const int reason = errno;
    psFileUnlock(descriptor);
    if (!good)
        close();
    errno = reason;
    return good;
}

void traceWrap_t::close() noexcept
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

// Opens a segment in place of the present one, whose lock is released by its closing. On failure
// the present one stays open.
bool traceWrap_t::openSegment(unsigned number) noexcept
{
    char path[300];
    if (limits.segments() == 1)
        std::snprintf(path, sizeof path, "%s", fileName);
    else
        std::snprintf(path, sizeof path, "%s.%u", fileName, number);
    const int opened = psFileOpenDescriptor(path, O_RDWR | O_CREAT);
    if (opened < 0)
        return false;
    if (!traceIsOurs(opened)) {
        ::close(opened);
        errno = EINVAL;
        return false;
    }
    close();
    descriptor = opened;
    segment = number;
    return true;
}

// Adopts the maximum that the header records. False for a maximum that no process can have written,
// and for a file larger than it.
bool traceWrap_t::adopt(std::uint64_t maximum, off_t size) noexcept
{
    traceLimits_t recorded = limits;
    recorded.maximum = static_cast<unsigned>(maximum);
    const bool possible =
        limits.segments() == 1
            ? maximum != 0 && maximum <= std::max<std::uint64_t>(limits.maximum, largestSingleFile)
            : maximum == 0 || (maximum > limits.segmentSize && maximum <= UINT32_MAX);
    if (possible && limits.segments() == 1 && recorded.segmentSize != 0)
        recorded.segmentSize = recorded.maximum;
    if (!possible || static_cast<std::uint64_t>(size) > recorded.bytes(segment))
        return false;
    limits = recorded;
    return true;
}

// Other channels read the header before each line and follow.
bool traceWrap_t::raiseTo(unsigned maximum) noexcept
{
    if (limits.segments() > 1 || maximum <= limits.maximum)
        return true;
    char field[maximumWidth + 1];
    std::snprintf(field, sizeof field, "%-10u", maximum);
    limits.maximum = maximum;
    if (limits.segmentSize != 0)
        limits.segmentSize = maximum;
    return put(field, maximumWidth, maximumAt);
}

bool traceWrap_t::put(const char *text, std::size_t length, off_t at) noexcept
{
    if (psWithinFileLimit(at, length) == 0) {
        errno = EFBIG;
        return false;
    }
    return psWriteAllAt(descriptor, text, length, at);
}

bool traceWrap_t::record(off_t position) noexcept
{
    char field[positionWidth + 8];
    std::snprintf(field, sizeof field, "%-12lu", static_cast<unsigned long>(position));
    return put(field, positionWidth, positionAt);
}

bool traceWrap_t::beginAnew(unsigned continuedFrom) noexcept
{
    char text[320];
    int length = std::snprintf(text, sizeof text, "%.*s%s%-10u %s Build date: %s\n\n",
                               static_cast<int>(tag.size()), tag.data(), "123456789012",
                               limits.maximum, traceProduct, traceBuildDate);
    const auto room = sizeof text - static_cast<std::size_t>(length);
    if (continuedFrom == 0)
        length += std::snprintf(text + length, room, "BEGINNING NEW TRACE\n\n");
    else
        length += std::snprintf(text + length, room, "Continued from end of segment %u\n\n",
                                continuedFrom);
    return ftruncate(descriptor, 0) == 0 && put(text, static_cast<std::size_t>(length), 0) &&
           record(length);
}

bool traceWrap_t::locate(off_t &dataStart, off_t &position) noexcept
{
    Header header{};
    const auto usable = [&] {
        return readHeader(descriptor, header) && adopt(header.maximum, header.size);
    };
    if (!usable() && (!traceIsOurs(descriptor) || !beginAnew(0) || !usable()))
        return false;
    dataStart = header.dataStart;
    position = static_cast<off_t>(header.position);
    return true;
}

// True when another process has filled this segment and gone on in the next.
bool traceWrap_t::isLeft(off_t position) noexcept
{
    char text[continuedInSegment.size()];
    return pread(descriptor, text, sizeof text, position) == static_cast<ssize_t>(sizeof text) &&
           std::string_view(text, sizeof text) == continuedInSegment;
}

bool traceWrap_t::findCurrentSegment(off_t &dataStart, off_t &position) noexcept
{
    const unsigned segments = limits.segments();
    for (unsigned tried = 0; tried < segments; ++tried) {
        if (!lockFile(descriptor) || !locate(dataStart, position))
            return false;
        if (segments == 1 || !isLeft(position))
            return true;
        if (!openSegment(segment == segments ? 1 : segment + 1))
            return false;
    }
    return lockFile(descriptor) && locate(dataStart, position);
}

// Leaves the full segment for the next one, which is emptied. The full one stays locked until then,
// so that no other process follows into the next segment while that still holds its old lines.
bool traceWrap_t::advance(off_t position, off_t &newPosition) noexcept
{
    const unsigned full = segment;
    const unsigned next = full == limits.segments() ? 1 : full + 1;
    char text[longestContinued + 1];
    const int length =
        std::snprintf(text, sizeof text, "%s%u\n\n", continuedInSegment.data(), next);
    if (!put(text, static_cast<std::size_t>(length), position) || !record(position) ||
        ftruncate(descriptor, position + length) != 0)
        return false;
    const int left = descriptor;
    descriptor = -1;
    bool good = openSegment(next);
    if (good) {
        off_t dataStart = 0;
        good = lockFile(descriptor) && beginAnew(full) && locate(dataStart, newPosition);
    }
    ::close(left);
    return good;
}

// Makes room for a line at the start of the data, or in the next segment. What lies behind the end
// of a single file is older than all other lines, so it is cut off.
bool traceWrap_t::makeRoom(off_t dataStart, off_t &position) noexcept
{
    if (limits.segments() > 1)
        return advance(position, position);
    if (!put(continued.data(), continued.size(), position) ||
        ftruncate(descriptor, position + static_cast<off_t>(continued.size())) != 0)
        return false;
    position = dataStart;
    return true;
}

bool traceWrap_t::writeLocked(const char *line, std::size_t length) noexcept
{
    off_t dataStart = 0;
    off_t position = 0;
    if (!findCurrentSegment(dataStart, position))
        return false;
    const std::size_t text = length - traceEndLength;
    // A position that leaves no room for the continuation text was not recorded by this code.
    position = std::min(position, static_cast<off_t>(limits.bytes(segment) - longestContinued));
    if (static_cast<std::uint64_t>(position) + text + longestContinued > limits.bytes(segment) &&
        !makeRoom(dataStart, position))
        return false;
    return put(line, length, position) && record(position + static_cast<off_t>(text));
}

bool traceWrap_t::write(const char *line, std::size_t length) noexcept
{
    const bool good = writeLocked(line, length);
    if (descriptor >= 0)
        psFileUnlock(descriptor);
    return good;
}
