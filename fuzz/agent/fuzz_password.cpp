// Any bytes as a password file: what is read from it fits the buffer of a password. No storage
// client is loaded, so the blocks are not deciphered, only cut.

#include "agents/oracle/unx/pspassword.h"
#include "fuzz/scratch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    static const std::string path = keelfuzz::scratch() + "/password";
    static const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (file < 0 || ftruncate(file, 0) != 0 ||
        pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    std::uint32_t key[2] = {1, 2};
    char password[HOX_MAX_PASSWORD + 1];
    if (psveloReadPswdFromFile(path.c_str(), password, key) != 0 ||
        std::memchr(password, '\0', sizeof password) == nullptr)
        std::abort();
    return 0;
}
