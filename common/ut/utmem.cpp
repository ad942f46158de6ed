// Tracked memory: every block carries its size in front.
//
//   +----------------------+---------------------- ...
//   | size, padded to 16   | what the caller gets
//   +----------------------+---------------------- ...
#include "common/ut/utmem.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace
{
struct alignas(std::max_align_t) Header {
    std::size_t size;
};

constinit std::atomic<std::uint64_t> blocks{0};
constinit std::atomic<std::uint64_t> bytes{0};
constinit std::atomic<std::uint64_t> peakBytes{0};
constinit std::atomic<long> failAfter{-1};

bool mustFail() noexcept
{
    if (failAfter.load(std::memory_order_relaxed) < 0)
        return false;
    const long left = failAfter.fetch_sub(1) - 1;
    if (left == 0)
        failAfter.store(-1);
    return left == 0;
}

void countIn(std::size_t size) noexcept
{
    blocks.fetch_add(1, std::memory_order_relaxed);
    const std::uint64_t now = bytes.fetch_add(size, std::memory_order_relaxed) + size;
    std::uint64_t peak = peakBytes.load(std::memory_order_relaxed);
    while (peak < now && !peakBytes.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
}

void countOut(std::size_t size) noexcept
{
    blocks.fetch_sub(1, std::memory_order_relaxed);
    bytes.fetch_sub(size, std::memory_order_relaxed);
}

void *finish(Header *header, std::size_t size) noexcept
{
    if (header == nullptr)
        return nullptr;
    header->size = size;
    countIn(size);
    return header + 1;
}
} // namespace

void *utMalloc(std::size_t size) noexcept
{
    if (size > SIZE_MAX - sizeof(Header) || mustFail())
        return nullptr;
    return finish(static_cast<Header *>(std::malloc(sizeof(Header) + size)), size);
}

void *utCalloc(std::size_t n, std::size_t size) noexcept
{
    if (size != 0 && n > (SIZE_MAX - sizeof(Header)) / size)
        return nullptr;
    if (mustFail())
        return nullptr;
    return finish(static_cast<Header *>(std::calloc(1, sizeof(Header) + n * size)), n * size);
}

void *utRealloc(void *block, std::size_t size) noexcept
{
    if (block == nullptr)
        return utMalloc(size);
    if (size > SIZE_MAX - sizeof(Header) || mustFail())
        return nullptr;
    Header *old = static_cast<Header *>(block) - 1;
    const std::size_t oldSize = old->size;
    auto *header = static_cast<Header *>(std::realloc(old, sizeof(Header) + size));
    if (header == nullptr)
        return nullptr;
    countOut(oldSize);
    return finish(header, size);
}

void utFree(void *block) noexcept
{
    if (block == nullptr)
        return;
    Header *header = static_cast<Header *>(block) - 1;
    countOut(header->size);
    std::free(header);
}

char *utStrdup(const char *text) noexcept
{
    if (text == nullptr)
        return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(utMalloc(size));
    if (copy != nullptr)
        std::memcpy(copy, text, size);
    return copy;
}

utMemStats utMemOutstanding() noexcept
{
    return {blocks.load(), bytes.load(), peakBytes.load()};
}

void utMemFailAfter(long n) noexcept
{
    failAfter.store(n > 0 ? n : -1);
}
