// The grace time, to and from bytes.
#include "client/store/marks/grace.h"

#include "client/store/records/defaults.h"
#include "client/store/records/record_forms.h"

namespace arca::store
{

Result<std::int64_t> decodeGrace(ByteView record)
{
    ARCA_TRY(const ByteView payload,
             unframeRecord(record, form::graceTime.kind, form::graceTime.newest));
    ByteReader reader(payload);
    const auto seconds = static_cast<std::int64_t>(reader.u64());
    if (!reader.ok() || reader.remaining() != 0 || seconds < 0 || seconds > kMaxGrace)
        return Error{ErrorKind::damaged, "the record of the grace time is damaged"};
    return seconds;
}

Result<std::int64_t> GraceTime::read()
{
    ARCA_TRY(const auto state, latestDefault(blobs_, record_));
    if (!state)
        return kDefaultGrace;
    return inRecord(record_.nameOf(state->number), decodeGrace(state->bytes));
}

Result<void> GraceTime::write(std::int64_t seconds)
{
    if (seconds < 0 || seconds > kMaxGrace)
        return Error{ErrorKind::badArgument, "the grace time is at most 100 years"};
    // A state that cannot be read is superseded like any other.
    ARCA_TRY(const std::uint32_t newest, record_.newestNumber());
    ByteWriter payload;
    payload.u64(static_cast<std::uint64_t>(seconds));
    // Of two states the one before would hold when the newest is lost: only the last stays.
    return record_.end(newest,
                       frameRecord(form::graceTime.kind, form::graceTime.newest, payload.view()));
}

Result<void> GraceTime::writeDefault()
{
    ARCA_TRY(const std::uint32_t newest, record_.newestNumber());
    if (newest != 0)
        return {};
    auto written = write(kDefaultGrace);
    if (!written && written.error().kind == ErrorKind::conflict)
        return {};
    return written;
}

} // namespace arca::store
