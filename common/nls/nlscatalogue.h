// One message catalogue, as gencat writes it, read into memory whole: what becomes of the file
// afterwards does not matter. Not locked: the repository's lock guards every catalogue.
#ifndef KEEL_COMMON_NLS_NLSCATALOGUE_H
#define KEEL_COMMON_NLS_NLSCATALOGUE_H

#include "common/ut/utmem.h"

#include <cstddef>

class nlsCatalogue_t
{
public:
    nlsCatalogue_t() noexcept = default;
    ~nlsCatalogue_t() { close(); }
    nlsCatalogue_t(const nlsCatalogue_t &) = delete;
    nlsCatalogue_t &operator=(const nlsCatalogue_t &) = delete;

    /// Forgets what was open and reads path. Returns false, and nothing is open, when the file is
    /// missing, damaged or larger than 16 MiB, when there is no memory, and for a path without a
    /// slash.
    bool open(const char *path) noexcept;
    void close() noexcept;
    bool isOpen() const noexcept { return entries != 0; }

    /// Returns the stored text of a message, valid until the catalogue is closed, or the pointer
    /// absent itself when there is none or no catalogue is open.
    const char *get(int msgNum, const char *absent) const noexcept;

private:
    utOwned<char> bytes;
    std::size_t entries = 0;
};

#endif
