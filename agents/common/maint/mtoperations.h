// The operations that a storage client must have, for programs that check an installation.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTOPERATIONS_H
#define KEEL_AGENTS_COMMON_MAINT_MTOPERATIONS_H

#include <cstddef>

/// Returns their names, `count` constants, in the order in which the agent looks them up. Any
/// thread.
const char *const *mtOperationNames(std::size_t &count);

#endif
