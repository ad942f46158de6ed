// Grants: see the header.
#include "client/store/keys/grant.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/blob_store.h"
#include "client/store/records/record.h"
#include "client/store/records/record_forms.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::grant.kind;
constexpr std::uint32_t kVersion = form::grant.newest;
constexpr std::size_t kKeyBytesInNames = 8;

Bytes contextOf(const Grant &grant)
{
    ByteWriter context;
    for (const std::string_view text :
         {kKind, std::string_view(grant.grantor), std::string_view(grant.reader)})
        context.text(text);
    context.u32(grant.rule);
    return context.take();
}

} // namespace

Result<void> Grant::seal(const SecretKey &dataKey)
{
    ARCA_TRY(sealed, sealKeyTo(readerKey, dataKey, contextOf(*this)));
    return {};
}

Result<SecretKey> Grant::open(const SecretKey &readersIdentity) const
{
    return openKeyWith(readersIdentity, sealed, contextOf(*this));
}

Bytes encodeGrant(const Grant &grant)
{
    ByteWriter payload;
    payload.u32(grant.rule);
    payload.raw(grant.readerKey);
    payload.raw(grant.sealed);
    payload.text(grant.grantor);
    payload.text(grant.reader);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<Grant> decodeGrant(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    Grant grant;
    grant.rule = reader.u32();
    reader.copyInto(grant.readerKey);
    reader.copyInto(grant.sealed);
    grant.grantor = reader.text();
    grant.reader = reader.text();
    if (!reader.ok() || reader.remaining() != 0)
        return Error{ErrorKind::damaged, "the record of a grant is damaged"};
    return grant;
}

std::string ruleDigits(std::uint32_t number)
{
    return toHex(std::uint64_t{number}).substr(16 - kRuleDigits);
}

Result<std::set<std::uint32_t>> rulesUnder(blob::BlobStore &store, const std::string &prefix)
{
    std::set<std::uint32_t> numbers;
    ARCA_CHECK(store.list(prefix, [&](const std::string &name) {
        auto number = fromHex(std::string_view(name).substr(prefix.size()).substr(0, kRuleDigits));
        if (number && number->size() == kRuleDigits / 2) {
            std::reverse(number->begin(), number->end()); // names are read from the left
            numbers.insert(ByteReader(*number).u32());
        }
        return true;
    }));
    return numbers;
}

Result<void> removeBlob(blob::BlobStore &store, const std::string &name)
{
    ARCA_TRY(const auto opened, store.open(name));
    return store.remove(name, *opened);
}

Result<std::string> Grants::nameOf(std::uint32_t rule, const PublicKey &readerKey) const
{
    ARCA_TRY(const Sha256 hash, sha256({viewOf("reader"), readerKey}));
    return prefix_ + ruleDigits(rule) + "-" + toHex(ByteView(hash).first(kKeyBytesInNames));
}

Result<void> Grants::give(std::uint32_t rule, const std::string &reader, const PublicKey &readerKey,
                          const SecretKey &dataKey)
{
    ARCA_TRY(const std::string name, nameOf(rule, readerKey));
    Grant grant{rule, readerKey, {}, grantor_, reader};
    ARCA_CHECK(grant.seal(dataKey));
    auto written = blob::putWhole(store_, name, encodeGrant(grant));
    if (written || written.error().kind != ErrorKind::exists)
        return written;
    // Given already, unless what lies there is damaged: it makes way.
    const auto there = store_.open(name);
    if (!there)
        return there.error().kind == ErrorKind::notFound ? Result<void>() : there.error();
    const auto known = read(**there, name, grant);
    if (known || known.error().kind != ErrorKind::damaged)
        return known ? Result<void>() : known.error();
    auto removed = store_.remove(name, **there);
    if (!removed && removed.error().kind != ErrorKind::notFound)
        return removed;
    written = blob::putWhole(store_, name, encodeGrant(grant));
    return !written && written.error().kind == ErrorKind::exists ? Result<void>() : written;
}

Result<Grant> Grants::read(blob::BlobReader &blob, const std::string &name,
                           const Grant &expected) const
{
    ARCA_TRY(const Bytes record, blob::readWhole(blob, name, kMaxRecordBytes));
    ARCA_TRY(Grant grant, inRecord(name, decodeGrant(record)));
    if (grant.rule != expected.rule || grant.readerKey != expected.readerKey ||
        grant.grantor != expected.grantor || grant.reader != expected.reader)
        return Error{ErrorKind::damaged,
                     "the grant in " + name + " is another one than its place says"};
    return grant;
}

Result<std::optional<SecretKey>> Grants::find(std::uint32_t rule, const std::string &reader,
                                              const SecretKey &identity)
{
    ARCA_TRY(const PublicKey half, publicHalfOf(identity));
    ARCA_TRY(const std::string name, nameOf(rule, half));
    auto blob = store_.open(name);
    if (!blob && blob.error().kind == ErrorKind::notFound)
        return std::optional<SecretKey>();
    ARCA_TRY(const auto opened, std::move(blob));
    ARCA_TRY(const Grant grant, read(*opened, name, {rule, half, {}, grantor_, reader}));
    auto key = grant.open(identity);
    if (!key)
        return inContext(std::move(key).error(), "the grant in " + name);
    return std::optional<SecretKey>(std::move(key).value());
}

Result<void> Grants::removeAll(std::uint32_t rule)
{
    std::vector<std::string> names;
    ARCA_CHECK(store_.list(prefix_ + ruleDigits(rule), [&](const std::string &name) {
        names.push_back(name);
        return true;
    }));
    for (const std::string &name : names)
        ARCA_CHECK(removeBlob(store_, name));
    return {};
}

Result<std::set<std::uint32_t>> Grants::rules()
{
    return rulesUnder(store_, prefix_);
}

} // namespace arca::store
