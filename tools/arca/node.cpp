// arca node: looks after the nodes of a repository.
#include "tools/arca/node_verbs.h"

namespace arca::tool
{

void addNode(CLI::App &app, Command &command)
{
    CLI::App *verb = app.add_subcommand("node", "Look after the nodes of the repository");
    verb->require_subcommand(1);
    verb->footer("Example: arca node list");
    addNodeAdd(*verb, command);
    addNodeList(*verb, command);
    addNodePasswd(*verb, command);
    addNodeRemove(*verb, command);
}

} // namespace arca::tool
