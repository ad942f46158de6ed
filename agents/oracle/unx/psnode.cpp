// The names of the node and of the owner.
#include <array>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

#include "agents/oracle/common/context/orcblock.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "agents/oracle/unx/psnode.h"
#include "common/string/ststring.h"

namespace
{

constexpr std::size_t kNameSize = HOX_MAX_NODE_NAME + 1;

} // namespace

int psveloGetNodeName(char *buffer)
{
    // gethostname() need not terminate a name that fills the buffer.
    std::array<char, kNameSize + 1> name{};
    if (gethostname(name.data(), kNameSize) != 0) {
        name[0] = '\0';
    }
    stCopy(buffer, kNameSize, name.data());
    return 0;
}

int psveloGetOwnerName(char *buffer)
{
    buffer[0] = '\0';
    passwd record{};
    passwd *found = nullptr;
    std::array<char, 4096> room{};
    if (getpwuid_r(getuid(), &record, room.data(), room.size(), &found) == 0 && found != nullptr &&
        std::string_view(record.pw_name) != "root") {
        stCopy(buffer, kNameSize, record.pw_name);
    }
    return 0;
}

int psveloPutNodeName(const char *nodeName)
{
    TraceScope scope("psveloPutNodeName()");
    psMutexGuard lock(orcMutex);
    const std::int16_t index = SearchOrcBlock(0);
    if (index < 0) {
        SCOPE_EXIT(scope, " %s: Exit - SearchOrcBlock() failed. blockID = %d\n\n", scope.name(),
                   static_cast<int>(psveloGetID()));
        return -1;
    }
    stCopy(pOrcBlock[index].fileName, nodeName);
    return 0;
}

int psfillNodeName(char *buffer)
{
    TraceScope scope("psfillNodeName()");
    buffer[0] = '\0';
    const char *fromEnvironment = std::getenv("HOXO_NODE");
    if (fromEnvironment == nullptr || fromEnvironment[0] == '\0') {
        return psveloGetNodeName(buffer);
    }
    if (stLength(fromEnvironment, kNameSize) > HOX_MAX_NODE_NAME) {
        veloLogApiText(0, HOX_RC_NODE_NAME_TOO_LONG);
        SCOPE_EXIT(scope, " %s: Exit - Invalid Node\n\n", scope.name());
        return HOX_RC_NODE_NAME_TOO_LONG;
    }
    stCopy(buffer, kNameSize, fromEnvironment);
    return 0;
}
