// One open message catalogue of the host's catopen kind.
#ifndef KEEL_COMMON_NLS_NLSCATALOGUE_H
#define KEEL_COMMON_NLS_NLSCATALOGUE_H

#include <nl_types.h>

/// The file can be handed to the host's catalogue reader, which believes every number in it and
/// would take the process down over a damaged one.
bool nlsCatalogueSound(const char *path) noexcept;

class nlsCatalogue_t
{
public:
    nlsCatalogue_t() noexcept = default;
    ~nlsCatalogue_t() { close(); }
    nlsCatalogue_t(const nlsCatalogue_t &) = delete;
    nlsCatalogue_t &operator=(const nlsCatalogue_t &) = delete;

    /// Closes what was open. False, and nothing is open, when the file is missing or not sound, and
    /// for a path without a slash, which the host would look for along its NLSPATH.
    bool open(const char *path) noexcept;
    void close() noexcept;
    bool isOpen() const noexcept { return handle != closed(); }

    /// The stored text of a message, or absent (the very pointer) when there is none. Good until
    /// the catalogue is closed.
    const char *get(int msgNum, const char *absent) const noexcept;

private:
    static nl_catd closed() noexcept { return reinterpret_cast<nl_catd>(-1); }

    nl_catd handle = closed();
};

#endif
