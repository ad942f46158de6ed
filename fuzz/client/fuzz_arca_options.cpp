// Any bytes as an option file: taken, or refused with a line that can be shown.
#include "client/config/options.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace arca;
    const auto options =
        config::parseOptionText({reinterpret_cast<const char *>(data), size}, "arca.opt");
    if (options)
        return 0;
    for (const char c : options.error().text)
        if (static_cast<unsigned char>(c) < 0x20)
            std::abort();
    if (options.error().text.size() > 2000 ||
        options.error().text.find("arca.opt, line ") == std::string::npos)
        std::abort();
    return 0;
}
