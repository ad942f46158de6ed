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

/// Writes that the node was removed, after the state `number`: that of the newest one when the
/// removal began, as another node may have the name by now. From then on who stores something takes
/// it back. `last`: the states before go, too.
Result<void> writeRemoved(blob::BlobStore &store, NumberedRecord &record, std::uint32_t number,
                          const NodeSummary &known, bool last)
{
    NodeRecord removed;
    removed.node = known.name;
    removed.incarnation = known.incarnation;
    removed.removed = true;
    const Bytes state = encodeNodeRecord(removed);
    auto written = blob::withReserve(
        store, [&] { return last ? record.end(number, state) : record.write(number, state); });
    if (!written && written.error().kind == ErrorKind::conflict)
        return Error{ErrorKind::conflict,
                     "the record of node " + printable(known.name) +
                         " was changed meanwhile, so nothing was removed; see arca node list"};
    return written;
}

Result<void> expectAsShown(blob::BlobStore &store, const NodeSummary &shown)
{
    const auto now = summaryOf(store, shown.name);
    // Of one that kept nothing no more is left than that it was removed.
    const bool isGone = !now && now.error().kind == ErrorKind::notFound;
    if (!now && !isGone)
        return now.error();
    if (isGone ? shown.kept == 0 : now->key == shown.key && now->kept == shown.kept)
        return {};
    return Error{ErrorKind::conflict, "node " + printable(shown.name) +
                                          " is another one, or keeps something else, since you "
                                          "were asked, so nothing was removed; run it again"};
}

/// First nothing can be stored any more, then comes the look at what is lost, and then the removal
/// goes on or is given up: by a state with the next number each time, so that of two that decide
/// only one does.
Result<void> endAsShown(blob::BlobStore &store, NumberedRecord &record, const NodeSummary &known,
                        const NodeSummary &shown)
{
    ARCA_TRY(const std::uint32_t number, record.newestNumber());
    const auto before = record.latest();
    if (!before && before.error().kind != ErrorKind::damaged)
        return before.error();
    if (number != shown.number || (before && *before && (*before)->number != number))
        return Error{ErrorKind::conflict, "the record of node " + printable(shown.name) +
                                              " was changed since you were asked, so nothing was "
                                              "removed; run it again"};
    ARCA_CHECK(expectAsShown(store, shown));
    if (!before || !*before) // cannot be given back
        return writeRemoved(store, record, number, known, true);
    ARCA_CHECK(writeRemoved(store, record, number, known, false));
    auto same = expectAsShown(store, shown);
    if (same) {
        (void)record.removeUpTo(number);
        return {};
    }
    auto back = blob::withReserve(store, [&] { return record.end(number + 1, (*before)->bytes); });
    return back || back.error().kind == ErrorKind::conflict
               ? same
               : inContext(back.error(), "node " + printable(shown.name) +
                                             " keeps something else since you were asked; nothing "
                                             "of it was removed, but its record says that it was");
}

/// A removal that stopped before it had decided is decided here: it does not give the node back.
Result<void> endStopped(blob::BlobStore &store, NumberedRecord &record, std::uint32_t number,
                        const NodeSummary &known)
{
    const auto before = store.open(record.nameOf(number - 1));
    if (!before && before.error().kind == ErrorKind::notFound)
        return {};
    return writeRemoved(store, record, number, known, true);
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
    const bool ends = known.registered || number == 0; // also when its record got lost
    if (ends && shown != nullptr)
        ARCA_CHECK(endAsShown(store, record, known, *shown));
    else if (ends)
        ARCA_CHECK(writeRemoved(store, record, number, known, true));
    else if (shown != nullptr)
        ARCA_CHECK(expectAsShown(store, *shown));
    if (!ends)
        ARCA_CHECK(endStopped(store, record, number, known));
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
