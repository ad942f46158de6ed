// What the compiler's runtime takes from the C library since 2.32 and 2.35, for those without.
//
// It is linked into the product and used there on newer systems as well, so that the product
// behaves in one way everywhere.
#include <cstddef>
#include <dlfcn.h>
#include <link.h>

// A structure of the C library's own interface, of which no older one knows.
#ifdef DLFO_STRUCT_HAS_EH_DBASE

extern "C" {

// Written by the C library while a process has one thread only. Never is always right: then the
// runtime counts its references atomically.
extern char __libc_single_threaded;
__attribute__((visibility("hidden"))) char __libc_single_threaded = 0;

__attribute__((visibility("hidden"))) int _dl_find_object(void *address,
                                                          struct dl_find_object *result) noexcept;
}

namespace
{

struct Search {
    ElfW(Addr) address;
    struct dl_find_object *result;
    bool found;
};

// Ends the iteration at the object that the address lies in, whether it can be unwound or not.
int look(struct dl_phdr_info *object, std::size_t, void *data)
{
    Search &search = *static_cast<Search *>(data);
    const ElfW(Phdr) *frames = nullptr;
    ElfW(Addr) begin = ~static_cast<ElfW(Addr)>(0), end = 0;
    bool inside = false;
    for (unsigned i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr) &part = object->dlpi_phdr[i];
        const ElfW(Addr) first = object->dlpi_addr + part.p_vaddr;
        if (part.p_type == PT_GNU_EH_FRAME)
            frames = &part;
        if (part.p_type != PT_LOAD)
            continue;
        inside = inside || (search.address >= first && search.address - first < part.p_memsz);
        begin = first < begin ? first : begin;
        end = first + part.p_memsz > end ? first + part.p_memsz : end;
    }
    if (!inside)
        return 0;
    if (frames != nullptr) {
        *search.result = {};
        search.result->dlfo_map_start = reinterpret_cast<void *>(begin);
        search.result->dlfo_map_end = reinterpret_cast<void *>(end);
        search.result->dlfo_eh_frame =
            reinterpret_cast<void *>(object->dlpi_addr + frames->p_vaddr);
        search.found = true;
    }
    return 1;
}

} // namespace

// Where the tables are by which an exception leaves the functions around an address. Returns 0, or
// -1 when there are none.
int _dl_find_object(void *address, struct dl_find_object *result) noexcept
{
    Search search{reinterpret_cast<ElfW(Addr)>(address), result, false};
    dl_iterate_phdr(look, &search);
    return search.found ? 0 : -1;
}

#endif
