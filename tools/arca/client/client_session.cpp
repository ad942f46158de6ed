// Sessions through the storage client: see the header.
#include "tools/arca/client/client_session.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/directory/location.h"
#include "tools/arca/secrets.h"

namespace arca::tool
{

namespace
{

ErrorKind kindOf(int rc)
{
    switch (rc) {
    case HOX_RC_OBJECT_UNKNOWN:
    case HOX_RC_NO_MATCH:
    case HOX_RC_MC_UNKNOWN:
        return ErrorKind::notFound;
    case HOX_RC_FS_UNKNOWN:
        return ErrorKind::noFilespace;
    case HOX_RC_OBJECT_EXISTS:
        return ErrorKind::exists;
    case HOX_RC_NO_REPOSITORY:
        return ErrorKind::noRepository;
    case HOX_RC_REPOSITORY_FULL:
        return ErrorKind::full;
    case HOX_RC_REPOSITORY_DAMAGED:
        return ErrorKind::damaged;
    case HOX_RC_ACCESS_DENIED:
        return ErrorKind::denied;
    case HOX_RC_AUTH_FAILURE:
        return ErrorKind::authentication;
    case HOX_RC_BAD_ARGUMENT:
        return ErrorKind::badArgument;
    default:
        return ErrorKind::io;
    }
}

} // namespace

Error failureOf(int rc)
{
    return {kindOf(rc), mtText(rc)};
}

Result<void> answered(int rc)
{
    if (rc != HOX_RC_OK)
        return failureOf(rc);
    return {};
}

ClientSession::~ClientSession()
{
    second_.end();
    session_.end();
    mtCleanUp();
    wipe(logon_.password);
}

Result<mtSession *> ClientSession::second()
{
    if (second_.handle() == 0)
        ARCA_CHECK(answered(second_.start(logon_)));
    return &second_;
}

Result<void> ClientSession::expectOwnPieces() const
{
    if (session_.info().backupDelete != 0)
        return {};
    return Error{ErrorKind::denied, "node " + printable(node_) +
                                        " may only find and read what node " +
                                        printable(session_.info().nodeName) +
                                        " granted it, and change nothing (ASNODE)"};
}

Result<std::unique_ptr<ClientSession>> logOnClient(const Command &command,
                                                   bool passwordFromStandardInput, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const std::string node, config::nodeNameFor(options));
    ARCA_TRY(const blob::Location place, blob::Location::parse(options.repository));
    result["repository"] = place.directory;
    result["node"] = options.asNodeName.empty() ? node : options.asNodeName;
    std::unique_ptr<ClientSession> client(new ClientSession);
    client->node_ = node;
    ARCA_CHECK(answered(mtSetUp(options.file)));
    if (options.passwordAccess == config::PasswordAccess::prompt) {
        ARCA_TRY(client->logon_.password, password(node, passwordFromStandardInput));
    }
    ARCA_CHECK(answered(client->session_.start(client->logon_)));
    return client;
}

} // namespace arca::tool
