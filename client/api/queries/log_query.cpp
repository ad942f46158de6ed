// Events of the activity log.
#include "client/api/queries/answer_record.h"
#include "client/api/queries/queries.h"
#include "client/api/session/guest.h"
#include "client/store/log/activity_reader.h"

#include <limits>

namespace arca::api
{

namespace
{

class LoggedEvents final : public Query
{
public:
    explicit LoggedEvents(store::ActivityReader events) : events_(std::move(events)) {}

    /// At the end the record tells, with numBytes 0, how many lines could not be read.
    Code next(Session &session, DataBlk *data) override;

private:
    store::ActivityReader events_;
};

std::uint32_t clamped(std::size_t number)
{
    return static_cast<std::uint32_t>(
        std::min<std::size_t>(number, std::numeric_limits<std::uint32_t>::max()));
}

void fillAnswer(qryRespLogData &record, const store::LoggedEvent &logged, std::size_t unreadable)
{
    record = qryRespLogData{};
    record.stVersion = HOX_QRY_RESP_LOG_VERSION;
    record.sealed = logged.sealed ? 1 : 0;
    record.severity = static_cast<std::uint32_t>(logged.event.severity);
    const std::int64_t seconds = store::secondsOf(logged.time);
    record.time = split(static_cast<std::uint64_t>(seconds));
    record.date = dateOf(seconds);
    record.unreadable = clamped(unreadable);
    fill(record.nodeName, logged.event.node);
    fill(record.application, logged.event.application);
    fill(record.messageId, logged.event.messageId);
    fill(record.message, logged.event.text);
}

Code LoggedEvents::next(Session &, DataBlk *data)
{
    ARCA_CHECK(recordIn<qryRespLogData>(data, HOX_QRY_RESP_LOG_VERSION));
    ARCA_TRY(const auto event, events_.next());
    if (!event) {
        ARCA_CHECK(deliver<qryRespLogData>(data, HOX_QRY_RESP_LOG_VERSION, [&](auto &record) {
            record = qryRespLogData{};
            record.stVersion = HOX_QRY_RESP_LOG_VERSION;
            record.unreadable = clamped(events_.unreadable());
        }));
        data->numBytes = 0;
        return end();
    }
    ARCA_CHECK(deliver<qryRespLogData>(data, HOX_QRY_RESP_LOG_VERSION, [&](auto &record) {
        fillAnswer(record, *event, events_.unreadable());
    }));
    return answered();
}

} // namespace

BegunQuery beginLogQuery(Session &session, const qryLogData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_LOG_VERSION, "the query record"));
    ARCA_CHECK(expectOwnObjects(session));
    if (asked->severity > HOX_SEVERITY_SEVERE)
        return refused(HOX_RC_BAD_ARGUMENT, "the severity is unknown");
    store::LogSelection selection;
    if (asked->since != 0)
        selection.since = store::logTimeOf(asked->since);
    if (asked->before != 0)
        selection.before = store::logTimeOf(asked->before);
    selection.atLeast = static_cast<store::Severity>(asked->severity);
    ARCA_TRY(selection.node, pointerText(asked->nodeName, HOX_MAX_NODE_NAME, "the node name"));
    if (selection.node.empty())
        selection.node = session.node;
    else if (selection.node == HOX_ALL_NODES)
        selection.node.clear();
    ARCA_TRY(auto events, store::ActivityReader::open(session.repository->blobs(), selection,
                                                      session.node, session.log.seal()));
    return BegunQuery(std::make_unique<LoggedEvents>(std::move(events)));
}

} // namespace arca::api
