// Any bytes as what the database prints of its size: the line that is kept fits its buffer and does
// not depend on how the output is cut into parts.

#include "agents/oracle/common/session/fourthline.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    const char *output = reinterpret_cast<const char *>(data);
    LastOfFourLines whole;
    LastOfFourLines bytewise;
    whole.take(output, size);
    for (std::size_t i = 0; i < size && bytewise.take(output + i, 1); ++i) {
    }
    const char *const line = whole.last();
    if (std::strlen(line) > 512 || std::strcmp(line, bytewise.last()) != 0)
        std::abort();
    return 0;
}
