// An open file of the operating system, as the directory store sees it.
#ifndef KEEL_CLIENT_BLOB_FILES_SYSTEM_FILE_H
#define KEEL_CLIENT_BLOB_FILES_SYSTEM_FILE_H

#include "client/base/own_descriptor.h"
#include "client/blob/files/file_layer.h"

namespace arca::blob
{

/// Returns the file of a descriptor, which it closes. `path` is for errors.
std::unique_ptr<File> systemFile(int descriptor, std::string path);
/// The same of a descriptor that a forked child must not keep: it would keep a lock of its
/// parent's.
std::unique_ptr<File> systemFile(std::unique_ptr<OwnDescriptor> own, std::string path);

} // namespace arca::blob

#endif
