// The names of the storage client's operations: see the header.
#include "agents/common/maint/mtoperations.h"

#include "agents/common/dhoxoperations.h"

const char *const *mtOperationNames(std::size_t &count)
{
#define MT_NAME(operation) #operation,
    static constexpr const char *names[] = {DHOX_OPERATIONS(MT_NAME)};
#undef MT_NAME
    count = sizeof names / sizeof names[0];
    return names;
}
