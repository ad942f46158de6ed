// One message catalogue, read through the host's catopen and catgets. Not locked: the repository's
// lock guards every catalogue.
#ifndef KEEL_COMMON_NLS_NLSCATALOGUE_H
#define KEEL_COMMON_NLS_NLSCATALOGUE_H

#include <nl_types.h>

/// Returns true when the file can be handed to the host's catalogue reader, which trusts every
/// offset in it and would crash the process over a damaged one. False also for a file that cannot
/// be read, is larger than 16 MiB, or finds no memory.
bool nlsCatalogueSound(const char *path) noexcept;

class nlsCatalogue_t
{
public:
    nlsCatalogue_t() noexcept = default;
    ~nlsCatalogue_t() { close(); }
    nlsCatalogue_t(const nlsCatalogue_t &) = delete;
    nlsCatalogue_t &operator=(const nlsCatalogue_t &) = delete;

    /// Closes what was open and opens path. Returns false, and nothing is open, when the file is
    /// missing or not sound, and for a path without a slash, which the host would search for along
    /// its NLSPATH.
    bool open(const char *path) noexcept;
    void close() noexcept;
    bool isOpen() const noexcept { return handle != closed(); }

    /// Returns the stored text of a message, valid until the catalogue is closed, or the pointer
    /// absent itself when there is none or no catalogue is open.
    const char *get(int msgNum, const char *absent) const noexcept;

private:
    static nl_catd closed() noexcept { return reinterpret_cast<nl_catd>(-1); }

    nl_catd handle = closed();
};

#endif
