// See the header.
#include "client/api/objects/filespace_check.h"

#include "client/base/text.h"

namespace arca::api
{

Answer<void> expectFilespace(Session &session, const std::string &name)
{
    auto known = session.space->filespace(name);
    // A guest learns no blob names, and can do nothing about the record.
    if (!known && known.error().kind == ErrorKind::damaged && session.isGuest())
        return refused(HOX_RC_REPOSITORY_DAMAGED,
                       "the record of the filespace " + printable(name) + " of node " +
                           printable(session.space->node()) +
                           " is damaged; that node's arca verify names it");
    ARCA_TRY(const auto filespace, std::move(known));
    if (!filespace)
        return refused(HOX_RC_FS_UNKNOWN, "the filespace " + printable(name) +
                                              " is not registered by node " +
                                              printable(session.space->node()));
    return {};
}

} // namespace arca::api
