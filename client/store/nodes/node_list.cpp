// Nodes as they are found: by their records, and what is left of one that is being removed by its
// filespaces, which go last.
#include "client/store/nodes/node_list.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/keys/node_record.h"
#include "client/store/space/filespace.h"
#include "client/store/space/node_space.h"

#include <algorithm>
#include <optional>
#include <set>

namespace arca::store
{

namespace
{

/// What stands between the first two slashes of "ROOM/KEY/...", under one room.
Result<std::set<std::string>> keysUnder(blob::BlobStore &store, const std::string &room)
{
    std::set<std::string> keys;
    ARCA_CHECK(store.list(room, [&](const std::string &name) {
        keys.insert(name.substr(room.size(), name.find('/', room.size()) - room.size()));
        return true;
    }));
    return keys;
}

/// Adds a digest of each name to `sum`, in whatever order they come.
Result<std::uint64_t> countUnder(blob::BlobStore &store, const std::string &prefix,
                                 std::uint64_t *sum = nullptr)
{
    std::uint64_t count = 0;
    ARCA_CHECK(store.list(prefix, [&](const std::string &name) {
        ++count;
        if (sum != nullptr)
            *sum += checksum64(viewOf(name));
        return true;
    }));
    return count;
}

/// Nothing when the record is not there, or damaged, which is counted: the node must be listed, and
/// can be removed, all the same.
template <class Record>
Result<std::optional<Record>> readCounting(blob::BlobStore &store, const std::string &prefix,
                                           Result<Record> (*decode)(ByteView), NodeSummary &node)
{
    using Answer = std::optional<Record>;
    const auto read = [&]() -> Result<Answer> {
        ARCA_TRY(const auto state, NumberedRecord(store, prefix).latest());
        if (!state)
            return Answer();
        ARCA_TRY(Record record, decode(state->bytes));
        return Answer(std::move(record));
    };
    auto record = read();
    if (record || record.error().kind != ErrorKind::damaged)
        return record;
    ++node.damagedRecords;
    return Answer();
}

/// Also the node's name, which every record of a filespace tells.
Result<void> addFilespaces(blob::BlobStore &store, NodeSummary &node)
{
    const std::string room = "filespaces/" + node.key + "/";
    ARCA_TRY(const auto hashes, keysUnder(store, room));
    for (const std::string &hash : hashes) {
        ARCA_TRY(const auto filespace, readCounting(store, room + hash, decodeFilespace, node));
        if (!filespace)
            continue;
        node.name = filespace->node;
        if (!filespace->deleted)
            node.filespaces.push_back(filespace->name);
    }
    std::sort(node.filespaces.begin(), node.filespaces.end());
    return {};
}

/// Where a node keeps what it stores whose record does not tell.
Result<void> findSpace(blob::BlobStore &store, NodeSummary &node)
{
    for (std::uint32_t incarnation = kLastSearched; incarnation != 0; --incarnation) {
        ARCA_TRY(const std::string key, spaceKeyOf(node.name, incarnation));
        ARCA_TRY(const std::uint64_t filespaces, countUnder(store, "filespaces/" + key + "/"));
        if (filespaces == 0)
            continue;
        node.key = key;
        node.incarnation = incarnation;
        break;
    }
    return {};
}

/// `name`: empty when it is not known. `key`: of the name, or of what is left without a record.
Result<NodeSummary> summarise(blob::BlobStore &store, const std::string &key,
                              const std::string &name)
{
    NodeSummary node;
    node.name = name;
    node.key = key;
    ARCA_TRY(node.number, NumberedRecord(store, "nodes/" + key).newestNumber());
    ARCA_TRY(const auto record, readCounting(store, "nodes/" + key, decodeNodeRecord, node));
    node.registered = (record && !record->removed) || node.damagedRecords != 0;
    if (record) {
        node.incarnation = record->incarnation;
        ARCA_TRY(node.key, spaceKeyOf(record->node, record->incarnation));
    } else if (!name.empty()) {
        ARCA_CHECK(findSpace(store, node));
    }
    node.name.clear();
    ARCA_CHECK(addFilespaces(store, node));
    if (node.registered && record)
        node.name = record->node;
    ARCA_TRY(node.pieces, countUnder(store, "pieces/" + node.key + "/", &node.kept));
    ARCA_TRY(node.inactive, countUnder(store, "inactive/" + node.key + "/", &node.kept));
    ARCA_TRY(node.removed, countUnder(store, "removed/" + node.key + "/", &node.kept));
    ARCA_TRY(node.packs, countUnder(store, "packs/" + node.key + "/", &node.kept));
    return node;
}

} // namespace

Result<std::vector<NodeSummary>> listNodes(blob::BlobStore &store)
{
    ARCA_TRY(const auto keys, keysUnder(store, "nodes/"));
    ARCA_TRY(auto left, keysUnder(store, "filespaces/"));
    std::vector<NodeSummary> nodes;
    const auto add = [&](const std::string &key) -> Result<void> {
        ARCA_TRY(NodeSummary node, summarise(store, key, {}));
        left.erase(node.key);
        if (!node.name.empty() || node.damagedRecords != 0) // else it went meanwhile
            nodes.push_back(std::move(node));
        return {};
    };
    for (const std::string &key : keys)
        ARCA_CHECK(add(key));
    for (const std::string &key : std::set<std::string>(left))
        ARCA_CHECK(add(key));
    std::sort(nodes.begin(), nodes.end(),
              [](const auto &a, const auto &b) { return a.name < b.name; });
    return nodes;
}

Result<std::map<std::string, std::string>> nodesByKey(blob::BlobStore &store)
{
    std::map<std::string, std::string> names;
    ARCA_TRY(const auto keys, keysUnder(store, "nodes/"));
    for (const std::string &key : keys) {
        NumberedRecord place(store, "nodes/" + key);
        ARCA_TRY(const auto state, place.latest());
        if (!state)
            continue;
        ARCA_TRY(const NodeRecord record,
                 inRecord(place.nameOf(state->number), decodeNodeRecord(state->bytes)));
        if (record.removed)
            continue;
        ARCA_TRY(const std::string space, spaceKeyOf(record.node, record.incarnation));
        names[key] = names[space] = record.node;
    }
    return names;
}

Result<NodeSummary> summaryOf(blob::BlobStore &store, const std::string &node)
{
    ARCA_TRY(const std::string key, nodeKey(node));
    ARCA_TRY(NodeSummary summary, summarise(store, key, node));
    // What a channel that outlived the removal left behind tells no name, nor do damaged records.
    if (summary.name.empty() && summary.pieces + summary.inactive + summary.removed +
                                        summary.packs + summary.damagedRecords !=
                                    0)
        summary.name = node;
    if (summary.name != node)
        return Error{ErrorKind::notFound, "there is no node " + printable(node)};
    return summary;
}

} // namespace arca::store
