// DHoxApiDL: the storage client as a shared library that is opened at run time, once a process.
// Setup and Cleanup are called under the initialisation lock only.
#ifndef KEEL_AGENTS_COMMON_UNX_SUN_DHOXAPIDL_H
#define KEEL_AGENTS_COMMON_UNX_SUN_DHOXAPIDL_H

#include "agents/common/dhoxapi.h"

class DHoxApiDL : public DHoxApi
{
public:
    /// By this name alone, so that the search path of the dynamic linker decides where it comes
    /// from.
    static constexpr const char *kLibrary = "libApiHX64.so";

    DHoxApiDL() = default;
    explicit DHoxApiDL(const char *apiName);
    DHoxApiDL(const char *apiName, const char *nodeName, const char *ownerName,
              PasswordCallback callback);

    /// Opens the library and fills the table: 0, or 104 with the table left null when the library
    /// or one of its 44 operations is missing. With the library open already it does nothing and
    /// returns 0.
    int Setup() override;
    /// Closes the library and clears the table. Always 0.
    int Cleanup() override;

private:
    static void *m_hLumoDll;
};

/// Stand-ins for an operation that is not loaded. The table is never filled with them.
std::int16_t FunctionNotLoaded();
std::int16_t LumoFunctionNotLoaded();

#endif
