// Nodes and their passwords: see the header. nodes/<node key>/ is the numbered record of a node.
//
// Attempts on a chosen password take turns, whichever process makes them: locks/attempt-<node key>
// is held while one is made, and after a wrong one for a pause longer. Nobody waits for a turn for
// ever, or whoever guesses without end would lock the owner out.
#include "client/store/nodes/node_registry.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/node_removal.h"
#include "client/store/nodes/recovery_check.h"
#include "client/store/space/node_space.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace arca::store
{

namespace
{

constexpr std::uint32_t kFirstLayoutWithProofs = 4;
constexpr std::chrono::milliseconds kPauseAfterWrong(500);
constexpr std::chrono::milliseconds kLongestWait(2000);
constexpr std::chrono::milliseconds kBetweenLooks(20);

/// Nothing when no turn came in time, or when the repository cannot be written: it must still be
/// possible to log on for a restore.
std::unique_ptr<blob::BlobLock> turnOf(blob::BlobStore &store, const std::string &key)
{
    for (auto waited = kBetweenLooks; waited <= kLongestWait; waited += kBetweenLooks) {
        auto turn = store.tryLock("attempt-" + key, "checking a password");
        if (!turn)
            return nullptr;
        if (*turn)
            return std::move(turn).value();
        std::this_thread::sleep_for(kBetweenLooks);
    }
    return nullptr;
}

Result<NodeKeys> openInTurn(blob::BlobStore &store, const NodeRecord &record,
                            const std::string &node, std::string_view password)
{
    if (!isGuessable(record.cost))
        return openNodeRecord(record, node, password);
    ARCA_TRY(const std::string key, nodeKey(node));
    const auto turn = turnOf(store, key);
    auto opened = openNodeRecord(record, node, password);
    if (!opened && opened.error().kind == ErrorKind::authentication)
        std::this_thread::sleep_for(kPauseAfterWrong);
    return opened;
}

/// Pieces of a node that is not registered. `removed`: its last record says that it was removed.
Error leftOver(const std::string &node, bool removed)
{
    const std::string name = printable(node);
    if (removed)
        return {ErrorKind::exists, "the node " + name +
                                       " was removed, and not all of it is gone; finish that with: "
                                       "arca node remove " +
                                       name};
    return {ErrorKind::exists, "pieces of the node " + name +
                                   " are there, and its record in nodes/ is not; bring the missing "
                                   "files of the repository back, or give up all that the node has "
                                   "stored with: arca node remove " +
                                   name};
}

/// Who registered the node may have died before that survives a loss of power, and what is stored
/// with the keys in that record is nothing without them. Where nothing can be written a restore
/// must still be possible.
Result<void> makeDurable(blob::BlobStore &store, const NumberedRecord &record, std::uint32_t number)
{
    auto synced = store.sync(record.nameOf(number));
    if (!synced &&
        (synced.error().kind == ErrorKind::readOnly || synced.error().kind == ErrorKind::denied))
        return {};
    return synced;
}

Error unregistered(const std::string &node)
{
    return {ErrorKind::authentication, "the node " + printable(node) + " is not registered"};
}

} // namespace

Result<NodeRegistry::Found> NodeRegistry::look(const std::string &node)
{
    ARCA_TRY(const std::string key, nodeKey(node));
    Found found{NumberedRecord(store_, "nodes/" + key), 0, 0, {}};
    ARCA_TRY(auto state, found.place.latest());
    if (!state) {
        // The listing met a change that had removed the states before: the next one does not.
        ARCA_TRY(state, found.place.latest());
    }
    if (!state)
        return found;
    found.number = state->number;
    ARCA_TRY(NodeRecord record,
             inRecord(found.place.nameOf(state->number), decodeNodeRecord(state->bytes)));
    found.incarnation = record.incarnation;
    if (!record.removed)
        found.record = std::move(record);
    return found;
}

Result<bool> NodeRegistry::isRegistered(const std::string &node)
{
    ARCA_TRY(const Found found, look(node));
    if (found.record)
        ARCA_CHECK(makeDurable(store_, found.place, found.number));
    return found.record.has_value();
}

Result<std::uint32_t> NodeRegistry::incarnationOf(const std::string &node)
{
    ARCA_TRY(const Found found, look(node));
    return found.incarnation;
}

Result<std::optional<PublicKey>> NodeRegistry::identityOf(const std::string &node)
{
    ARCA_TRY(const Found found, look(node));
    if (!found.record)
        return std::optional<PublicKey>();
    if (found.record->node != node)
        return Error{ErrorKind::damaged, "the record of node " + printable(node) +
                                             " is another one than its place says"};
    return std::optional<PublicKey>(found.record->identity);
}

Result<void> NodeRegistry::expectName(const std::string &node)
{
    const bool clean = std::ranges::none_of(
        node, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
    if (node.empty() || !clean || node.front() == ' ' || node.back() == ' ')
        return Error{ErrorKind::badArgument,
                     "'" + printable(node) +
                         "' is no name for a node: it must not be empty, have "
                         "control characters, or blanks at its ends"};
    return {};
}

Result<void> NodeRegistry::registerNode(const std::string &node, std::string_view password)
{
    ARCA_CHECK(expectName(node));
    // Published by another process, perhaps, and every node's keys are sealed to it.
    ARCA_CHECK(store_.sync("keys/recovery/"));
    ARCA_TRY(const auto recovery, recoveryHalf(store_));
    if (!recovery)
        return Error{ErrorKind::notFound, "the repository has no recovery key yet; run arca init"};
    const Error taken{ErrorKind::exists, "the node " + printable(node) + " is registered already"};
    ARCA_TRY(Found found, look(node));
    if (found.record) {
        ARCA_CHECK(makeDurable(store_, found.place, found.number));
        return taken;
    }
    // Without a record nothing says which incarnation was the last one.
    const std::uint32_t last = found.number == 0 ? kLastSearched : found.incarnation;
    for (std::uint32_t one = found.incarnation; one <= last; ++one) {
        ARCA_TRY(const std::string key, spaceKeyOf(node, one));
        ARCA_TRY(const bool left, isHalfRemoved(store_, key));
        if (left)
            return leftOver(node, found.number != 0);
    }
    NodePlace place{node};
    if (layout_ >= kFirstLayoutWithProofs)
        place = {node, layout_, found.number};
    ARCA_TRY(const NodeKeys keys, newNodeKeys());
    ARCA_TRY(const NodeRecord made, makeNodeRecord(place, password, keys, *recovery));
    // The state before says that a node was removed.
    auto written = found.place.end(found.number, encodeNodeRecord(made));
    if (!written && written.error().kind == ErrorKind::conflict)
        return taken;
    return written;
}

Result<NodeRegistry::Found> NodeRegistry::find(const std::string &node)
{
    ARCA_TRY(Found found, look(node));
    if (!found.record)
        return unregistered(node);
    return found;
}

/// Nobody without the password can change what the record says of the layout, and the marker of the
/// repository has a checksum only.
Result<void> NodeRegistry::expectLayout(const NodeRecord &record) const
{
    if (record.layout <= layout_)
        return {};
    return Error{ErrorKind::damaged,
                 "the file format says that the repository has layout " + std::to_string(layout_) +
                     ", but the node " + printable(record.node) + " knows that it has layout " +
                     std::to_string(record.layout) +
                     "; bring the file format back from a copy of the repository"};
}

/// The state before would let the password before log on, should the newest one get lost.
Result<void> NodeRegistry::replace(Found &found)
{
    ARCA_CHECK(found.place.write(found.number, encodeNodeRecord(*found.record)));
    (void)found.place.removeUpTo(found.number);
    return {};
}

/// Gives a record of before its proof. Where nothing can be written it stays as it is, and another
/// process may be faster.
void NodeRegistry::renew(Found &found, std::string_view password, const NodeKeys &keys)
{
    if (layout_ < kFirstLayoutWithProofs || found.record->layout != 0)
        return;
    found.record->layout = layout_;
    if (found.record->wrap(password, keys))
        (void)replace(found);
}

Result<NodeKeys> NodeRegistry::authenticate(const std::string &node, std::string_view password)
{
    ARCA_TRY(Found found, find(node));
    ARCA_TRY(NodeKeys keys, openInTurn(store_, *found.record, node, password));
    ARCA_CHECK(expectLayout(*found.record));
    ARCA_CHECK(makeDurable(store_, found.place, found.number));
    renew(found, password, keys);
    return keys;
}

Result<void> NodeRegistry::changePassword(const std::string &node, std::string_view oldPassword,
                                          std::string_view newPassword)
{
    ARCA_TRY(Found found, find(node));
    ARCA_TRY(const NodeKeys keys, openInTurn(store_, *found.record, node, oldPassword));
    ARCA_CHECK(expectLayout(*found.record));
    ARCA_CHECK(found.record->wrap(newPassword, keys));
    return replace(found);
}

/// Everybody can seal keys of his own to the recovery key, and make a record that fits them. What
/// the node stored does not fit them.
Result<NodeKeys> NodeRegistry::recovered(const Found &found, const SecretKey &recoveryKey)
{
    const std::string &node = found.record->node;
    ARCA_TRY(NodeKeys keys, recoverNodeRecord(*found.record, node, recoveryKey));
    ARCA_CHECK(expectLayout(*found.record));
    ARCA_TRY(const bool fits, opensWhatIsStored(store_, node, keys));
    if (!fits)
        return Error{ErrorKind::damaged,
                     "what the record of node " + printable(node) +
                         " holds for the recovery key does not open what the node has stored, so "
                         "it is not used; bring the record back from a copy of the repository"};
    return keys;
}

Result<NodeKeys> NodeRegistry::recover(const std::string &node, const SecretKey &recoveryKey)
{
    ARCA_TRY(const Found found, find(node));
    if (found.record->node != node)
        return Error{ErrorKind::authentication,
                     "the recovery key does not open the keys of node " + printable(node)};
    return recovered(found, recoveryKey);
}

Result<void> NodeRegistry::recover(const std::string &node, const SecretKey &recoveryKey,
                                   std::string_view newPassword)
{
    ARCA_TRY(const NodeKeys keys, recover(node, recoveryKey));
    ARCA_TRY(Found found, find(node));
    ARCA_TRY(const NodeKeys same, recoverNodeRecord(*found.record, node, recoveryKey));
    if (!equalSecrets(same.data.view(), keys.data.view()))
        return Error{ErrorKind::conflict,
                     "the record of node " + printable(node) + " was changed meanwhile"};
    ARCA_CHECK(found.record->wrap(newPassword, keys));
    return replace(found);
}

} // namespace arca::store
