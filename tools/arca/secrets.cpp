// Asking for secrets: see the header.
#include "tools/arca/secrets.h"

#include "agents/common/maint/mtprompt.h"
#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/keys/recovery_key.h"
#include "tools/arca/command.h"

namespace arca::tool
{

namespace
{

constexpr std::size_t kMaxPassword = 64;
constexpr std::size_t kLongestLine = 250;
constexpr std::size_t kLeastPassphrase = 10;

/// Returns a line of at most `limit` characters. Messages call the secret `what` ("the password of
/// node n") and one such line `kind` ("password").
Result<std::string> ask(const std::string &question, const std::string &what, const char *kind,
                        std::size_t limit, bool fromStandardInput)
{
    char typed[kLongestLine + 1] = "";
    mtQuestion_t asked;
    asked.text = question.c_str();
    asked.secret = true;
    asked.from = fromStandardInput ? mtAskFrom::standardInput : mtAskFrom::terminal;
    const mtAsk_t code = mtAsk(asked, typed, limit + 1);
    std::string line;
    line.reserve(kLongestLine); // on the heap even when short: a move leaves no copy on the stack
    line = typed;
    wipe(std::as_writable_bytes(std::span(typed)));
    if (code == MT_ASK_NO_TERMINAL)
        throw UsageError("there is no terminal to ask for " + what + " on; give it with --stdin");
    if (code == MT_ASK_LONG || (code == MT_ASK_OK && line.empty()))
        return Error{ErrorKind::badArgument, std::string("a ") + kind + " has 1 to " +
                                                 std::to_string(limit) + " characters"};
    if (code == MT_ASK_END)
        return Error{ErrorKind::badArgument, std::string("no ") + kind + " was given"};
    if (code != MT_ASK_OK)
        return Error{ErrorKind::badArgument, std::string(kind) + ": " + mtAskText(code)};
    return line;
}

Result<std::string> askPassword(const std::string &question, const std::string &node,
                                bool fromStandardInput)
{
    return ask(question, "the password of node " + printable(node), "password", kMaxPassword,
               fromStandardInput);
}

/// Returns `first` when the same is typed again. A line of standard input is not asked for twice.
Result<std::string> confirmed(Result<std::string> first, const char *kind, std::size_t limit,
                              bool fromStandardInput)
{
    if (!first || fromStandardInput)
        return first;
    auto second = ask("The same again", std::string("the ") + kind, kind, limit, false);
    const bool agree = second && *first == *second;
    if (second)
        wipe(*second);
    if (agree)
        return first;
    wipe(*first);
    if (!second)
        return second;
    return Error{ErrorKind::badArgument, std::string("the two ") + kind + "s are not the same"};
}

} // namespace

Result<std::string> newPassword(const std::string &node, bool fromStandardInput)
{
    return confirmed(
        askPassword("New password for node " + printable(node), node, fromStandardInput),
        "password", kMaxPassword, fromStandardInput);
}

Result<std::string> newPassphrase(bool fromStandardInput)
{
    ARCA_TRY(std::string typed, confirmed(ask("Passphrase for the exported key", "the passphrase",
                                              "passphrase", kLongestLine, fromStandardInput),
                                          "passphrase", kLongestLine, fromStandardInput));
    if (typed.size() >= kLeastPassphrase)
        return typed;
    wipe(typed);
    return Error{ErrorKind::badArgument,
                 "a passphrase has at least " + std::to_string(kLeastPassphrase) + " characters"};
}

Result<std::string> passphrase(bool fromStandardInput)
{
    return ask("Passphrase of the exported key", "the passphrase", "passphrase", kLongestLine,
               fromStandardInput);
}

Result<std::string> password(const std::string &node, bool fromStandardInput)
{
    return askPassword("Password of node " + printable(node), node, fromStandardInput);
}

Result<SecretKey> recoveryKey(bool fromStandardInput)
{
    ARCA_TRY(std::string typed, ask("Recovery key", "the recovery key", "recovery key",
                                    kLongestLine, fromStandardInput));
    auto key = store::typedRecoveryKey(typed);
    wipe(typed);
    return key;
}

} // namespace arca::tool
