// The beginning and the end of a session.
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/password_change.h"
#include "client/api/session/query_options.h"
#include "client/api/session/records.h"
#include "client/base/text.h"
#include "client/config/cache_place.h"
#include "client/config/node_keys.h"
#include "client/store/nodes/access.h"

using namespace arca;
using namespace arca::api;

namespace
{

/// What hoxInitEx or hoxInit asks for. The pointers are the caller's.
struct Request {
    std::string node;
    std::string asNode;
    std::string owner;
    std::string configFile;
    std::string options;
    const char *password = nullptr;
    const char *newPassword = nullptr;
    int (*passwordCallback)(char *, std::uint32_t) = nullptr;
};

Answer<config::Options> optionsFor(const Request &request, const SetUp &setUp)
{
    config::Options options = setUp.options;
    if (!request.configFile.empty() && request.configFile != setUp.optionFile) {
        ARCA_TRY(options, config::readOptionFile(request.configFile));
    }
    if (auto applied = config::applyOptionString(options, request.options); !applied)
        return refused(HOX_RC_BAD_OPTION_STRING, applied.error().text);
    if (options.repository.empty())
        return refused(HOX_RC_BAD_OPTION_FILE,
                       "the option file " + options.file + " names no REPOSITORY");
    return options;
}

Answer<std::unique_ptr<store::Repository>> openRepository(const config::Options &options)
{
    auto repository = store::Repository::open(options.repository);
    if (repository)
        return std::move(repository).value();
    Error failure = std::move(repository).error();
    if (failure.kind == ErrorKind::noRepository)
        failure.text += "; make one with: arca init --optfile " + options.file;
    return Refusal(std::move(failure));
}

/// Fills `password`, which its owner wipes, with the password that the application supplies.
Answer<void> takePassword(const Request &request, const std::string &node, std::string &password)
{
    // Reserved beyond what a std::string holds within itself: a move would leave that copy behind
    // on the stack.
    password.reserve(HOX_MAX_PASSWORD + 1);
    if (request.password != nullptr && *request.password != '\0') {
        const std::size_t length = strnlen(request.password, HOX_MAX_PASSWORD + 1);
        if (length > HOX_MAX_PASSWORD)
            return refused(HOX_RC_AUTH_FAILURE, "the password has more than " +
                                                    std::to_string(HOX_MAX_PASSWORD) +
                                                    " characters");
        password.assign(request.password, length);
        return {};
    }
    if (request.passwordCallback != nullptr) {
        char typed[HOX_MAX_PASSWORD + 1] = "";
        const bool given = request.passwordCallback(typed, sizeof typed) == 0;
        typed[sizeof typed - 1] = '\0';
        password.assign(given ? typed : "");
        wipe(std::as_writable_bytes(std::span(typed)));
        if (!password.empty())
            return {};
    }
    return refused(HOX_RC_AUTH_FAILURE, "no password was supplied for node " + printable(node) +
                                            ", and the option PASSWORDACCESS says prompt");
}

Answer<void> expectRegistered(store::Repository &repository, const config::Options &options,
                              const std::string &node)
{
    ARCA_TRY(const bool registered, repository.nodes().isRegistered(node));
    if (!registered)
        return refused(HOX_RC_AUTH_FAILURE,
                       "the node " + printable(node) + " is not registered in the repository " +
                           repository.shownName() + "; register it with: arca init --optfile " +
                           options.file);
    return {};
}

/// Returns the keys of the node, which its password opens: the one that the client keeps, or that
/// the application supplies. `password` receives it.
Answer<store::NodeKeys> prove(const Request &request, const config::Options &options,
                              store::Repository &repository, const std::string &node,
                              std::string &password)
{
    if (options.passwordAccess == config::PasswordAccess::prompt) {
        ARCA_CHECK(takePassword(request, node, password));
        ARCA_TRY(auto keys, repository.authenticate(node, password));
        return keys;
    }
    std::optional<store::NodeKeys> keys;
    ARCA_TRY(password,
             config::NodeKeys(options.file)
                 .find(repository.uuid(), node, [&](const std::string &kept) -> Result<void> {
                     ARCA_TRY(keys, repository.authenticate(node, kept));
                     return {};
                 }));
    return std::move(*keys);
}

/// Gives effect to rules that the node made before their reader was registered.
Result<void> completeGrants(store::Repository &repository, const std::string &node,
                            const store::NodeKeys &keys)
{
    ARCA_TRY(auto rules, store::AccessRules::of(repository.blobs(), node, keys.incarnation));
    return rules.complete(keys.data);
}

hoxInitExOut_t answerFor(const Session &session)
{
    hoxInitExOut_t answer{};
    answer.stVersion = HOX_INITEX_OUT_VERSION;
    fill(answer.serverName, repositoryName(session.options));
    answer.serverVersion = HOX_API_VERSION;
    answer.serverRelease = HOX_API_RELEASE;
    answer.serverModification = HOX_API_LEVEL;
    answer.serverLevel = HOX_API_SUBLEVEL;
    return answer;
}

/// Starts the session, fills in `output`, which may be null, and returns the handle. Whatever may
/// fail comes before the session is added to the table, so that a failure leaves no session behind
/// that the caller has no handle of.
Answer<hoxHandle_t> startSession(const Request &request, hoxInitExOut_t *output)
{
    ARCA_TRY(const SetUp setUp, Client::instance().currentSetUp());
    ARCA_TRY(const config::Options options, optionsFor(request, setUp));
    std::string node = request.node;
    if (node.empty()) {
        ARCA_TRY(node, config::nodeNameFor(options));
    }
    const std::string &objectsOf = !request.asNode.empty()       ? request.asNode
                                   : !options.asNodeName.empty() ? options.asNodeName
                                                                 : node;

    ARCA_TRY(auto repository, openRepository(options));
    ARCA_CHECK(expectRegistered(*repository, options, node));
    repository->use(config::cacheFor(options, repository->uuid(), repository->shownName()));
    if (const std::string &why = repository->cache().whyNone(); !why.empty())
        Client::instance().warnOnce(why + "; backups go on, but find fewer duplicates and list "
                                          "pieces more slowly");
    std::string password;
    const WipedAtEnd wiping(password);
    ARCA_TRY(store::NodeKeys keys, prove(request, options, *repository, node, password));
    const auto completed = completeGrants(*repository, node, keys);
    ARCA_TRY(store::LogSeal seal, store::LogSeal::of(keys.data, keys.incarnation));
    if (objectsOf != node) {
        ARCA_TRY(Admitted admitted,
                 admittedKey(*repository, objectsOf, node, request.owner, keys.identity));
        keys.data = std::move(admitted.key);
        keys.incarnation = admitted.incarnation;
    }
    ARCA_TRY(auto space, repository->spaceOf(objectsOf, std::move(keys.data), keys.incarnation));
    space->use(options.engine);
    // What dead sessions left. What cannot be removed now is harmless, and removed by a later
    // session.
    (void)repository->blobs().removeLeftovers();
    repository->blobs().keepReserve();
    if (objectsOf == node)
        space->settleChanges();
    else
        space->useAsGuest();

    auto session = std::make_shared<Session>(std::move(repository), std::move(space), options,
                                             std::move(seal));
    session->node = node;
    session->owner = request.owner;
    Client::Place place = Client::placeFor(session);
    const hoxInitExOut_t answer = answerFor(*session);
    if (request.newPassword != nullptr && *request.newPassword != '\0')
        ARCA_CHECK(changePassword(*session, password.c_str(), request.newPassword));
    // Rules that cannot be completed now (a full or read-only repository) are completed by a later
    // session. A rule that the node never made is damage, which the activity log reports.
    if (!completed && completed.error().kind == ErrorKind::damaged)
        (void)session->log.append({store::Severity::warning, node, {}, {}, completed.error().text});
    if (!keys.proven)
        (void)session->log.append(
            {store::Severity::warning, node, {}, {}, store::unprovenText(node)});
    if (output != nullptr)
        *output = answer;
    return Client::instance().add(std::move(place));
}

Answer<Request> requestFrom(const hoxInitExIn_t &input)
{
    Request request;
    ARCA_TRY(request.node, pointerText(input.nodeName, HOX_MAX_NODE_NAME, "the node name",
                                       HOX_RC_NODE_NAME_TOO_LONG));
    ARCA_TRY(request.asNode, pointerText(input.asNodeName, HOX_MAX_NODE_NAME, "the node name",
                                         HOX_RC_NODE_NAME_TOO_LONG));
    ARCA_TRY(request.owner, pointerText(input.ownerName, HOX_MAX_OWNER_NAME, "the owner name"));
    ARCA_TRY(request.configFile,
             pointerText(input.configFile, HOX_MAX_PATH, "the name of the option file"));
    ARCA_TRY(request.options, pointerText(input.options, HOX_MAX_OPTIONS, "the option string",
                                          HOX_RC_BAD_OPTION_STRING));
    request.password = input.password;
    request.newPassword = input.newPassword;
    request.passwordCallback = input.passwordCallback;
    return request;
}

Code initEx(hoxHandle_t *handle, const hoxInitExIn_t &input, hoxInitExOut_t *output)
{
    ARCA_TRY(const Request request, requestFrom(input));
    ARCA_TRY(*handle, startSession(request, output));
    return success();
}

} // namespace

std::int16_t hoxInitEx(hoxHandle_t *handle, const hoxInitExIn_t *input, hoxInitExOut_t *output)
{
    return atBoundary([&]() -> Code {
        if (handle == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the handle is null");
        ARCA_CHECK(expectVersion(input, input == nullptr ? std::uint16_t{0} : input->stVersion,
                                 HOX_INITEX_IN_VERSION, "the session request"));
        ARCA_CHECK(expectFillable(output, HOX_INITEX_OUT_VERSION, "the record of the server"));
        return initEx(handle, *input, output);
    });
}

std::int16_t hoxInit(hoxHandle_t *handle, const hoxApiVersion *version, const char *nodeName,
                     const char *ownerName, const char *password, const char *,
                     const char *configFile, const char *options)
{
    return atBoundary([&]() -> Code {
        if (handle == nullptr || version == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the handle or the version is null");
        hoxInitExIn_t input{};
        input.nodeName = nodeName;
        input.ownerName = ownerName;
        input.password = password;
        input.configFile = configFile;
        input.options = options;
        return initEx(handle, input, nullptr);
    });
}

std::int16_t hoxTerminate(hoxHandle_t handle)
{
    return atBoundary([&]() -> Code {
        ARCA_TRY(const auto session, Client::instance().take(handle));
        endSession(*session);
        return success();
    });
}
