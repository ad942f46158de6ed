// Tracked memory: what is outstanding can be asked at any time, so that a leak shows.
//
// Whatever comes from here goes back through utFree and never through free. Any thread.
#ifndef KEEL_COMMON_UT_UTMEM_H
#define KEEL_COMMON_UT_UTMEM_H

#include <cstddef>
#include <cstdint>
#include <memory>

/// Null when there is no memory. utCalloc also when n * size is more than can be counted.
void *utMalloc(std::size_t size) noexcept;
void *utCalloc(std::size_t n, std::size_t size) noexcept;
/// As realloc: a null block is a fresh one; on failure the old block stays as it was.
void *utRealloc(void *block, std::size_t size) noexcept;
void utFree(void *block) noexcept;
char *utStrdup(const char *text) noexcept;

struct utMemStats {
    std::uint64_t blocks; // outstanding now
    std::uint64_t bytes;  // outstanding now, as asked for
    std::uint64_t peakBytes;
};
utMemStats utMemOutstanding() noexcept;

/// For tests: the n-th allocation from now fails, once (1 is the next one); -1 switches it off.
void utMemFailAfter(long n) noexcept;

struct utMemDeleter {
    void operator()(void *block) const noexcept { utFree(block); }
};

/// Owns a block from here whose contents need no destructor.
template <class T> using utOwned = std::unique_ptr<T, utMemDeleter>;

#endif
