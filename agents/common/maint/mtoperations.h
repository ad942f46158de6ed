// The operations that a storage client must have, for whoever looks an installation over.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTOPERATIONS_H
#define KEEL_AGENTS_COMMON_MAINT_MTOPERATIONS_H

#include <cstddef>

/// Their names, in the order in which the agent looks them up.
const char *const *mtOperationNames(std::size_t &count);

#endif
