// See the header.
#include "client/engine/packs/settings.h"

#include <algorithm>
#include <thread>

namespace arca::engine
{

unsigned workersFor(const Settings &settings)
{
    if (settings.threads != 0)
        return std::min(settings.threads, kMaxThreads);
    return std::clamp(std::thread::hardware_concurrency(), 1U, 4U);
}

} // namespace arca::engine
