// Groups of objects: see the header.
#include "agents/common/maint/mtgroup.h"

#include "common/cu/cu64.h"

namespace
{

hox64_t halves(std::uint64_t value)
{
    return {cuHigh32(value), cuLow32(value)};
}

std::vector<hox64_t> allHalves(std::span<const std::uint64_t> values)
{
    std::vector<hox64_t> all;
    for (const std::uint64_t value : values) {
        all.push_back(halves(value));
    }
    return all;
}

} // namespace

int mtGroupMake(const mtSession &session, const std::string &tag, const hoxObjName &leader,
                std::span<const std::uint64_t> members, std::uint64_t &leaderId)
{
    hox64_t id{};
    int rc = mtApi()->groupOpen(mtStatus(), session.handle(), tag.c_str(), &leader, &id);
    if (rc != HOX_RC_OK) {
        return rc;
    }
    if (!members.empty()) {
        const auto list = allHalves(members);
        rc = mtApi()->groupAdd(mtStatus(), session.handle(), id, list.data(),
                               static_cast<std::uint32_t>(list.size()));
        if (rc != HOX_RC_OK) {
            // The session would refuse another group while this one is open.
            mtApi()->groupDelete(mtStatus(), session.handle(), id);
            return rc;
        }
    }
    // A close that fails ends the open group itself. Deleting by the leader would then delete a
    // group that another session has made with that leader meanwhile.
    rc = mtApi()->groupClose(mtStatus(), session.handle(), id);
    if (rc == HOX_RC_OK) {
        leaderId = cuMake64(id.hi, id.lo);
    }
    return rc;
}

int mtGroupAdd(const mtSession &session, std::uint64_t leaderId,
               std::span<const std::uint64_t> members)
{
    const auto list = allHalves(members);
    return mtApi()->groupAssign(mtStatus(), session.handle(), halves(leaderId), list.data(),
                                static_cast<std::uint32_t>(list.size()));
}

int mtGroupTakeOut(const mtSession &session, std::uint64_t leaderId,
                   std::span<const std::uint64_t> members)
{
    const auto list = allHalves(members);
    return mtApi()->groupRemove(mtStatus(), session.handle(), halves(leaderId), list.data(),
                                static_cast<std::uint32_t>(list.size()));
}

int mtGroupDelete(const mtSession &session, std::uint64_t leaderId)
{
    return mtApi()->groupDelete(mtStatus(), session.handle(), halves(leaderId));
}
