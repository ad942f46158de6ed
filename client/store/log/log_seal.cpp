// Sealing one field of a line: see the header.
#include "client/store/log/log_seal.h"

#include "client/base/crypto/aead.h"
#include "client/base/crypto/hash.h"
#include "client/base/text.h"

#include <charconv>

namespace arca::store
{

namespace
{

constexpr std::string_view kMark = "sealed:";
constexpr std::size_t kNonceBytes = 12;

Nonce nonceIn(ByteView bytes)
{
    ByteReader reader(bytes);
    const std::uint32_t kind = reader.u32();
    return {kind, reader.u64()};
}

struct Parts {
    Bytes sealed;
    std::optional<std::uint32_t> incarnation; // nothing: the field says none
};

/// Returns nothing when seal() writes no such field.
std::optional<Parts> partsOf(std::string_view field)
{
    if (!LogSeal::isSealed(field))
        return std::nullopt;
    const auto dot = field.find('.');
    auto sealed = fromHex(field.substr(0, dot).substr(kMark.size()));
    if (!sealed || sealed->size() < kNonceBytes + kTagBytes)
        return std::nullopt;
    if (dot == std::string_view::npos)
        return Parts{std::move(*sealed), {}};
    const std::string_view digits = field.substr(dot + 1);
    std::uint32_t number = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (read.ec != std::errc() || number == 0 || digits != std::to_string(number))
        return std::nullopt;
    return Parts{std::move(*sealed), number};
}

} // namespace

Result<LogSeal> LogSeal::of(const SecretKey &dataKey, std::uint32_t incarnation)
{
    ARCA_TRY(SecretKey key, deriveKey(dataKey, "activity log"));
    return LogSeal(std::move(key), incarnation);
}

bool LogSeal::isOfEarlier(std::string_view head, std::string_view field) const
{
    const auto parts = partsOf(field);
    return parts && parts->incarnation.value_or(0) < incarnation_ &&
           !decrypted(head, parts->sealed);
}

bool LogSeal::isSealed(std::string_view field)
{
    return field.starts_with(kMark);
}

Result<std::string> LogSeal::seal(std::string_view head, std::string_view text) const
{
    Bytes sealed(kNonceBytes + text.size() + kTagBytes);
    const std::span<std::byte> bytes(sealed);
    ARCA_CHECK(fillRandom(bytes.first(kNonceBytes)));
    ARCA_CHECK(Aead(Cipher::aes256, key_->view())
                   .seal(nonceIn(bytes.first(kNonceBytes)), viewOf(head), viewOf(text),
                         bytes.subspan(kNonceBytes)));
    const std::string whose = incarnation_ == 0 ? "" : "." + std::to_string(incarnation_);
    return std::string(kMark) + toHex(sealed) + whose;
}

std::optional<std::string> LogSeal::open(std::string_view head, std::string_view field) const
{
    const auto parts = partsOf(field);
    if (!parts || parts->incarnation.value_or(incarnation_) != incarnation_)
        return std::nullopt;
    return decrypted(head, parts->sealed);
}

std::optional<std::string> LogSeal::decrypted(std::string_view head, ByteView sealed) const
{
    std::string text(sealed.size() - kNonceBytes - kTagBytes, '\0');
    const auto opened =
        Aead(Cipher::aes256, key_->view())
            .open(nonceIn(sealed.first(kNonceBytes)), viewOf(head), sealed.subspan(kNonceBytes),
                  std::as_writable_bytes(std::span(text)));
    return opened ? std::optional(std::move(text)) : std::nullopt;
}

} // namespace arca::store
