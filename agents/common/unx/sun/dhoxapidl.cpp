// Opening the storage client and looking its operations up.
#include "agents/common/unx/sun/dhoxapidl.h"

#include <array>
#include <cassert>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "common/ut/trace.h"

void *DHoxApiDL::m_hLumoDll = nullptr;

namespace
{

constexpr std::size_t kSymbolWidth = 35;

#define DHOX_NAME(operation) #operation,
constexpr char kSymbols[][kSymbolWidth] = {DHOX_OPERATIONS(DHOX_NAME)};
#undef DHOX_NAME

constexpr std::size_t kSymbolCount = sizeof kSymbols / sizeof kSymbols[0];
static_assert(kSymbolCount == 44, "the client's interface has 44 operations");

// The loader keeps in mind for good that a directory of its search path was missing, also when it
// had no memory to look there. So what it does not find is asked for by its path from this library.
// The loader opens files as the effective user, who need not be the one that started the host.
void *openClient()
{
    void *client = dlopen(DHoxApiDL::kLibrary, RTLD_NOW);
    Dl_info own{};
    if (client != nullptr || dladdr(kSymbols, &own) == 0 || own.dli_fname == nullptr) {
        return client;
    }
    const char *const slash = std::strrchr(own.dli_fname, '/');
    const int length = slash == nullptr ? 0 : static_cast<int>(slash - own.dli_fname) + 1;
    for (const char *place : {"", "../../api/bin64/"}) {
        char path[PATH_MAX];
        const int whole = std::snprintf(path, sizeof path, "%.*s%s%s", length, own.dli_fname, place,
                                        DHoxApiDL::kLibrary);
        if (length != 0 && whole < PATH_MAX && faccessat(AT_FDCWD, path, R_OK, AT_EACCESS) == 0) {
            client = dlopen(path, RTLD_NOW);
        }
        if (client != nullptr) {
            break;
        }
    }
    return client;
}

} // namespace

DHoxApiDL::DHoxApiDL(const char *apiName) : DHoxApi(apiName)
{
    KEEL_TRACE(TR_API, "Enter & Exit %s\n", "DHoxApiDL::DHoxApiDL()");
}

DHoxApiDL::DHoxApiDL(const char *apiName, const char *nodeName, const char *ownerName,
                     PasswordCallback callback)
    : DHoxApi(apiName, nodeName, ownerName, callback)
{
    KEEL_TRACE(TR_API, "Enter & Exit %s\n", "DHoxApiDL::DHoxApiDL()");
}

int DHoxApiDL::Setup()
{
    KEEL_TRACE(TR_API, "Enter %s\n", "DHoxApiDL::Setup()");
    if (m_hLumoDll != nullptr) {
        KEEL_TRACE(TR_API, "ARCA API already loaded\n");
        return 0;
    }
    int rc = 0;
    errno = 0;
    KEEL_TRACE(TR_API, "Calling dlopen()\n");
    m_hLumoDll = openClient();
    if (m_hLumoDll == nullptr) {
        const int openErrno = errno;
        const char *loaderText = dlerror();
        KEEL_TRACE(TR_API,
                   "ERROR: could not load the ARCA API.\nerrno = %d, dlerror() returned\n %s",
                   openErrno, loaderText == nullptr ? "" : loaderText);
        rc = DHOX_NOT_LOADED;
    } else {
        KEEL_TRACE(TR_API, "ARCA API loaded successfully\n");
    }

    std::array<void *, kSymbolCount> found{};
    for (std::size_t i = 0; i < kSymbolCount; ++i) {
        found[i] = m_hLumoDll == nullptr ? nullptr : dlsym(m_hLumoDll, kSymbols[i]);
        if (found[i] == nullptr) {
            rc = DHOX_NOT_LOADED;
            Cleanup();
            break;
        }
    }
    if (rc == 0) {
        std::size_t i = 0;
#define DHOX_FILL(operation)                                                                       \
    m_fn##operation##P = reinterpret_cast<decltype(m_fn##operation##P)>(found[i++]);
        DHOX_OPERATIONS(DHOX_FILL)
#undef DHOX_FILL
    }
    KEEL_TRACE(TR_API, "Exit %s, rc = %d\n", "DHoxApiDL::Setup()", rc);
    return rc;
}

int DHoxApiDL::Cleanup()
{
    if (m_hLumoDll != nullptr) {
        dlclose(m_hLumoDll);
        m_hLumoDll = nullptr;
    } else {
        KEEL_TRACE(TR_API, "ARCA API is not loaded\n");
    }
    ClearPointers();
    return 0;
}

std::int16_t FunctionNotLoaded()
{
    KEEL_TRACE(TR_API, "Function not loaded\n");
    assert(!"an operation that is not loaded was called");
    return 419;
}

std::int16_t LumoFunctionNotLoaded()
{
    KEEL_TRACE(TR_API, "Lumo function not loaded\n");
    assert(!"an operation that is not loaded was called");
    return 1;
}
