// What is the same for every blob store.
#include "client/blob/blob_store.h"

#include "client/base/text.h"

#include <string_view>

#include "client/base/text.h"

namespace arca::blob
{

Result<void> expectBlobName(const std::string &name)
{
    std::string_view rest = name;
    for (;;) {
        const auto slash = rest.find('/');
        const std::string_view part = rest.substr(0, slash);
        if (part.empty() || part == "." || part == ".." || part.find('\0') != part.npos)
            return Error{ErrorKind::badArgument, "no blob can be called " + printable(name, 400)};
        if (slash == std::string_view::npos)
            return {};
        rest.remove_prefix(slash + 1);
    }
}

Result<Bytes> readWhole(BlobStore &store, const std::string &name, std::size_t limit)
{
    ARCA_TRY(const auto reader, store.open(name));
    return readWhole(*reader, name, limit);
}

Result<Bytes> readWhole(BlobReader &reader, const std::string &name, std::size_t limit)
{
    if (reader.size() > limit)
        return Error{ErrorKind::damaged, "the record " + name + " is larger than it can be"};
    Bytes bytes(static_cast<std::size_t>(reader.size()));
    ARCA_TRY(const std::size_t got, reader.read(0, bytes));
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
