// Events: to the activity log of the repository, to the local log, or to both, the local one first;
// what one log refuses the other one still takes.
#include "client/api/session/client.h"
#include "client/api/session/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

struct Reported {
    store::Event event;
    std::uint32_t logType;
};

std::string sessionNotice(std::uint16_t kind)
{
    return kind == HOX_EVENT_SESSION_RESUMED ? "The application goes on with work begun earlier."
                                             : "The application begins its work.";
}

Answer<Reported> eventFrom(const hoxLogEventExIn_t &input)
{
    if (input.severity > HOX_SEVERITY_SEVERE || input.logType > HOX_LOG_BOTH)
        return refused(HOX_RC_BAD_ARGUMENT, "the severity or the log type is unknown");
    Reported reported{{}, input.logType};
    store::Event &event = reported.event;
    event.severity = static_cast<store::Severity>(input.severity);
    ARCA_TRY(event.messageId, fieldText(input.messageId, "the message identifier"));
    ARCA_TRY(event.application, fieldText(input.appName, "the application name"));
    for (const auto &part : {fieldText(input.platform, "the platform"),
                             fieldText(input.appVersion, "the application version")}) {
        if (!part)
            return part.error();
        if (!part->empty())
            event.application += " " + *part;
    }
    if (input.message != nullptr)
        event.text.assign(input.message, strnlen(input.message, HOX_MAX_RC_MESSAGE * 2));
    if (event.text.empty() && input.kind != HOX_EVENT_MESSAGE)
        event.text = sessionNotice(input.kind);
    return reported;
}

Answer<void> logLocally(const store::Event &event)
{
    std::string line = event.messageId;
    if (!line.empty() && !event.text.empty())
        line += ' ';
    line += event.text;
    ARCA_CHECK(Client::instance().currentSetUp());
    if (!Client::instance().logLocally(line))
        return refused(HOX_RC_LOG_UNAVAILABLE, "the local log cannot be written");
    return {};
}

Answer<void> logInRepository(Session &session, store::Event event)
{
    event.node = session.node;
    if (auto appended = session.log.append(event); !appended)
        return refused(HOX_RC_LOG_UNAVAILABLE, std::move(appended).error().text);
    return {};
}

/// Returns the event that `input` describes, and fills in `output`, which may be null.
Answer<Reported> checkedEvent(const hoxLogEventExIn_t *input, hoxLogEventExOut_t *output)
{
    ARCA_CHECK(expectVersion(input, input == nullptr ? std::uint16_t{0} : input->stVersion,
                             HOX_LOGEVENTEX_VERSION, "the event record"));
    ARCA_CHECK(expectFillable(output, HOX_LOGEVENTEX_VERSION, "the record of the answer"));
    ARCA_TRY(auto reported, eventFrom(*input));
    if (output != nullptr)
        output->stVersion = HOX_LOGEVENTEX_VERSION;
    return reported;
}

} // namespace

std::int16_t hoxLogEventEx(hoxHandle_t handle, const hoxLogEventExIn_t *input,
                           hoxLogEventExOut_t *output)
{
    if (handle == 0)
        return atBoundary([&]() -> Code {
            ARCA_TRY(const Reported reported, checkedEvent(input, output));
            ARCA_CHECK(logLocally(reported.event));
            return success();
        });
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_TRY(const Reported reported, checkedEvent(input, output));
        Answer<void> done;
        if (reported.logType != HOX_LOG_SERVER)
            done = logLocally(reported.event);
        if (reported.logType != HOX_LOG_LOCAL)
            if (auto stored = logInRepository(session, reported.event); done)
                done = std::move(stored);
        ARCA_CHECK(done);
        return success();
    });
}
