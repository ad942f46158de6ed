// Changing the owner of a file that root made: see the header.
#include "client/config/root_file.h"

#include "client/base/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::config
{

void giveToOwnerOf(std::initializer_list<std::string> models, const std::string &file)
{
    if (::geteuid() != 0)
        return;
    struct stat model = {}, made = {};
    bool known = false;
    for (const std::string &path : models)
        known = known || ::stat(path.c_str(), &model) == 0;
    const int descriptor = openAbove(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    // With a second name it may be a file of another user, linked here in place of ours.
    if (known && descriptor >= 0 && ::fstat(descriptor, &made) == 0 && S_ISREG(made.st_mode) &&
        made.st_uid == 0 && made.st_nlink == 1)
        (void)(::fchown(descriptor, model.st_uid, model.st_gid) == 0);
    if (descriptor >= 0)
        ::close(descriptor);
}

} // namespace arca::config
