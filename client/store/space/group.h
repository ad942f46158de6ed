// Groups of pieces: a leader and its members, under a tag. A group ties its pieces together for
// queries, and for nothing else: each is stored, read and removed by itself.
//
//   groups/<node key>/<identifier of the leader: 16 digits>/<number>   the numbered record of a
//   group
//
// Pieces are noted by the identifier that they were stored under first, so that one that is renamed
// stays in its group. Members that are gone are skipped; the group goes with its leader.
#ifndef KEEL_CLIENT_STORE_SPACE_GROUP_H
#define KEEL_CLIENT_STORE_SPACE_GROUP_H

#include "client/store/pieces/piece.h"
#include "client/store/records/numbered_record.h"

#include <string>
#include <vector>

namespace arca::store
{

constexpr std::size_t kMaxGroupMembers = 4096;

/// Nothing checks the members but decodeGroup(): more than kMaxGroupMembers read as damaged.
struct Group {
    PieceId leader = 0;   // the first identifier of the piece, as those of the members
    bool deleted = false; // the leader leads none; it may open another
    std::string tag;
    std::vector<PieceId> members; // without the leader, none twice
};

/// The payload of a record of kind "ARCAGRUP": leader (8 bytes), 1 when deleted (2 bytes), tag (a
/// 16-bit length and as many bytes), number of members (4 bytes), and each (8 bytes).
Bytes encodeGroup(const Group &group);
Result<Group> decodeGroup(ByteView record);

/// The groups of one node. Everything is durable on return; several processes may change a group at
/// once. Errors of all calls: damaged. After an error that is not named a change may hold.
class Groups
{
public:
    explicit Groups(const engine::Domain &domain)
        : store_(domain.blobs()), seal_(domain), prefix_("groups/" + domain.nodeKey() + "/")
    {
    }

    /// Errors: notFound when the piece leads no group.
    Result<Group> find(PieceId leader);
    /// Errors: exists when the leader leads one already.
    Result<void> make(const Group &group);
    /// Applies `change`, which may refuse: its error is returned, and nothing is changed. It is
    /// called again on the present group when another process was faster. Errors: notFound;
    /// conflict after 100 times.
    Result<void> change(PieceId leader, const std::function<Result<void>(Group &)> &change);
    /// Removes the record, when the leader is removed. What cannot be removed stays, harmlessly.
    void forget(PieceId leader) { (void)recordOf(leader).remove(); }

private:
    NumberedRecord recordOf(PieceId leader);
    struct State {
        std::uint32_t number = 0;
        Group group;
    };
    Result<State> read(PieceId leader);

    blob::BlobStore &store_;
    RecordSeal seal_;
    std::string prefix_;
};

} // namespace arca::store

#endif
