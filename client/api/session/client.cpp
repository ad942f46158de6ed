// The state of the process: see the header.
#include "client/api/session/client.h"

#include "client/api/session/local_log.h"
#include "common/thrd/psprocess.h"
#include "keel_paths.h"

namespace arca::api
{

std::string installedDirectory()
{
    return KEEL_CLIENT_ROOT "/api/bin64";
}

Client &Client::instance()
{
    // Never destroyed: the host may still call while it exits, and an exit handler of ours is not
    // wanted in it.
    static std::atomic<Client *> client = nullptr;
    Client *known = client.load();
    while (known == nullptr || known->process_ != psProcessSelf()) {
        // A forked child lacks the threads of its parent's sessions, and the sessions' mutexes are
        // as they were at the fork. It touches none of them, and knows no session.
        auto *const fresh = new Client(known);
        if (client.compare_exchange_strong(known, fresh))
            return *fresh;
        delete fresh;
    }
    return *known;
}

Client::Client(const Client *parents)
    : process_(psProcessSelf()), lastHandle_(parents == nullptr ? 0 : parents->lastHandle_.load())
{
    // Without the parent's mutex: one that was held at the fork stays held, and threads of this
    // process that come at once would keep it from each other.
    const SetUp *const known = parents == nullptr ? nullptr : parents->setUp_.load();
    if (known != nullptr)
        setUp_ = new SetUp(*known);
}

Client::~Client()
{
    delete setUp_.load();
}

void Client::replaceSetUp(std::unique_ptr<const SetUp> setUp) noexcept
{
    // A child that is forked between the two finds the new one, whole.
    const std::unique_ptr<const SetUp> former(setUp_.exchange(setUp.release()));
}

void Client::setUp(SetUp setUp)
{
    cleanUp();
    auto next = std::make_unique<const SetUp>(std::move(setUp));
    const std::lock_guard hold(mutex_);
    replaceSetUp(std::move(next));
    warned_.clear();
}

void Client::cleanUp()
{
    std::map<hoxHandle_t, std::shared_ptr<Session>> ending;
    {
        const std::lock_guard hold(mutex_);
        ending.swap(sessions_);
    }
    for (const auto &[handle, session] : ending)
        endSession(*session);
    const std::lock_guard hold(mutex_);
    replaceSetUp(nullptr);
}

Answer<SetUp> Client::currentSetUp()
{
    const std::lock_guard hold(mutex_);
    const SetUp *const known = setUp_;
    if (known == nullptr)
        return refused(HOX_RC_NOT_SET_UP);
    return *known;
}

Client::Place Client::placeFor(std::shared_ptr<Session> session)
{
    std::map<hoxHandle_t, std::shared_ptr<Session>> one;
    one.emplace(0, std::move(session));
    return one.extract(one.begin());
}

hoxHandle_t Client::add(Place place) noexcept
{
    constexpr hoxHandle_t kHighest = 0x7fffffff;
    const std::lock_guard hold(mutex_);
    // Handles count up, so that the handle of an ended session stays dead for a long time.
    hoxHandle_t handle = lastHandle_;
    do
        handle = handle == kHighest ? 1 : handle + 1;
    while (sessions_.contains(handle));
    place.key() = handle;
    sessions_.insert(std::move(place));
    lastHandle_ = handle;
    return handle;
}

Answer<std::shared_ptr<Session>> Client::find(hoxHandle_t handle)
{
    const std::lock_guard hold(mutex_);
    const auto found = sessions_.find(handle);
    if (found == sessions_.end())
        return refused(HOX_RC_BAD_HANDLE);
    return found->second;
}

Answer<std::shared_ptr<Session>> Client::take(hoxHandle_t handle)
{
    const std::lock_guard hold(mutex_);
    const auto found = sessions_.find(handle);
    if (found == sessions_.end())
        return refused(HOX_RC_BAD_HANDLE);
    auto session = std::move(found->second);
    sessions_.erase(found);
    return session;
}

bool Client::logLocally(const std::string &text)
{
    std::string path;
    {
        const std::lock_guard hold(mutex_);
        if (const SetUp *const known = setUp_; known != nullptr)
            path = known->localLog;
    }
    return !path.empty() && appendToLocalLog(path, text);
}

void Client::warnOnce(const std::string &text)
{
    {
        const std::lock_guard hold(mutex_);
        if (warned_ == text)
            return;
        warned_ = text;
    }
    (void)logLocally("Warning: " + text);
}

void poisonOpenTransaction(Session &session, const Refusal &cause) noexcept
{
    if (session.transaction)
        session.transaction->poison(cause);
}

void endSession(Session &session) noexcept
{
    const std::lock_guard hold(session.mutex);
    session.ended = true;
    session.transaction.reset();
    session.query.reset();
    session.retrieval.reset();
    // Not a failure of the session: the application's work is done, and it cannot mend the log.
    try {
        if (const auto published = session.log.publish(); !published)
            (void)Client::instance().logLocally("The activity log of the repository lost events: " +
                                                published.error().text);
    } catch (const std::exception &) {
        // No memory for the events; a line that says so needs some, too.
    }
}

} // namespace arca::api
