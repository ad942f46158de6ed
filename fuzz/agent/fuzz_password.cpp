// Any bytes as a password file: what is read from it fits the buffer of a password. No storage
// client is loaded, so the blocks are not deciphered, only cut.

#include "agents/oracle/unx/psvelo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    static char path[] = "/tmp/fuzz-password.XXXXXX";
    static const int file = mkstemp(path);
    static const int registered = std::atexit([] { unlink(path); });
    if (file < 0 || registered != 0 || ftruncate(file, 0) != 0 ||
        pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    std::uint32_t key[2] = {1, 2};
    char password[HOX_MAX_PASSWORD + 1];
    if (psveloReadPswdFromFile(path, password, key) != 0 ||
        std::memchr(password, '\0', sizeof password) == nullptr)
        std::abort();
    return 0;
}
