// Access for other nodes: see the header.
#include "agents/common/maint/mtaccess.h"

int mtAccessRules(const mtSession &session, std::vector<qryRespAccessData> &rules)
{
    // Other sessions may add rules between the count and the read, so it is repeated until all fit.
    std::uint16_t count = 0;
    for (;;) {
        rules.resize(count);
        const int rc = mtApi()->dhoxQueryAccess(mtStatus(), session.handle(), rules.data(), &count);
        if (rc != HOX_RC_MORE_DATA) {
            rules.resize(rc == HOX_RC_OK || rc == HOX_RC_REPOSITORY_DAMAGED ? count : 0);
            return rc;
        }
    }
}

int mtAccessGrant(const mtSession &session, const hoxObjName &name, const std::string &node,
                  const std::string &owner)
{
    return mtApi()->dhoxSetAccess(mtStatus(), session.handle(), HOX_ACCESS_READ, &name,
                                  node.c_str(), owner.c_str());
}

int mtAccessRevoke(const mtSession &session, std::uint32_t rule)
{
    return mtApi()->dhoxDeleteAccess(mtStatus(), session.handle(), rule);
}
