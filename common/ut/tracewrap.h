// A trace file that never grows past a maximum: it wraps, and may be kept in segments.
//
// Internal to the trace; one object per process, guarded by the trace's lock. Several processes may
// write to one file: each line is placed under a lock on the file, at the position that the file
// itself records, so a crash at any byte costs the line that was being written and no more.
#ifndef KEEL_COMMON_UT_TRACEWRAP_H
#define KEEL_COMMON_UT_TRACEWRAP_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

/// How large a trace may become, in megabytes.
struct traceLimits_t {
    unsigned maximum = 0;     // of all segments; 0: no end
    unsigned segmentSize = 0; // 0: one file

    bool wraps() const noexcept { return maximum != 0 || segmentSize != 0; }
    /// At least 1; without a maximum as many as can be counted.
    unsigned segments() const noexcept;
    /// Of the segment of that number, from 1.
    std::uint64_t bytes(unsigned segment) const noexcept;
};

/// What every line is followed by until the next one takes its place.
constexpr char traceEndMarker[] = "\nEND OF DATA\n\n";
constexpr std::size_t traceEndLength = sizeof traceEndMarker - 1;

class traceWrap_t
{
public:
    constexpr traceWrap_t() noexcept = default;

    /// Goes on in an existing trace file where it ended, or begins it anew when it is empty or its
    /// header is bad. A larger maximum of the file holds for this process too; a smaller one is
    /// raised, unless the trace is kept in segments. False with errno set, and nothing is open,
    /// when the file cannot be opened, when another process keeps its lock, and when it is not
    /// empty and no trace of ours, which stays as it is. name must stay valid until close.
    bool open(const char *name, const traceLimits_t &limits) noexcept;
    bool isOpen() const noexcept { return descriptor >= 0; }

    /// Writes the line, which the caller has followed by traceEndMarker: length counts both.
    bool write(const char *line, std::size_t length) noexcept;
    void close() noexcept;
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
