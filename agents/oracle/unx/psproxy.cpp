// The optional proxy-copy library, at a fixed place.
#include <dlfcn.h>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/unx/psproxy.h"
#include "common/string/ststring.h"
#include "keel_paths.h"

namespace
{

struct ProxySymbol {
    const char *name;
    const char *traced; // the name in traces, kept as it always was
};

constexpr ProxySymbol kProxySymbols[] = {
    {"sbtpcbackup", "sbtpcbackup()"},           {"sbtpccancel", "sbtpccancel()"},
    {"sbtpccommit", "sbtpccommit()"},           {"sbtpcend", "sbtpend()"},
    {"sbtpcquerybackup", "sbtpcquerybackup()"}, {"sbtpcqueryrestore", "sbtpcqueryrestore()"},
    {"sbtpcrestore", "sbtpcrestore()"},         {"sbtpcstart", "sbtpcstart()"},
    {"sbtpcstatus", "sbtpcstatus()"},           {"sbtpcvalidate", "sbtpcvalidate()"},
};

// The library writes its description without knowing the size of the buffer, hence a large one.
constexpr std::size_t kDescriptionRoom = 65536;

} // namespace

int psLoadPCFunctions(sbtEntryPoint *table, int *loaded, char *description,
                      std::size_t descriptionSize)
{
    TraceScope scope("psLoadPCFunctions()");
    *loaded = 0;
    description[0] = '\0';
    void *library = dlopen(KEEL_PROXY_LIBRARY, RTLD_NOW);
    if (library == nullptr) {
        [[maybe_unused]] const char *why = dlerror();
        SCOPE_EXIT(scope, " %s: Exit - %s\n\n", scope.name(), why == nullptr ? "" : why);
        return -1;
    }
    const auto give_up = [&](const char *missing) {
        dlclose(library);
        SCOPE_EXIT(scope, " %s: Exit - Cannot find address of %s\n\n", scope.name(), missing);
        return -1;
    };
    sbtEntryPoint *entry = table + SBT_FN_PROXY_FIRST;
    for (const ProxySymbol &symbol : kProxySymbols) {
        *entry = reinterpret_cast<sbtEntryPoint>(dlsym(library, symbol.name));
        if (*entry++ == nullptr) {
            return give_up(symbol.traced);
        }
    }
    using DescriptionFn = void (*)(char *);
    const auto describe = reinterpret_cast<DescriptionFn>(dlsym(library, "sbtpcGetDescription"));
    if (describe == nullptr) {
        return give_up("pcGetDescrFuncP)");
    }
    static char room[kDescriptionRoom];
    room[0] = '\0';
    describe(room);
    room[sizeof room - 1] = '\0';
    stCopy(description, descriptionSize, room);
    *loaded = 1;
    return 0;
}
