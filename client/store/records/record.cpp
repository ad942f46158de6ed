// See the header.
#include "client/store/records/record.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

Bytes frameRecord(std::string_view kind, std::uint32_t version, ByteView payload)
{
    ByteWriter writer;
    writer.raw(viewOf(kind));
    writer.u32(version);
    writer.u32(static_cast<std::uint32_t>(payload.size()));
    writer.raw(payload);
    writer.u64(checksum64(writer.view()));
    return writer.take();
}

Result<ByteView> unframeRecord(ByteView bytes, std::string_view kind, std::uint32_t newestVersion,
                               std::uint32_t oldestVersion)
{
    ByteReader reader(bytes);
    const std::string_view found = textOf(reader.raw(8));
    const std::uint32_t version = reader.u32();
    const ByteView payload = reader.raw(reader.u32());
    const std::size_t covered = bytes.size() - reader.remaining();
    const std::uint64_t checksum = reader.u64();
    if (!reader.ok() || reader.remaining() != 0 || found != kind ||
        checksum != checksum64(bytes.first(covered)))
        return Error{ErrorKind::damaged, "a record of kind " + std::string(kind) + " is damaged"};
    if (version > newestVersion)
        return Error{ErrorKind::newerFormat,
                     "a record of kind " + std::string(kind) + " was written by a newer release"};
    if (version < oldestVersion)
        return Error{ErrorKind::olderFormat,
                     "a record of kind " + std::string(kind) + " was written by an older release"};
    return payload;
}

std::string cureForRecord(std::string_view blobName)
{
    // The keys of a node, and of the repository, can be made again by nothing.
    if (blobName.starts_with(form::node.place) || blobName.starts_with(form::recoveryHalf.place))
        return "put a sound copy of that file back";
    if (blobName.starts_with(form::mark.place))
        return "arca reclaim replaces it";
    return "arca rm --blob " + printable(blobName, 400) + " gives it up";
}

Error aboutRecord(Error failure, const std::string &blobName)
{
    if (failure.text.find(blobName) == std::string::npos)
        failure.text = blobName + ": " + failure.text;
    const std::string cure = cureForRecord(blobName);
    if (failure.kind == ErrorKind::damaged && failure.text.find(cure) == std::string::npos)
        failure.text += "; " + cure;
    return failure;
}

} // namespace arca::store
