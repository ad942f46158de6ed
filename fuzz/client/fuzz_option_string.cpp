// Any bytes as the option string of a session.
#include "client/config/options.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    arca::config::Options options;
    (void)arca::config::applyOptionString(options, {reinterpret_cast<const char *>(data), size});
    return 0;
}
