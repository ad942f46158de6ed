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
    const auto there = blobs.open(std::string(form::defaults.place));
    if (!there && there.error().kind != ErrorKind::notFound)
        return there.error();
    return static_cast<bool>(there);
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
                                             "repository, or set it again"};
    return state;
}

} // namespace arca::store
