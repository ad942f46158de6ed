// The record of a node: see the header.
//
// A password that people choose is slow to try (N = 2^14); one that the client made itself has 256
// random bits, nothing to try, and a small N keeps the start of a session cheap.
#include "client/store/keys/node_record.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/records/record.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::node.kind;
constexpr std::uint32_t kVersion = form::node.newest;
constexpr std::uint32_t kVersionWithoutProof = 2, kVersionRemoved = 3;
constexpr std::size_t kHeadBytes = 8;
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

/// Of what is sealed under the wrapping key.
Bytes wrappedContext(const NodeRecord &record, std::string_view what)
{
    ByteWriter context;
    context.raw(contextOf(record.node, what));
    if (record.layout != 0) {
        context.u32(record.layout);
        context.u32(record.incarnation);
    }
    return context.take();
}

/// Of a node that is registered, but for the proof.
Bytes payloadOf(const NodeRecord &record)
{
    ByteWriter payload;
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
    if (record.layout != 0) {
        payload.u32(record.layout);
        payload.u32(record.incarnation);
    }
    return payload.take();
}

Result<Sha256> proofOf(const NodeRecord &record, const SecretKey &dataKey)
{
    ARCA_TRY(const SecretKey key, deriveKey(dataKey, "record of the node"));
    return hmacSha256(key.view(), payloadOf(record));
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
    NodeKeys keys{std::move(data).value(), std::move(identity).value(), record.incarnation};
    ARCA_TRY(keys.proven, isProven(record, keys.data));
    return keys;
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
    ARCA_TRY(sealedData, sealKey(derived.wrapping, keys.data, wrappedContext(*this, kData)));
    ARCA_TRY(sealedIdentity,
             sealKey(derived.wrapping, keys.identity, wrappedContext(*this, kIdentity)));
    proof = {};
    if (layout != 0 && keys.proven) {
        ARCA_TRY(proof, proofOf(*this, keys.data));
    }
    return {};
}

Result<bool> isProven(const NodeRecord &record, const SecretKey &dataKey)
{
    if (record.layout == 0)
        return true;
    ARCA_TRY(const Sha256 expected, proofOf(record, dataKey));
    return equalSecrets(expected, record.proof);
}

std::string unprovenText(const std::string &node)
{
    return "the record of node " + printable(node) +
           " was changed without the key of the node, so the recovery key may not open the node; "
           "bring the record back from a copy of the repository, and keep the password";
}

Result<std::string> spaceKeyOf(const std::string &node, std::uint32_t incarnation)
{
    ByteWriter number;
    number.u32(incarnation);
    ARCA_TRY(const Sha256 hash, incarnation == 0
                                    ? sha256({viewOf("node"), viewOf(node)})
                                    : sha256({viewOf("node"), viewOf(node), number.view()}));
    return toHex(ByteView(hash).first(16));
}

Result<NodeRecord> makeNodeRecord(const NodePlace &place, std::string_view password,
                                  const NodeKeys &keys, const PublicKey &recovery)
{
    NodeRecord record;
    const std::string &node = record.node = place.node;
    record.layout = place.layout;
    record.incarnation = place.incarnation;
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
        record, openKey(derived.wrapping, record.sealedData, wrappedContext(record, kData)),
        openKey(derived.wrapping, record.sealedIdentity, wrappedContext(record, kIdentity)));
}

Result<NodeKeys> recoverNodeRecord(const NodeRecord &record, const std::string &node,
                                   const SecretKey &recoveryKey)
{
    auto data = openKeyWith(recoveryKey, record.recoverableData, contextOf(node, kData));
    if (!data && data.error().kind == ErrorKind::damaged)
        return Error{ErrorKind::authentication,
                     "the recovery key does not open the keys of node " + printable(node)};
    ARCA_TRY(NodeKeys keys, checkedKeys(record, std::move(data),
                                        openKeyWith(recoveryKey, record.recoverableIdentity,
                                                    contextOf(node, kIdentity))));
    if (!keys.proven)
        return Error{ErrorKind::damaged,
                     "what the record of node " + printable(node) +
                         " holds for the recovery key is not what the node sealed there, so it is "
                         "not used; bring the record back from a copy of the repository"};
    return keys;
}

Bytes encodeNodeRecord(const NodeRecord &record)
{
    ByteWriter payload;
    if (record.removed) {
        payload.u16(kRemoved);
        payload.text(record.node);
        if (record.incarnation == 0)
            return frameRecord(kKind, kVersionRemoved, payload.view());
        payload.u32(record.incarnation);
        return frameRecord(kKind, kVersion, payload.view());
    }
    payload.raw(payloadOf(record));
    if (record.layout == 0)
        return frameRecord(kKind, kVersionWithoutProof, payload.view());
    payload.raw(record.proof);
    return frameRecord(kKind, kVersion, payload.view());
}

namespace
{

Result<NodeRecord> decodeRemoved(ByteReader &reader, bool saysIncarnation)
{
    NodeRecord record;
    record.removed = true;
    record.node = reader.text();
    record.incarnation = saysIncarnation ? reader.u32() : 0;
    if (!reader.ok() || reader.remaining() != 0 || (saysIncarnation && record.incarnation == 0))
        return Error{ErrorKind::damaged, "the record of a removed node is damaged"};
    return record;
}

} // namespace

Result<NodeRecord> decodeNodeRecord(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    const std::uint32_t version = ByteReader(bytes.subspan(kHeadBytes)).u32();
    const bool withProof = version == kVersion;
    ByteReader reader(payload);
    const std::uint16_t scheme = reader.u16();
    if (scheme == kRemoved && version >= kVersionRemoved)
        return decodeRemoved(reader, withProof);
    NodeRecord record;
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
    if (withProof) {
        record.layout = reader.u32();
        record.incarnation = reader.u32();
        reader.copyInto(record.proof);
    }
    if (!reader.ok() || reader.remaining() != 0 || scheme != kScheme ||
        version == kVersionRemoved || withProof != (record.layout != 0))
        return Error{ErrorKind::damaged, "the record of a node is damaged"};
    return record;
}

} // namespace arca::store
