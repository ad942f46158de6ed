// Records from the beginning: see the header.
#include "client/store/records/defaults.h"

#include "client/store/records/record_forms.h"

namespace arca::store
{

Result<void> decodeDefaults(ByteView record)
{
    ARCA_TRY(const ByteView payload,
             unframeRecord(record, form::defaults.kind, form::defaults.newest));
    if (!payload.empty())
        return Error{ErrorKind::damaged, "the note of the first records is damaged"};
    return {};
}

Result<void> noteDefaults(blob::BlobStore &blobs)
{
    auto put = blob::putWhole(blobs, std::string(form::defaults.place),
                              frameRecord(form::defaults.kind, form::defaults.newest, {}));
    if (!put && put.error().kind == ErrorKind::exists)
        return {};
    return put;
}

Result<bool> areDefaultsNoted(blob::BlobStore &blobs)
{
    const std::string name(form::defaults.place);
    const auto bytes = blob::readWhole(blobs, name, kMaxRecordBytes);
    if (!bytes && bytes.error().kind == ErrorKind::notFound)
        return false;
    if (!bytes)
        return bytes.error();
    ARCA_CHECK(inRecord(name, decodeDefaults(*bytes)));
    return true;
}

Result<std::optional<NumberedRecord::State>> latestDefault(blob::BlobStore &blobs,
                                                           NumberedRecord &record)
{
    ARCA_TRY(auto state, record.latest());
    if (state)
        return state;
    ARCA_TRY(const bool noted, areDefaultsNoted(blobs));
    if (!noted)
        return state;
    // They were noted since, perhaps, and written before that.
    ARCA_TRY(state, record.latest());
    if (!state)
        return Error{ErrorKind::damaged, "the record " + record.place() +
                                             " is lost: bring it back from a copy of the "
                                             "repository, or write it anew"};
    return state;
}

} // namespace arca::store
