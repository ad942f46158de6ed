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

inline ByteView viewOf(std::string_view text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}

inline std::string_view textOf(ByteView bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

class ByteWriter
{
public:
    void u16(std::uint16_t value) { number(value, 2); }
    void u32(std::uint32_t value) { number(value, 4); }
    void u64(std::uint64_t value) { number(value, 8); }
    void raw(ByteView bytes);
    /// Seven bits a byte, the lowest first, the upper bit set on all but the last.
    void varint(std::uint64_t value);
    /// A 16-bit length and the text; a longer text is a bug of the caller and throws.
    void text(std::string_view text);

    /// Overwrites four bytes written before: for a length that is known only at the end.
    void patchU32(std::size_t offset, std::uint32_t value);

    std::size_t size() const { return bytes_.size(); }
    ByteView view() const { return bytes_; }
    Bytes take() { return std::move(bytes_); }

private:
    void number(std::uint64_t value, unsigned width);
    Bytes bytes_;
};

/// Reads what ByteWriter wrote. After the first read past the end every read answers 0 or empty and
/// ok() is false, so that a parser may test once, after its last read.
class ByteReader
{
public:
    explicit ByteReader(ByteView bytes) : bytes_(bytes) {}

    std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
    std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
    std::uint64_t u64() { return number(8); }
    std::uint64_t varint();
    ByteView raw(std::size_t length);
    std::string text();
    /// Fills a field of fixed size; leaves it as it is when too little is left.
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
