// What is the same for every blob store.
#include "client/blob/blob_store.h"

namespace arca::blob
{

Result<Bytes> readWhole(BlobStore &store, const std::string &name, std::size_t limit)
{
    ARCA_TRY(const auto reader, store.open(name));
    if (reader->size() > limit)
        return Error{ErrorKind::damaged, "the record " + name + " is larger than it can be"};
    Bytes bytes(static_cast<std::size_t>(reader->size()));
    ARCA_TRY(const std::size_t got, reader->read(0, bytes));
    if (got != bytes.size())
        return Error{ErrorKind::damaged, "the record " + name + " is cut"};
    return bytes;
}

Result<void> putWhole(BlobStore &store, const std::string &name, ByteView bytes)
{
    ARCA_TRY(const auto writer, store.begin());
    ARCA_CHECK(writer->append(bytes));
    return writer->commit(name);
}

} // namespace arca::blob
