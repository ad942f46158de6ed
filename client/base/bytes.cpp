// Little-endian records: see the header.
#include "client/base/bytes.h"

#include <stdexcept>

namespace arca
{

void ByteWriter::number(std::uint64_t value, unsigned width)
{
    for (unsigned i = 0; i < width; ++i)
        bytes_.push_back(static_cast<std::byte>(value >> (8 * i)));
}

void ByteWriter::raw(ByteView bytes)
{
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void ByteWriter::varint(std::uint64_t value)
{
    for (; value >= 0x80; value >>= 7)
        bytes_.push_back(static_cast<std::byte>(value | 0x80));
    bytes_.push_back(static_cast<std::byte>(value));
}

void ByteWriter::text(std::string_view text)
{
    if (text.size() > 0xffff)
        throw std::length_error("a text of a stored record is longer than its length field holds");
    u16(static_cast<std::uint16_t>(text.size()));
    raw(viewOf(text));
}

void ByteWriter::patchU32(std::size_t offset, std::uint32_t value)
{
    for (unsigned i = 0; i < 4; ++i)
        bytes_.at(offset + i) = static_cast<std::byte>(value >> (8 * i));
}

std::uint64_t ByteReader::number(unsigned width)
{
    const ByteView field = raw(width);
    std::uint64_t value = 0;
    for (std::size_t i = field.size(); i > 0; --i)
        value = value << 8 | std::to_integer<std::uint64_t>(field[i - 1]);
    return value;
}

std::uint64_t ByteReader::varint()
{
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        const std::uint64_t part = number(1);
        value |= (part & 0x7f) << shift;
        if (part < 0x80) {
            ok_ = ok_ && (shift != 63 || part <= 1);
            return value;
        }
    }
    ok_ = false;
    return 0;
}

ByteView ByteReader::raw(std::size_t length)
{
    if (!ok_ || length > bytes_.size()) {
        ok_ = false;
        return {};
    }
    const ByteView field = bytes_.first(length);
    bytes_ = bytes_.subspan(length);
    return field;
}

std::string ByteReader::text()
{
    return std::string(textOf(raw(u16())));
}

} // namespace arca
