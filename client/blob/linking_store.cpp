// A second name for a blob, or a copy of it.
#include "client/blob/linking_store.h"

#include <algorithm>

namespace arca::blob
{

namespace
{

constexpr std::uint64_t kCopyBytes = std::uint64_t{1} << 20;

Result<void> copy(BlobStore &store, BlobReader &from, const std::string &to)
{
    ARCA_TRY(const auto writer, store.begin());
    Bytes portion(std::min(std::max<std::uint64_t>(from.size(), 1), kCopyBytes));
    for (std::uint64_t offset = 0; offset < from.size();) {
        ARCA_TRY(const std::size_t got, from.read(offset, portion));
        if (got == 0)
            return Error{ErrorKind::damaged, "a blob was cut while it was copied to " + to};
        ARCA_CHECK(writer->append(ByteView(portion).first(got)));
        offset += got;
    }
    return writer->commit(to);
}

} // namespace

Result<SecondName> linkOrCopy(BlobStore &store, const std::string &from, BlobReader &opened,
                              const std::string &to)
{
    if (auto *const linking = dynamic_cast<LinkingStore *>(&store)) {
        ARCA_TRY(const bool linked, linking->link(from, opened, to));
        if (linked)
            return SecondName::linked;
    }
    ARCA_CHECK(copy(store, opened, to));
    return SecondName::copied;
}

} // namespace arca::blob
