// The storage client's directories, as compiled in.
#include "agents/common/unx/pslumo.h"

#include "client/include/hoxapi.h"
#include "common/string/ststring.h"
#include "keel_paths.h"

long psGetLUMOAPIDir(char *buffer)
{
    stCopy(buffer, HOX_MAX_PATH + 1, KEEL_CLIENT_ROOT "/api/bin64");
    return 0;
}

long psGetLUMOAPILog(char *buffer)
{
    stCopy(buffer, HOX_MAX_PATH + 1, KEEL_CLIENT_ROOT "/oracle/bin64");
    return 0;
}

long psGetLUMOAPIConfig(char *buffer)
{
    buffer[0] = '\0';
    return 0;
}
