// Tracked memory: the amount outstanding can be read at any time, so that a leak shows.
//
// Every block from here is released through utFree, never through free. Nothing is wiped. Any
// thread; no locks.
#ifndef KEEL_COMMON_UT_UTMEM_H
#define KEEL_COMMON_UT_UTMEM_H

#include <cstddef>
#include <cstdint>
#include <memory>

/// Both return a block that the caller owns, aligned for any type (utCalloc: zeroed), or null when
/// there is no memory or the size overflows. A size of 0 gives a block too.
void *utMalloc(std::size_t size) noexcept;
void *utCalloc(std::size_t n, std::size_t size) noexcept;
/// Resizes a block as realloc does; a null block is allocated. Returns null on failure, and the old
/// block stays as it was. A size of 0 does not free.
void *utRealloc(void *block, std::size_t size) noexcept;
/// Does nothing for null.
void utFree(void *block) noexcept;
/// Returns a copy that the caller owns; null for a null text and without memory.
char *utStrdup(const char *text) noexcept;

struct utMemStats {
    std::uint64_t blocks;    // outstanding now
    std::uint64_t bytes;     // outstanding now, as asked for
    std::uint64_t peakBytes; // the most since the library was loaded
};
/// The three are read one after the other, not as one snapshot.
utMemStats utMemOutstanding() noexcept;

/// For tests: makes the n-th allocation from now fail, once (1 is the next one); 0 or less switches
/// that off. Counts the allocations of all threads.
void utMemFailAfter(long n) noexcept;

struct utMemDeleter {
    void operator()(void *block) const noexcept { utFree(block); }
};

/// Owns a block from here whose contents need no destructor.
template <class T> using utOwned = std::unique_ptr<T, utMemDeleter>;

#endif
