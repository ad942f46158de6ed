// See the header.
#include "client/api/filespace_check.h"

#include "client/base/text.h"

namespace arca::api
{

Answer<void> expectFilespace(Session &session, const std::string &name)
{
    ARCA_TRY(const auto filespace, session.space->filespace(name));
    if (!filespace)
        return refused(HOX_RC_FS_UNKNOWN, "the filespace " + printable(name) +
                                              " was never registered by node " +
                                              printable(session.space->node()));
    return {};
}

} // namespace arca::api
