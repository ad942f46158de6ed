// From an errno to an error of ours.
#include "client/blob/files/file_layer.h"

#include <cerrno>
#include <cstring>
#include <type_traits>

namespace arca::blob
{

Error fromErrno(int number, const std::string &action, const std::string &path)
{
    ErrorKind kind = ErrorKind::io;
    switch (number) {
    case ENOENT:
    case ENOTDIR:
        kind = ErrorKind::notFound;
        break;
    case EEXIST:
        kind = ErrorKind::exists;
        break;
    case ENOSPC:
    case EDQUOT:
        kind = ErrorKind::full;
        break;
    case EROFS:
        kind = ErrorKind::readOnly;
        break;
    case EACCES:
    case EPERM:
        kind = ErrorKind::denied;
        break;
    case EFBIG: // no space would help
        return {ErrorKind::io, action + " " + path +
                                   ": the file would be larger than its file system, or a limit of "
                                   "this process (ulimit -f), allows; raise the limit, or put the "
                                   "file on a file system that takes larger ones"};
    default:
        break;
    }
    char reason[128] = "";
    // Two forms of strerror_r exist; whichever this is, the text is where it says or in the buffer.
    const auto told = strerror_r(number, reason, sizeof reason);
    if constexpr (std::is_pointer_v<decltype(told)>)
        return {kind,
                action + " " + path + ": " + std::string(reinterpret_cast<const char *>(told))};
    return {kind, action + " " + path + ": " + reason};
}

} // namespace arca::blob
