// A proxy-copy library: ten functions that are only ever handed on, and one that describes it.

#include <cstring>

#define PROXY_FUNCTION(name)                                                                       \
    extern "C" __attribute__((visibility("default"))) int name()                                   \
    {                                                                                              \
        return 0;                                                                                  \
    }

PROXY_FUNCTION(sbtpcbackup)
PROXY_FUNCTION(sbtpccancel)
PROXY_FUNCTION(sbtpccommit)
PROXY_FUNCTION(sbtpcend)
PROXY_FUNCTION(sbtpcquerybackup)
PROXY_FUNCTION(sbtpcqueryrestore)
PROXY_FUNCTION(sbtpcrestore)
PROXY_FUNCTION(sbtpcstart)
PROXY_FUNCTION(sbtpcstatus)
PROXY_FUNCTION(sbtpcvalidate)

extern "C" __attribute__((visibility("default"))) void sbtpcGetDescription(char *description)
{
    std::strcpy(description, "scripted proxy");
}
