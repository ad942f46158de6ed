// DHoxApiDL: the storage client as a shared library that is opened at run time, once a process: all
// objects of the class share library and table. The caller of Setup and Cleanup holds the
// initialisation lock. The destructor does not close the library.
#ifndef KEEL_AGENTS_COMMON_UNX_SUN_DHOXAPIDL_H
#define KEEL_AGENTS_COMMON_UNX_SUN_DHOXAPIDL_H

#include "agents/common/dhoxapi.h"

class DHoxApiDL : public DHoxApi
{
public:
    /// Opened by this name, so that the dynamic linker's search path decides which file it is; when
    /// that finds none, from where it is installed beside this library.
    static constexpr const char *kLibrary = "libApiHX64.so";

    DHoxApiDL() = default;
    explicit DHoxApiDL(const char *apiName);
    DHoxApiDL(const char *apiName, const char *nodeName, const char *ownerName,
              PasswordCallback callback);

    /// Opens the library and fills the table. Returns 0; with the library open already it does
    /// nothing. Returns DHOX_NOT_LOADED when the library or one of its 44 operations is missing;
    /// then the library is closed and the table null. The agent trace says why.
    int Setup() override;
    /// Closes the library and clears the table; no call through the table may be under way. Returns
    /// 0, also when nothing was open.
    int Cleanup() override;

private:
    static void *m_hLumoDll;
};

/// Stand-ins for an operation that is not loaded; they return 419 and 1, and in a debug build they
/// fail an assertion first, which ends the process. The table is never filled with them: other
/// parts of the product link to them.
std::int16_t FunctionNotLoaded();
std::int16_t LumoFunctionNotLoaded();

#endif
