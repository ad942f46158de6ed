// Large memory.
#include "client/base/pages.h"

#include <new>

#include <sys/mman.h>

namespace arca
{

Pages allocatePages(std::size_t bytes)
{
    constexpr std::size_t kHuge = std::size_t{2} << 20;
    const std::size_t alignment = bytes >= kHuge ? kHuge : kPageAlignment;
    bytes = (bytes + alignment - 1) / alignment * alignment;
    Pages memory(static_cast<std::byte *>(std::aligned_alloc(alignment, bytes)));
    if (!memory)
        throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
    if (bytes >= kHuge)
        (void)madvise(memory.get(), bytes, MADV_HUGEPAGE); // may be refused
#endif
    return memory;
}

} // namespace arca
