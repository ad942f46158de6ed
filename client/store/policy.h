// Management classes: what becomes of the pieces that are bound to them.
#ifndef KEEL_CLIENT_STORE_POLICY_H
#define KEEL_CLIENT_STORE_POLICY_H

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace arca::store
{

struct ManagementClass {
    std::string_view name;
    std::string_view description;
    std::string_view storagePool;
    std::uint16_t versionsKept; // 65535: no limit
    std::uint16_t daysKept;     // 65535: for ever
};

/// Every class, the default one first.
const std::vector<ManagementClass> &managementClasses();
const ManagementClass &defaultManagementClass();
/// Names match in any case.
std::optional<ManagementClass> findManagementClass(std::string_view name);

} // namespace arca::store

#endif
