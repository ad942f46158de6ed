// The management classes of a repository: one, which keeps a piece until it is deleted.
#include "client/store/policy.h"

#include "client/base/text.h"

namespace arca::store
{

const std::vector<ManagementClass> &managementClasses()
{
    static const auto *const classes = new std::vector<ManagementClass>{
        {"STANDARD", "Pieces are kept until the application deletes them", "BACKUPPOOL", 1, 65535}};
    return *classes;
}

const ManagementClass &defaultManagementClass()
{
    return managementClasses().front();
}

std::optional<ManagementClass> findManagementClass(std::string_view name)
{
    for (const ManagementClass &known : managementClasses())
        if (equalIgnoringCase(known.name, name))
            return known;
    return std::nullopt;
}

} // namespace arca::store
