// The digest of a keyed record: see the header.
#include "client/store/records/record_seal.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/records/record.h"

namespace arca::store
{

namespace
{

constexpr std::uint32_t kKeyed = std::uint32_t{1} << 31;
constexpr std::size_t kDigestBytes = sizeof(Sha256), kHeadBytes = 16, kKindBytes = 8;

std::uint32_t versionOf(ByteView record)
{
    return ByteReader(record.subspan(kKindBytes)).u32();
}

bool isKeyed(ByteView record)
{
    return record.size() >= kHeadBytes && (versionOf(record) & kKeyed) != 0;
}

Error damaged(std::string_view place, const char *what)
{
    return {ErrorKind::damaged, "the record " + printable(place) + what};
}

} // namespace

RecordSeal RecordSeal::lenient() const
{
    RecordSeal seal = *this;
    seal.readsPlain_ = true;
    return seal;
}

/// `record`: kind, version without the bit, length and payload.
Result<Bytes> RecordSeal::digestOf(std::string_view place, ByteView record) const
{
    ByteWriter message;
    message.text(place);
    message.raw(record.first(kKindBytes + 4));
    message.raw(record.subspan(kHeadBytes));
    ARCA_TRY(const Sha256 digest, hmacSha256(key_->view(), message.view()));
    return Bytes(digest.begin(), digest.end());
}

Result<Bytes> RecordSeal::seal(std::string_view place, Bytes record) const
{
    if (form_ == engine::RecordForm::plain)
        return record;
    const std::string kind(textOf(ByteView(record).first(kKindBytes)));
    const std::uint32_t version = versionOf(record);
    record.resize(record.size() - sizeof(std::uint64_t)); // its checksum
    ARCA_TRY(const Bytes digest, digestOf(place, record));
    Bytes payload(record.begin() + kHeadBytes, record.end());
    payload.insert(payload.end(), digest.begin(), digest.end());
    return frameRecord(kind, version | kKeyed, payload);
}

Result<RecordSeal::Opened> RecordSeal::open(std::string_view place, Bytes stored) const
{
    if (!isKeyed(stored)) {
        if (provesAll())
            return damaged(place, " was written without the key that proves it");
        return Opened{std::move(stored), false};
    }
    const std::string kind(textOf(ByteView(stored).first(kKindBytes)));
    ARCA_TRY(const ByteView all, unframeRecord(stored, kind, UINT32_MAX));
    if (all.size() < kDigestBytes)
        return damaged(place, " is damaged");
    const ByteView digest = all.last(kDigestBytes);
    Bytes record =
        frameRecord(kind, versionOf(stored) & ~kKeyed, all.first(all.size() - kDigestBytes));
    if (!key_)
        return Opened{std::move(record), false};
    ARCA_TRY(const Bytes expected,
             digestOf(place, ByteView(record).first(record.size() - sizeof(std::uint64_t))));
    if (!equalSecrets(expected, digest))
        return damaged(place, " was written without the key that proves it, or for another place");
    return Opened{std::move(record), true};
}

} // namespace arca::store
