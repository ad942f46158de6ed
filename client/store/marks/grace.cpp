// The grace time, to and from bytes.
#include "client/store/marks/grace.h"

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
    ARCA_TRY(const auto state, record_.latest());
    if (!state)
        return kDefaultGrace;
    return inRecord(record_.nameOf(state->number), decodeGrace(state->bytes));
}

Result<void> GraceTime::write(std::int64_t seconds)
{
    if (seconds < 0 || seconds > kMaxGrace)
        return Error{ErrorKind::badArgument, "the grace time is at most 100 years"};
    ARCA_TRY(const auto state, record_.latest());
    ByteWriter payload;
    payload.u64(static_cast<std::uint64_t>(seconds));
    return record_.write(state ? state->number : 0,
                         frameRecord(form::graceTime.kind, form::graceTime.newest, payload.view()));
}

} // namespace arca::store
