// A wrapping trace over a file with any content: it begins, takes lines, stays within its maximum,
// and the first line then says where the newest one ends.
#include "common/ut/trace.h"
#include "fuzz/scratch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{
const std::string &tracePath()
{
    static const std::string path = keelfuzz::scratch() + "/trace";
    return path;
}

void check(int file)
{
    char header[13] = "";
    char marker[14];
    if (pread(file, header, 12, 12) != 12)
        std::abort();
    const long position = std::strtol(header, nullptr, 10);
    if (pread(file, marker, sizeof marker, position) != sizeof marker ||
        std::string(marker, sizeof marker) != "\nEND OF DATA\n\n" ||
        lseek(file, 0, SEEK_END) > 1'048'576)
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const int file = open(tracePath().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size))
        std::abort();
    // Mostly a hole, so that positions near the maximum are within the file.
    if (size > 0 && data[size - 1] % 2 == 1 && ftruncate(file, 1'048'000 + data[size - 1]) != 0)
        std::abort();
    trSetMaxTraceSize(1);
    if (trBegin(tracePath().c_str(), 0) != 0)
        std::abort();
    trEnable("GENERAL", 1);
    for (int n = 0; n < 3; ++n)
        KEEL_TRACE(TR_GENERAL, "a line of some length, number %d%*s\n", n, 200, "");
    if (!trActive())
        std::abort();
    check(file);
    trEnd();
    close(file);
    return 0;
}
