// arca node: looks after the nodes of a repository.
#include "tools/arca/nodes/node_verbs.h"

namespace arca::tool
{

void addNode(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("node", "Look after the nodes of the repository");
    verb.requireVerb();
    verb.footer("Example: arca node list");
    addNodeAdd(verb, command);
    addNodeList(verb, command);
    addNodePasswd(verb, command);
    addNodeRemove(verb, command);
}

} // namespace arca::tool
