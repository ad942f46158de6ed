// Nodes and their passwords: see the header. nodes/<node key>/ is the numbered record of a node.
//
// Attempts on a chosen password take turns, whichever process makes them: locks/attempt-<node key>
// is held while one is made, and after a wrong one for a pause longer. Nobody waits for a turn for
// ever, or whoever guesses without end would lock the owner out.
#include "client/store/node_registry.h"

#include "client/base/text.h"
#include "client/store/node_removal.h"
#include "client/store/node_space.h"
#include "client/store/recovery_key.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace arca::store
{

namespace
{

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

Error unregistered(const std::string &node)
{
    return {ErrorKind::authentication, "the node " + printable(node) + " is not registered"};
}

} // namespace

Result<NodeRegistry::Found> NodeRegistry::look(const std::string &node)
{
    ARCA_TRY(const std::string key, nodeKey(node));
    Found found{NumberedRecord(store_, "nodes/" + key), 0, {}};
    ARCA_TRY(const auto state, found.place.latest());
    if (!state)
        return found;
    found.number = state->number;
    ARCA_TRY(NodeRecord record, decodeNodeRecord(state->bytes));
    if (!record.removed)
        found.record = std::move(record);
    return found;
}

Result<bool> NodeRegistry::isRegistered(const std::string &node)
{
    ARCA_TRY(const Found found, look(node));
    return found.record.has_value();
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
    ARCA_TRY(const auto recovery, recoveryHalf(store_));
    if (!recovery)
        return Error{ErrorKind::notFound, "the repository has no recovery key yet; run arca init"};
    ARCA_TRY(const std::string key, nodeKey(node));
    const Error taken{ErrorKind::exists, "the node " + printable(node) + " is registered already"};
    ARCA_TRY(Found found, look(node));
    if (found.record)
        return taken;
    ARCA_TRY(const bool left, isHalfRemoved(store_, key));
    if (left)
        return Error{ErrorKind::exists,
                     "the node " + printable(node) +
                         " was removed, and not all of it is gone; finish that with: arca node "
                         "remove " +
                         printable(node)};
    ARCA_TRY(const NodeKeys keys, newNodeKeys());
    ARCA_TRY(const NodeRecord made, makeNodeRecord(node, password, keys, *recovery));
    auto written = found.place.write(found.number, encodeNodeRecord(made));
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

Result<NodeKeys> NodeRegistry::authenticate(const std::string &node, std::string_view password)
{
    ARCA_TRY(const Found found, find(node));
    return openInTurn(store_, *found.record, node, password);
}

Result<void> NodeRegistry::changePassword(const std::string &node, std::string_view oldPassword,
                                          std::string_view newPassword)
{
    ARCA_TRY(Found found, find(node));
    ARCA_TRY(const NodeKeys keys, openInTurn(store_, *found.record, node, oldPassword));
    ARCA_CHECK(found.record->wrap(newPassword, keys));
    return found.place.write(found.number, encodeNodeRecord(*found.record));
}

Result<NodeKeys> NodeRegistry::recover(const std::string &node, const SecretKey &recoveryKey)
{
    ARCA_TRY(const Found found, find(node));
    return recoverNodeRecord(*found.record, node, recoveryKey);
}

Result<void> NodeRegistry::recover(const std::string &node, const SecretKey &recoveryKey,
                                   std::string_view newPassword)
{
    ARCA_TRY(Found found, find(node));
    ARCA_TRY(const NodeKeys keys, recoverNodeRecord(*found.record, node, recoveryKey));
    ARCA_CHECK(found.record->wrap(newPassword, keys));
    return found.place.write(found.number, encodeNodeRecord(*found.record));
}

} // namespace arca::store
