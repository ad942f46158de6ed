// arca access: which other nodes may read pieces of this one.
#include "agents/common/maint/mtaccess.h"
#include "client/base/text.h"
#include "tools/arca/client/actions.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/each_once.h"
#include "tools/arca/node_session.h"
#include "tools/arca/piece_name.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string reader, owner, piece, filespace;
    std::vector<std::uint32_t> rules;
    bool fromStandardInput = false;
};

using Work = Result<void> (*)(ClientSession &, const Command &, const Asked &, Json &);

std::string shownName(const hoxObjName &name)
{
    const bool all = name.llName == std::string_view("/*");
    return all ? "every piece of filespace " + std::string(name.fsName) +
                     ", stored already or from now on"
               : pieceText(name);
}

Json jsonOf(const qryRespAccessData &rule)
{
    return {{"rule", rule.ruleNumber},
            {"node", rule.nodeName},
            {"owner", rule.ownerName},
            {"filespace", rule.objName.fsName},
            {"piece", std::string(pieceOf(rule.objName))}};
}

Result<void> list(ClientSession &client, const Command &command, const Asked &, Json &result)
{
    std::vector<qryRespAccessData> rules;
    const int rc = mtAccessRules(client.session(), rules);
    if (rc != HOX_RC_REPOSITORY_DAMAGED)
        ARCA_CHECK(answered(rc));
    Json &shown = result["rules"] = Json::array();
    if (!command.json && !rules.empty())
        tools::print("{:>10}  {:<20}  {:<12}  {}\n", "Rule", "Node", "Owner", "May read");
    for (const qryRespAccessData &rule : rules) {
        shown.push_back(jsonOf(rule));
        if (!command.json)
            tools::print("{:>10}  {:<20}  {:<12}  {}\n", rule.ruleNumber, printable(rule.nodeName),
                         rule.ownerName[0] == '\0' ? "any" : printable(rule.ownerName),
                         printable(shownName(rule.objName)));
    }
    return answered(rc);
}

/// A rule names one piece or all pieces, one node and at most one owner. Any other pattern would be
/// kept literally, and grant nothing.
void expectNoPattern(const std::string &text, const char *what, const char *cure)
{
    if (text.find_first_of("*?") != std::string::npos)
        throw UsageError(fmt::format("'{}' is a pattern, and a rule names one {}; {}",
                                     printable(text, 40), what, cure));
}

Result<void> grant(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    const TypedName typed = typedName(asked.piece);
    if (!typed.filespace.empty() && !asked.filespace.empty())
        throw UsageError(printable(asked.piece) +
                         " names a filespace itself; leave --filespace out");
    const std::string filespace = !typed.filespace.empty()  ? typed.filespace
                                  : asked.filespace.empty() ? kAgentFilespace
                                                            : asked.filespace;
    const bool every = typed.piece.empty() || typed.piece == "*";
    constexpr const char *kEvery = "leave PIECE out to grant every piece of a filespace";
    if (!every)
        expectNoPattern(typed.piece, "piece", kEvery);
    expectNoPattern(filespace, "filespace", kEvery);
    expectNoPattern(asked.reader, "node", "grant each node a rule of its own");
    expectNoPattern(asked.owner, "owner", "leave --owner out to let every owner there read");
    const hoxObjName name = objectName(filespace, every ? "*" : typed.piece);
    ARCA_CHECK(answered(mtAccessGrant(client.session(), name, asked.reader, asked.owner)));
    result["granted"] = asked.reader;
    if (!command.json)
        tools::print("Node {} may read {}\n", printable(asked.reader), printable(shownName(name)));
    return {};
}

Result<void> revoke(ClientSession &client, const Command &command, const Asked &asked, Json &result)
{
    Json &revoked = result["revoked"] = Json::array();
    for (const std::uint32_t rule : eachOnce(asked.rules)) {
        const int rc = mtAccessRevoke(client.session(), rule);
        if (rc == HOX_RC_OBJECT_UNKNOWN)
            return Error{ErrorKind::notFound,
                         fmt::format("there is no rule {}; arca access list shows them", rule)};
        ARCA_CHECK(answered(rc));
        revoked.push_back(rule);
        if (!command.json)
            tools::print("Rule {} taken back\n", rule);
    }
    return {};
}

Result<void> perform(const Command &command, const Asked &asked, Work work, Json &result)
{
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    return work(*client, command, asked, result);
}

void addOperands(tools::Verb verb, Work work, Asked &asked)
{
    if (work == grant) {
        verb.addOption("NODE", asked.reader, "Node that may read").required();
        verb.addOption("PIECE", asked.piece,
                       "Piece that it may read; left out or '*': every one of the filespace, those "
                       "of the future too");
        verb.addOption("--filespace", asked.filespace,
                       std::string("Filespace of the pieces (default: ") + kAgentFilespace + ")")
            .valueName("NAME");
        verb.addOption("--owner", asked.owner, "Only that owner there").valueName("NAME");
    } else if (work == revoke) {
        verb.addOption("RULE", asked.rules, "Numbers of rules, as arca access list shows them")
            .required()
            .valueName("");
    }
}

} // namespace

void addAccess(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("access", "Let other nodes read pieces of this one, and take it back");
    verb.footer("Example: arca access grant dbhost2");
    addActions<Asked, Work>(
        verb, command,
        {{"grant", "Let another node find and read pieces of this one",
          "Example: arca access grant dbhost2 --filespace /lumoorc\n"
          "A node that is not registered yet may read once it is and this node has logged on.",
          grant},
         {"list", "Show who may read what", "Example: arca access list --json", list},
         {"revoke", "Take rules back; it ends the access at once",
          "Example: arca access revoke 1804289383", revoke}},
        addOperands, perform);
}

} // namespace arca::tool
