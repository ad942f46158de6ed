// How far work has come that may take long.
#ifndef KEEL_CLIENT_STORE_LISTING_PROGRESS_H
#define KEEL_CLIENT_STORE_LISTING_PROGRESS_H

#include <cstdint>
#include <functional>

namespace arca::store
{

/// Called with how much is done of about how much; both are the same at the end. False stops the
/// work, which then fails with `stopped`. May be empty. The work says on which thread it calls.
using Progress = std::function<bool(std::uint64_t done, std::uint64_t planned)>;

} // namespace arca::store

#endif
