// Little-endian encoding of our stored records, and its bounded counterpart for reading bytes that
// may be anything. Values of these types belong to one thread.
#ifndef KEEL_CLIENT_BASE_BYTES_H
#define KEEL_CLIENT_BASE_BYTES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace arca
{

using Bytes = std::vector<std::byte>;
using ByteView = std::span<const std::byte>;

/// Returns the bytes of a text in place, valid as long as the text.
inline ByteView viewOf(std::string_view text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}

/// Returns the bytes as a text in place, valid as long as the bytes. They may hold anything.
inline std::string_view textOf(ByteView bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

/// Appends to a buffer that it owns.
class ByteWriter
{
public:
    void u16(std::uint16_t value) { number(value, 2); }
    void u32(std::uint32_t value) { number(value, 4); }
    void u64(std::uint64_t value) { number(value, 8); }
    void raw(ByteView bytes);
    /// Appends 1 to 10 bytes: seven bits a byte, the lowest first, the upper bit set on all but the
    /// last.
    void varint(std::uint64_t value);
    /// Appends a 16-bit length and the text. Throws std::length_error for a text of more than
    /// 65,535 bytes, which is a bug of the caller.
    void text(std::string_view text);

    /// Overwrites four bytes written before: for a length that is known only at the end. Throws
    /// std::out_of_range beyond what was written.
    void patchU32(std::size_t offset, std::uint32_t value);

    std::size_t size() const { return bytes_.size(); }
    /// Returns what was written so far, valid until the next change.
    ByteView view() const { return bytes_; }
    /// Hands the bytes over; the writer is not to be used afterwards.
    Bytes take() { return std::move(bytes_); }

private:
    void number(std::uint64_t value, unsigned width);
    Bytes bytes_;
};

/// Reads what ByteWriter wrote, in bytes that it does not own. After the first read past the end,
/// or of a varint that does not fit 64 bits, every read returns 0 or empty and ok() is false, so
/// that a parser may test once, after its last read. It never throws for what the bytes hold.
class ByteReader
{
public:
    explicit ByteReader(ByteView bytes) : bytes_(bytes) {}

    std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
    std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
    std::uint64_t u64() { return number(8); }
    std::uint64_t varint();
    /// Returns the next `length` bytes in place, valid as long as the bytes given.
    ByteView raw(std::size_t length);
    /// Returns a copy of the next text, which may hold anything, also NUL.
    std::string text();
    /// Fills a field of fixed size; leaves it unchanged when too little is left.
    template <std::size_t N> void copyInto(std::array<std::byte, N> &field)
    {
        const ByteView from = raw(N);
        std::copy(from.begin(), from.end(), field.begin());
    }

    bool ok() const { return ok_; }
    std::size_t remaining() const { return bytes_.size(); }

private:
    std::uint64_t number(unsigned width);
    ByteView bytes_;
    bool ok_ = true;
};

} // namespace arca

#endif
