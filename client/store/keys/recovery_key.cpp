// The recovery key: see the header.
#include "client/store/keys/recovery_key.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/records/numbered_record.h"
#include "client/store/records/record_forms.h"

#include <algorithm>
#include <ctime>

namespace arca::store
{

namespace
{

constexpr std::string_view kPlace = "keys/recovery";
constexpr std::string_view kKind = form::recoveryHalf.kind;
constexpr std::uint32_t kVersion = form::recoveryHalf.newest;
constexpr std::uint16_t kX25519 = 1;
constexpr std::size_t kCheckBytes = 4;
constexpr std::size_t kGroupDigits = 8;
constexpr std::size_t kDigits = 2 * (SecretKey::kBytes + kCheckBytes);

Result<Bytes> checkOf(ByteView key)
{
    ARCA_TRY(const Sha256 digest, sha256({viewOf("recovery key"), key}));
    return Bytes(digest.begin(), digest.begin() + kCheckBytes);
}

/// Digits that were given, or what is wrong with them.
Result<Bytes> bytesOf(std::string &digits)
{
    if (digits.size() != kDigits)
        return Error{ErrorKind::badArgument,
                     "a recovery key has " + std::to_string(kDigits) + " digits in " +
                         std::to_string(kDigits / kGroupDigits) + " groups; " +
                         std::to_string(digits.size()) + " were given"};
    auto bytes = fromHex(digits);
    if (!bytes)
        return Error{ErrorKind::badArgument,
                     "a recovery key is made of the digits 0 to 9 and the letters a to f"};
    return std::move(*bytes);
}

} // namespace

Result<std::optional<PublicKey>> recoveryHalf(blob::BlobStore &store)
{
    NumberedRecord place(store, std::string(kPlace));
    ARCA_TRY(const auto state, place.latest());
    if (!state)
        return std::optional<PublicKey>();
    ARCA_TRY(const PublicKey half,
             inRecord(place.nameOf(state->number), decodeRecoveryHalf(state->bytes)));
    return std::optional<PublicKey>(half);
}

Result<void> publishRecoveryHalf(blob::BlobStore &store, const PublicKey &half)
{
    auto written =
        NumberedRecord(store, std::string(kPlace))
            .write(0, encodeRecoveryHalf(half, static_cast<std::uint64_t>(std::time(nullptr))));
    if (!written && written.error().kind == ErrorKind::conflict)
        return Error{ErrorKind::exists, "the repository has a recovery key already"};
    return written;
}

Bytes encodeRecoveryHalf(const PublicKey &half, std::uint64_t made)
{
    ByteWriter payload;
    payload.u16(kX25519);
    payload.raw(half);
    payload.u64(made);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<PublicKey> decodeRecoveryHalf(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    const std::uint16_t what = reader.u16();
    PublicKey half{};
    reader.copyInto(half);
    (void)reader.u64();
    if (!reader.ok() || reader.remaining() != 0 || what != kX25519)
        return Error{ErrorKind::damaged, "the record of the recovery key is damaged"};
    return half;
}

Result<std::string> writtenRecoveryKey(const SecretKey &key)
{
    ARCA_TRY(const Bytes check, checkOf(key.view()));
    std::string digits = toHex(key.view());
    digits += toHex(check);
    std::string written;
    written.reserve(2 * kDigits); // or growing would leave copies behind
    for (std::size_t at = 0; at < digits.size(); at += kGroupDigits) {
        written += at == 0 ? "" : " ";
        written.append(digits, at, kGroupDigits);
    }
    wipe(digits);
    return written;
}

Result<SecretKey> typedRecoveryKey(std::string_view typed)
{
    std::string digits;
    digits.reserve(typed.size());
    std::copy_if(typed.begin(), typed.end(), std::back_inserter(digits),
                 [](char c) { return c != ' ' && c != '-' && c != '\t'; });
    auto bytes = bytesOf(digits);
    wipe(digits);
    ARCA_TRY(Bytes good, std::move(bytes));
    auto key = SecretKey::from(ByteView(good).first(SecretKey::kBytes));
    auto check = checkOf(ByteView(good).first(SecretKey::kBytes));
    const bool agrees = check && equalSecrets(*check, ByteView(good).subspan(SecretKey::kBytes));
    wipe(good);
    ARCA_CHECK(std::move(check));
    if (!agrees)
        return Error{ErrorKind::badArgument,
                     "the recovery key is not typed as it was shown: its check does not agree"};
    return key;
}

} // namespace arca::store
