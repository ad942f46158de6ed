// A trace file that never grows past a maximum: it wraps, and may be kept in segments.
//
// Internal to the trace; one object per process, guarded by the trace's lock. Several processes may
// write to one file: each line is written under a lock on the file, at the position that the file
// itself records, so a crash at any byte costs the line that was being written and no more. (On a
// file system without locks lines of several processes may overwrite each other.)
#ifndef KEEL_COMMON_UT_TRACEWRAP_H
#define KEEL_COMMON_UT_TRACEWRAP_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

/// How large a trace may become, in MiB.
struct traceLimits_t {
    unsigned maximum = 0;     // of all segments together; 0: no limit
    unsigned segmentSize = 0; // 0: one file

    bool wraps() const noexcept { return maximum != 0 || segmentSize != 0; }
    /// Returns the number of segments, at least 1; without a maximum the largest unsigned.
    unsigned segments() const noexcept;
    /// Returns the most bytes of a segment; segments count from 1, and the last one may be smaller.
    std::uint64_t bytes(unsigned segment) const noexcept;
};

/// Follows the newest line; the next line overwrites it.
constexpr char traceEndMarker[] = "\nEND OF DATA\n\n";
constexpr std::size_t traceEndLength = sizeof traceEndMarker - 1;

/// Whether lines may be written to a file: it begins with the tag of a trace, is empty, or was cut
/// within its tag. The descriptor is open for reading.
bool traceIsOurs(int descriptor) noexcept;

class traceWrap_t
{
public:
    constexpr traceWrap_t() noexcept = default;

    /// Opens name, or name.1 when the trace is kept in segments, and continues a trace file where
    /// it ended; an empty file, and a trace whose header is bad, are emptied and begun. A larger
    /// maximum in the file holds for this process too; a smaller one is raised, unless the trace is
    /// kept in segments. Returns false with errno set, and nothing is open, when the file cannot be
    /// opened, when another process keeps its lock for about a second, and when it is neither empty
    /// nor a trace of ours: that one is left as it is. name must stay valid until close.
    bool open(const char *name, const traceLimits_t &limits) noexcept;
    bool isOpen() const noexcept { return descriptor >= 0; }

    /// Writes a line that ends with traceEndMarker; length counts both. Locks the file itself and
    /// unlocks it again. Returns false when the line is not whole in the file, or its position
    /// could not be recorded.
    bool write(const char *line, std::size_t length) noexcept;
    void close() noexcept;
    /// As close, but leaves the descriptor open, for a forked child.
    void forget() noexcept { descriptor = -1; }

private:
    bool openSegment(unsigned number) noexcept;
    bool locate(off_t &dataStart, off_t &position) noexcept;
    bool beginAnew(unsigned continuedFrom) noexcept;
    bool adopt(std::uint64_t maximum, off_t size) noexcept;
    bool raiseTo(unsigned maximum) noexcept;
    bool isLeft(off_t position) noexcept;
    bool findCurrentSegment(off_t &dataStart, off_t &position) noexcept;
    bool makeRoom(off_t dataStart, off_t &position) noexcept;
    bool advance(off_t position, off_t &newPosition) noexcept;
    bool writeLocked(const char *line, std::size_t length) noexcept;
    bool put(const char *text, std::size_t length, off_t at) noexcept;
    bool record(off_t position) noexcept;

    const char *fileName = nullptr;
    traceLimits_t limits;
    unsigned segment = 1;
    int descriptor = -1;
};

#endif
