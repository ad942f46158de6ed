// Reading and filling the records of the interface, whatever the caller left in them. Pure
// functions: any thread. Every call that fails has changed nothing.
#ifndef KEEL_CLIENT_API_SESSION_RECORDS_H
#define KEEL_CLIENT_API_SESSION_RECORDS_H

#include "client/api/session/answer.h"
#include "client/base/bytes.h"
#include "client/store/pieces/piece.h"

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

/// Returns the HOX_ENCRYPT_ bits of a cipher.
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

/// Returns the local time of `seconds` since 1970 (UTC); all zeros when it has none.
hoxDate dateOf(std::int64_t seconds);

/// Returns a copy of the text in a field of N characters. Errors: HOX_RC_BAD_ARGUMENT, which names
/// `what`, when the field has no terminator.
template <std::size_t N> Answer<std::string> fieldText(const char (&field)[N], const char *what)
{
    const void *end = std::memchr(field, '\0', N);
    if (end == nullptr)
        return refused(HOX_RC_BAD_ARGUMENT, std::string(what) + " has no terminator");
    return std::string(field);
}

/// Returns a copy of the text behind a pointer; empty for null. Reads at most limit + 1 bytes.
/// Fails with `tooLong` for more than `limit` characters.
Answer<std::string> pointerText(const char *text, std::size_t limit, const char *what,
                                int tooLong = HOX_RC_BAD_ARGUMENT);

/// Fills a field up with NUL, at least one. A text that does not fit is cut: only for texts where
/// that is harmless, or that were checked to fit.
template <std::size_t N> void fill(char (&field)[N], std::string_view text)
{
    const std::size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    std::memset(field + length, 0, N - length);
}

/// Returns a name whose three parts begin with '/' and whose type is known. Errors:
/// HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_ARGUMENT.
Answer<store::ObjectName> objectNameOf(const hoxObjName *name);
/// Returns a name that begins with '/' and fits its field. Errors: the same.
Answer<std::string> filespaceNameOf(const char *name);

/// Fills in all four fields; a stored name fits them.
void fill(hoxObjName &record, const store::ObjectName &name);

/// Fails with HOX_RC_NULL_ARGUMENT for a null record, and with HOX_RC_BAD_VERSION when `version`
/// (of the record; any value for a null one) is not `known`. The text names `what`.
Answer<void> expectVersion(const void *record, std::uint16_t version, std::uint16_t known,
                           const char *what);

/// Returns true when a record of the caller's may be filled in as version `known`: its stVersion
/// says so, or is 0, as callers clear their records. Of another version neither the layout nor the
/// size is known, so not one byte of the record may be written.
template <class Record> bool mayFill(const Record &record, std::uint16_t known)
{
    return record.stVersion == 0 || record.stVersion == known;
}

/// Fails with HOX_RC_BAD_VERSION, naming `what`, when mayFill() says no. A null record passes.
template <class Record>
Answer<void> expectFillable(const Record *record, std::uint16_t known, const char *what)
{
    return record == nullptr || mayFill(*record, known)
               ? Answer<void>()
               : expectVersion(record, record->stVersion, known, what);
}

/// Returns the caller's buffer in place: the bytes that it brings, or the room that it offers, all
/// of bufferLen. numBytes is left alone. Errors: HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_VERSION.
Answer<ByteView> bytesIn(const DataBlk *block);
Answer<std::span<std::byte>> roomIn(const DataBlk *block);

} // namespace arca::api

#endif
