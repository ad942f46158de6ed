// Removing a node: see the header for the order.
#include "client/store/nodes/node_removal.h"

#include "client/base/text.h"
#include "client/blob/lock_holder.h"
#include "client/store/keys/grant.h"
#include "client/store/keys/node_record.h"
#include "client/store/nodes/node_list.h"
#include "client/store/space/filespace.h"
#include "client/store/space/node_space.h"

#include <set>

namespace arca::store
{

namespace
{

constexpr std::string_view kFilespaces = "filespaces/";
constexpr std::string_view kRooms[] = {"access/",    "grants/",     "coming/",  "pieces/",
                                       "inactive/",  "removed/",    "groups/",  "objects/",
                                       "changes/",   "outcomes/",   "reclaim/", "damage/",
                                       "inventory/", "quarantine/", "packs/"};

std::string prefixOf(std::string_view room, const std::string &key)
{
    return std::string(room) + key + "/";
}

/// The last state says that the node was removed, and stays. `number`: of the newest state when the
/// removal began, as another node may have the name by now.
Result<void> endRecord(blob::BlobStore &store, NumberedRecord &record, std::uint32_t number,
                       const NodeSummary &known)
{
    NodeRecord last;
    const std::string &node = last.node = known.name;
    last.incarnation = known.incarnation;
    last.removed = true;
    auto ended =
        blob::withReserve(store, [&] { return record.end(number, encodeNodeRecord(last)); });
    if (!ended && ended.error().kind == ErrorKind::conflict)
        return Error{ErrorKind::conflict,
                     "the record of node " + printable(node) +
                         " was changed meanwhile, so nothing was removed; see arca node list"};
    return ended;
}

/// What is stored after this look, and before the record ends, is taken back by who stores it.
/// `number`: of the newest state of the record, which the end of the record relies on.
Result<void> expectAsShown(blob::BlobStore &store, const NodeSummary &shown, std::uint32_t number)
{
    ARCA_TRY(const NodeSummary now, summaryOf(store, shown.name));
    if (number == shown.number && now.key == shown.key && now.kept == shown.kept)
        return {};
    return Error{ErrorKind::conflict, "node " + printable(shown.name) +
                                          " is another one, or keeps something else, since you "
                                          "were asked, so nothing was removed; run it again"};
}

Result<void> deleteFilespace(blob::BlobStore &store, const std::string &prefix)
{
    NumberedRecord record(store, prefix);
    ARCA_TRY(const auto state, record.latest());
    if (!state)
        return {};
    ARCA_TRY(Filespace filespace, decodeFilespace(state->bytes));
    filespace.deleted = true;
    return blob::withReserve(
        store, [&] { return record.write(state->number, encodeFilespace(filespace)); });
}

Result<void> deleteFilespaces(blob::BlobStore &store, const std::string &key)
{
    std::set<std::string> records;
    ARCA_CHECK(store.list(prefixOf(kFilespaces, key), [&](const std::string &name) {
        records.insert(name.substr(0, name.rfind('/')));
        return true;
    }));
    for (const std::string &prefix : records) {
        const auto done = deleteFilespace(store, prefix);
        // Nothing can be committed into a filespace whose record is damaged, so it may stay so.
        if (!done && done.error().kind != ErrorKind::damaged)
            return done;
    }
    return {};
}

/// Removes the blobs of a room as they are listed. False when `step` said stop.
class Sweep
{
public:
    Sweep(blob::BlobStore &store, const RemovalStep &step) : store_(store), step_(step) {}

    Result<bool> clear(const std::string &prefix)
    {
        Result<void> done;
        bool goOn = true;
        auto listed = store_.list(prefix, [&](const std::string &name) {
            done = removeBlob(store_, name);
            const bool isGone = !done && done.error().kind == ErrorKind::notFound;
            if (isGone)
                done = {};
            removed_ += done && !isGone ? 1 : 0;
            goOn = step_(removed_);
            return done && goOn;
        });
        ARCA_CHECK(std::move(done));
        ARCA_CHECK(std::move(listed));
        return goOn;
    }

    std::uint64_t removed() const { return removed_; }

private:
    blob::BlobStore &store_;
    const RemovalStep &step_;
    std::uint64_t removed_ = 0;
};

} // namespace

Result<NodeRemoval> removeNode(blob::BlobStore &store, const std::string &node,
                               const RemovalStep &step, const NodeSummary *shown)
{
    ARCA_TRY(const std::string key, nodeKey(node));
    NumberedRecord record(store, "nodes/" + key);
    ARCA_TRY(const std::uint32_t number, record.newestNumber());
    ARCA_TRY(const NodeSummary known, summaryOf(store, node));
    ARCA_TRY(const auto reclaiming, store.tryLock("reclaim-" + known.key, "removing the node"));
    if (!reclaiming)
        return Error{ErrorKind::conflict, "packs of node " + printable(node) + " are held by " +
                                              blob::holderOf(store, "reclaim-" + known.key) +
                                              "; try again when that is over"};
    ARCA_TRY(const auto turn, store.lock("change-" + known.key, "removing the node"));
    if (shown != nullptr)
        ARCA_CHECK(expectAsShown(store, *shown, number));
    // Also of a node whose record got lost.
    if (known.registered || number == 0)
        ARCA_CHECK(endRecord(store, record, number, known));
    ARCA_CHECK(deleteFilespaces(store, known.key));
    Sweep sweep(store, step);
    NodeRemoval removal;
    for (const std::string_view room : kRooms) {
        const std::uint64_t before = sweep.removed();
        ARCA_TRY(const bool cleared, sweep.clear(prefixOf(room, known.key)));
        if (!cleared)
            return removal;
        const std::uint64_t removed = sweep.removed() - before;
        removal.pieces += room == "pieces/" ? removed : 0;
        removal.inactive += room == "inactive/" ? removed : 0;
        removal.removed += room == "removed/" ? removed : 0;
        removal.packs += room == "packs/" ? removed : 0;
    }
    ARCA_TRY(removal.all, sweep.clear(prefixOf(kFilespaces, known.key)));
    return removal;
}

Result<bool> isHalfRemoved(blob::BlobStore &store, const std::string &key)
{
    bool some = false;
    constexpr std::string_view kLeft[] = {kFilespaces, "coming/",  "pieces/",
                                          "inactive/", "removed/", "packs/"};
    for (const std::string_view room : kLeft)
        ARCA_CHECK(store.list(prefixOf(room, key), [&](const std::string &) {
            some = true;
            return false;
        }));
    return some;
}

} // namespace arca::store
