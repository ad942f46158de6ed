// The record of a node: see the header.
//
// A password that people choose is slow to try (N = 2^14); one that the client made itself has 256
// random bits, nothing to try, and a small N keeps the start of a session cheap.
#include "client/store/node_record.h"

#include "client/base/text.h"
#include "client/store/record.h"
#include "client/store/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::node.kind;
constexpr std::uint32_t kVersion = 2;
constexpr std::uint32_t kVersionRemoved = form::node.newest;
constexpr std::uint16_t kRemoved = 0;
constexpr std::uint16_t kScheme = 1;
constexpr std::string_view kData = "data key";
constexpr std::string_view kIdentity = "identity";

Bytes contextOf(const std::string &node, std::string_view what)
{
    ByteWriter context;
    context.text(kKind);
    context.text(what);
    context.text(node);
    return context.take();
}

/// Both keys of a record. Others seal to the public half that stands in it: one that is not that of
/// the node is a fault that has to be found here.
Result<NodeKeys> checkedKeys(const NodeRecord &record, Result<SecretKey> data,
                             Result<SecretKey> identity)
{
    const std::string doing = "the record of node " + printable(record.node);
    if (!data || !identity)
        return inContext(std::move(data ? identity : data).error(), doing);
    ARCA_TRY(const PublicKey half, publicHalfOf(*identity));
    if (half != record.identity)
        return Error{ErrorKind::damaged, doing + ": its public key is not that of the node"};
    return NodeKeys{std::move(data).value(), std::move(identity).value()};
}

} // namespace

Result<NodeKeys> newNodeKeys()
{
    NodeKeys keys;
    ARCA_TRY(keys.data, SecretKey::random());
    ARCA_TRY(keys.identity, SecretKey::random());
    return keys;
}

Result<void> NodeRecord::wrap(std::string_view password, const NodeKeys &keys)
{
    cost = costFor(password);
    ARCA_CHECK(fillRandom(salt));
    ARCA_TRY(const PasswordKeys derived, derivePasswordKeys(password, salt, cost));
    verifier = derived.verifier;
    ARCA_TRY(sealedData, sealKey(derived.wrapping, keys.data, contextOf(node, kData)));
    ARCA_TRY(sealedIdentity, sealKey(derived.wrapping, keys.identity, contextOf(node, kIdentity)));
    return {};
}

Result<NodeRecord> makeNodeRecord(const std::string &node, std::string_view password,
                                  const NodeKeys &keys, const PublicKey &recovery)
{
    NodeRecord record;
    record.node = node;
    ARCA_TRY(record.identity, publicHalfOf(keys.identity));
    ARCA_TRY(record.recoverableData, sealKeyTo(recovery, keys.data, contextOf(node, kData)));
    ARCA_TRY(record.recoverableIdentity,
             sealKeyTo(recovery, keys.identity, contextOf(node, kIdentity)));
    ARCA_CHECK(record.wrap(password, keys));
    return record;
}

Result<NodeKeys> openNodeRecord(const NodeRecord &record, const std::string &node,
                                std::string_view password)
{
    ARCA_TRY(const PasswordKeys derived, derivePasswordKeys(password, record.salt, record.cost));
    if (record.node != node || !equalSecrets(derived.verifier, record.verifier))
        return Error{ErrorKind::authentication,
                     "the password of node " + printable(node) + " is wrong"};
    return checkedKeys(
        record, openKey(derived.wrapping, record.sealedData, contextOf(node, kData)),
        openKey(derived.wrapping, record.sealedIdentity, contextOf(node, kIdentity)));
}

Result<NodeKeys> recoverNodeRecord(const NodeRecord &record, const std::string &node,
                                   const SecretKey &recoveryKey)
{
    auto data = openKeyWith(recoveryKey, record.recoverableData, contextOf(node, kData));
    if (!data && data.error().kind == ErrorKind::damaged)
        return Error{ErrorKind::authentication,
                     "the recovery key does not open the keys of node " + printable(node)};
    return checkedKeys(
        record, std::move(data),
        openKeyWith(recoveryKey, record.recoverableIdentity, contextOf(node, kIdentity)));
}

Bytes encodeNodeRecord(const NodeRecord &record)
{
    ByteWriter payload;
    if (record.removed) {
        payload.u16(kRemoved);
        payload.text(record.node);
        return frameRecord(kKind, kVersionRemoved, payload.view());
    }
    payload.u16(kScheme);
    payload.u64(record.cost.n);
    payload.u32(record.cost.r);
    payload.u32(record.cost.p);
    payload.raw(record.salt);
    payload.raw(record.verifier);
    payload.raw(record.identity);
    payload.raw(record.sealedData);
    payload.raw(record.sealedIdentity);
    payload.raw(record.recoverableData);
    payload.raw(record.recoverableIdentity);
    payload.text(record.node);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<NodeRecord> decodeNodeRecord(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersionRemoved));
    ByteReader reader(payload);
    NodeRecord record;
    const std::uint16_t scheme = reader.u16();
    record.removed = scheme == kRemoved;
    if (record.removed) {
        record.node = reader.text();
        if (!reader.ok() || reader.remaining() != 0)
            return Error{ErrorKind::damaged, "the record of a removed node is damaged"};
        return record;
    }
    record.cost.n = reader.u64();
    record.cost.r = reader.u32();
    record.cost.p = reader.u32();
    reader.copyInto(record.salt);
    reader.copyInto(record.verifier);
    reader.copyInto(record.identity);
    reader.copyInto(record.sealedData);
    reader.copyInto(record.sealedIdentity);
    reader.copyInto(record.recoverableData);
    reader.copyInto(record.recoverableIdentity);
    record.node = reader.text();
    if (!reader.ok() || reader.remaining() != 0 || scheme != kScheme)
        return Error{ErrorKind::damaged, "the record of a node is damaged"};
    return record;
}

} // namespace arca::store
