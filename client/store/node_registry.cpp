// Nodes: nodes/<node key>/ is the numbered record of a node. Its payload (kind "ARCANODE"):
//
//   offset  size
//        0     2  how the verifier is made: 1 = scrypt
//        2     8  N of scrypt   10  4  r   14  4  p
//       18    16  salt
//       34    32  verifier
//       66     -  name of the node: 16-bit length and as many bytes
//
// A password that people choose is slow to try (N = 2^14); one that the client made itself has 256
// random bits, nothing to try, and a small N keeps the start of a session cheap.
//
// Attempts on a chosen password take turns, whichever process makes them: locks/attempt-<node key>
// is held while one is made, and after a wrong one for a pause longer. Nobody waits for a turn for
// ever, or whoever guesses without end would lock the owner out.
#include "client/store/node_registry.h"

#include "client/base/hash.h"
#include "client/base/password.h"
#include "client/base/text.h"
#include "client/store/node_space.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = "ARCANODE";
constexpr std::uint32_t kVersion = 1;
constexpr std::uint16_t kScheme = 1;
constexpr std::chrono::milliseconds kPauseAfterWrong(500);
constexpr std::chrono::milliseconds kLongestWait(2000);
constexpr std::chrono::milliseconds kBetweenLooks(20);

struct NodeRecord {
    PasswordCost cost;
    std::array<std::byte, 16> salt{};
    Sha256 verifier{};
    std::string node;
};

Bytes encode(const NodeRecord &record)
{
    ByteWriter payload;
    payload.u16(kScheme);
    payload.u64(record.cost.n);
    payload.u32(record.cost.r);
    payload.u32(record.cost.p);
    payload.raw(record.salt);
    payload.raw(record.verifier);
    payload.text(record.node);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<NodeRecord> decode(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    NodeRecord record;
    const std::uint16_t scheme = reader.u16();
    record.cost.n = reader.u64();
    record.cost.r = reader.u32();
    record.cost.p = reader.u32();
    const ByteView salt = reader.raw(record.salt.size());
    std::copy(salt.begin(), salt.end(), record.salt.begin());
    const ByteView verifier = reader.raw(record.verifier.size());
    std::copy(verifier.begin(), verifier.end(), record.verifier.begin());
    record.node = reader.text();
    if (!reader.ok() || scheme != kScheme)
        return Error{ErrorKind::damaged, "the record of a node is damaged"};
    return record;
}

Result<NodeRecord> makeRecord(const std::string &node, std::string_view password)
{
    NodeRecord record;
    record.node = node;
    record.cost = costFor(password);
    ARCA_CHECK(fillRandom(record.salt));
    ARCA_TRY(record.verifier, derivePasswordKey(password, record.salt, record.cost));
    return record;
}

Result<void> compare(const NodeRecord &record, const std::string &node, std::string_view password)
{
    ARCA_TRY(const Sha256 verifier, derivePasswordKey(password, record.salt, record.cost));
    if (record.node != node || !equalSecrets(verifier, record.verifier))
        return Error{ErrorKind::authentication,
                     "the password of node " + printable(node) + " is wrong"};
    return {};
}

/// Nothing when no turn came in time, or when the repository cannot be written: it must still be
/// possible to log on for a restore.
std::unique_ptr<blob::BlobLock> turnOf(blob::BlobStore &store, const std::string &key)
{
    for (auto waited = kBetweenLooks; waited <= kLongestWait; waited += kBetweenLooks) {
        auto turn = store.tryLock("attempt-" + key);
        if (!turn)
            return nullptr;
        if (*turn)
            return std::move(turn).value();
        std::this_thread::sleep_for(kBetweenLooks);
    }
    return nullptr;
}

Result<void> compareInTurn(blob::BlobStore &store, const NodeRecord &record,
                           const std::string &node, std::string_view password)
{
    if (!isGuessable(record.cost))
        return compare(record, node, password);
    ARCA_TRY(const std::string key, nodeKey(node));
    const auto turn = turnOf(store, key);
    auto compared = compare(record, node, password);
    if (!compared && compared.error().kind == ErrorKind::authentication)
        std::this_thread::sleep_for(kPauseAfterWrong);
    return compared;
}

Error unregistered(const std::string &node)
{
    return {ErrorKind::authentication, "the node " + printable(node) + " is not registered"};
}

} // namespace

Result<NumberedRecord> NodeRegistry::recordOf(const std::string &node)
{
    ARCA_TRY(const std::string key, nodeKey(node));
    return NumberedRecord(store_, "nodes/" + key);
}

Result<bool> NodeRegistry::isRegistered(const std::string &node)
{
    ARCA_TRY(NumberedRecord record, recordOf(node));
    ARCA_TRY(const auto state, record.latest());
    return state.has_value();
}

Result<void> NodeRegistry::registerNode(const std::string &node, std::string_view password)
{
    ARCA_TRY(NumberedRecord record, recordOf(node));
    ARCA_TRY(const NodeRecord made, makeRecord(node, password));
    auto written = record.write(0, encode(made));
    if (!written && written.error().kind == ErrorKind::conflict)
        return Error{ErrorKind::exists, "the node " + printable(node) + " is registered already"};
    return written;
}

Result<void> NodeRegistry::authenticate(const std::string &node, std::string_view password)
{
    ARCA_TRY(NumberedRecord record, recordOf(node));
    ARCA_TRY(const auto state, record.latest());
    if (!state)
        return unregistered(node);
    ARCA_TRY(const NodeRecord found, decode(state->bytes));
    return compareInTurn(store_, found, node, password);
}

Result<void> NodeRegistry::changePassword(const std::string &node, std::string_view oldPassword,
                                          std::string_view newPassword)
{
    ARCA_TRY(NumberedRecord record, recordOf(node));
    ARCA_TRY(const auto state, record.latest());
    if (!state)
        return unregistered(node);
    ARCA_TRY(const NodeRecord found, decode(state->bytes));
    ARCA_CHECK(compareInTurn(store_, found, node, oldPassword));
    ARCA_TRY(const NodeRecord made, makeRecord(node, newPassword));
    return record.write(state->number, encode(made));
}

} // namespace arca::store
