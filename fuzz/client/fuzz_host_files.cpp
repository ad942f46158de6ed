// Any bytes as the file of kept passwords and as the note in a lock file: a password is a word of a
// line of its node, and whoever holds a lock is told in one line.
#include "client/blob/directory/lock_wait.h"
#include "client/config/node_keys.h"
#include "fuzz/scratch.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace
{

using namespace arca;

void expect(bool holds)
{
    if (!holds)
        std::abort();
}

void tryPasswords(const std::string &optionFile, std::string_view text)
{
    std::size_t tried = 0;
    const auto found =
        config::NodeKeys(optionFile)
            .find("uuid", "node", [&](const std::string &password) -> Result<void> {
                expect(text.find("uuid " + password + " node") != text.npos);
                expect(!password.empty() && password.find_first_of(" \n") == password.npos);
                if (++tried % 3 == 0)
                    return {};
                return Error{ErrorKind::authentication, "another one"};
            });
    expect(found || tried != 0 || found.error().kind == ErrorKind::noPassword);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const std::string options = keelfuzz::scratch() + "/arca.opt", path = options + ".keys";
    static const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    expect(file >= 0 && ftruncate(file, 0) == 0 &&
           pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
    tryPasswords(options, {reinterpret_cast<const char *>(data), size});
    const auto locked = blob::systemFiles().open(path);
    expect(static_cast<bool>(locked));
    for (const char c : blob::holderOfLock(**locked))
        expect(static_cast<unsigned char>(c) >= 0x20);
    return 0;
}
