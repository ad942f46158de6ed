// Reading and filling the records of the interface, whatever the caller left in them.
#ifndef KEEL_CLIENT_API_RECORDS_H
#define KEEL_CLIENT_API_RECORDS_H

#include "client/api/answer.h"
#include "client/base/bytes.h"
#include "client/store/piece.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace arca::api
{

inline std::uint64_t joined(hox64_t value)
{
    return static_cast<std::uint64_t>(value.hi) << 32 | value.lo;
}

/// HOX_ENCRYPT_ bits.
inline std::uint8_t encryptionBits(Cipher cipher)
{
    if (cipher == Cipher::none)
        return 0;
    return cipher == Cipher::aes256 ? HOX_ENCRYPT_AES_256BIT : HOX_ENCRYPT_AES_128BIT;
}

inline hox64_t split(std::uint64_t value)
{
    return {static_cast<std::uint32_t>(value >> 32), static_cast<std::uint32_t>(value)};
}

/// Local time; seconds since 1970.
hoxDate dateOf(std::int64_t seconds);

/// A text in a field of N characters; one without a terminator is HOX_RC_BAD_ARGUMENT.
template <std::size_t N> Answer<std::string> fieldText(const char (&field)[N], const char *what)
{
    const void *end = std::memchr(field, '\0', N);
    if (end == nullptr)
        return refused(HOX_RC_BAD_ARGUMENT, std::string(what) + " has no terminator");
    return std::string(field);
}

/// A text behind a pointer, null meaning empty; longer than `limit` is `tooLong`.
Answer<std::string> pointerText(const char *text, std::size_t limit, const char *what,
                                int tooLong = HOX_RC_BAD_ARGUMENT);

/// Fills a field, cutting what does not fit: only for texts whose cut is harmless, or that were
/// checked to fit.
template <std::size_t N> void fill(char (&field)[N], std::string_view text)
{
    const std::size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    std::memset(field + length, 0, N - length);
}

/// Three non-empty names that begin with '/', and a known type.
Answer<store::ObjectName> objectNameOf(const hoxObjName *name);
Answer<std::string> filespaceNameOf(const char *name);

void fill(hoxObjName &record, const store::ObjectName &name);

/// HOX_RC_NULL_ARGUMENT and HOX_RC_BAD_VERSION; 0 is not a version.
Answer<void> expectVersion(const void *record, std::uint16_t version, std::uint16_t known,
                           const char *what);

/// The bytes that a block brings, or the room it offers. HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_VERSION.
Answer<ByteView> bytesIn(const DataBlk *block);
Answer<std::span<std::byte>> roomIn(const DataBlk *block);

} // namespace arca::api

#endif
