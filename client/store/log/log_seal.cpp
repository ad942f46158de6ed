// Sealing one field of a line: see the header.
#include "client/store/log/log_seal.h"

#include "client/base/crypto/aead.h"
#include "client/base/crypto/hash.h"
#include "client/base/text.h"

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

} // namespace

Result<LogSeal> LogSeal::of(const SecretKey &dataKey, std::uint32_t incarnation)
{
    ARCA_TRY(SecretKey key, deriveKey(dataKey, "activity log"));
    return LogSeal(std::move(key), incarnation);
}

bool LogSeal::isOfAnother(std::string_view field) const
{
    const auto dot = field.rfind('.');
    const std::string own = std::to_string(incarnation_);
    return dot == std::string_view::npos ? incarnation_ != 0 : field.substr(dot + 1) != own;
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
    if (!isSealed(field))
        return std::nullopt;
    const std::string_view digits = field.substr(kMark.size());
    const auto sealed = fromHex(digits.substr(0, digits.find('.')));
    if (!sealed || sealed->size() < kNonceBytes + kTagBytes)
        return std::nullopt;
    const ByteView bytes(*sealed);
    std::string text(bytes.size() - kNonceBytes - kTagBytes, '\0');
    const auto opened =
        Aead(Cipher::aes256, key_->view())
            .open(nonceIn(bytes.first(kNonceBytes)), viewOf(head), bytes.subspan(kNonceBytes),
                  std::as_writable_bytes(std::span(text)));
    return opened ? std::optional(std::move(text)) : std::nullopt;
}

} // namespace arca::store
