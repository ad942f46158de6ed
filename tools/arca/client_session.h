// A verb's sessions through the storage client, for what the maintenance utilities do: as any
// application sees the node's objects.
#ifndef KEEL_TOOLS_ARCA_CLIENT_SESSION_H
#define KEEL_TOOLS_ARCA_CLIENT_SESSION_H

#include "agents/common/maint/mtsession.h"
#include "tools/arca/command.h"

#include <memory>

namespace arca::tool
{

/// The failure that a code of the storage client stands for. Asked for at once after the call that
/// answered it.
Error failureOf(int rc);
/// Success for 0.
Result<void> answered(int rc);

/// The node of the option file, logged on. Its sessions end with it. One at a time in a process.
class ClientSession
{
public:
    ~ClientSession();
    ClientSession(const ClientSession &) = delete;
    ClientSession &operator=(const ClientSession &) = delete;

    mtSession &session() { return session_; }
    /// One more of the same node, for changes while the other answers a query.
    Result<mtSession *> second();

private:
    friend Result<std::unique_ptr<ClientSession>> logOnClient(const Command &, bool, Json &);
    ClientSession() = default;

    mtLogon_t logon_;
    mtSession session_;
    mtSession second_;
};

/// With the password that the client keeps, or one that is asked for on the terminal or read from
/// standard input. Tells repository and node in `result`.
Result<std::unique_ptr<ClientSession>> logOnClient(const Command &command,
                                                   bool passwordFromStandardInput, Json &result);

} // namespace arca::tool

#endif
