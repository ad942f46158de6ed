// A verb of several actions, such as arca class define: each is a sub-verb, and all of them share
// one record of options (Asked) and one function that carries them out.
#ifndef KEEL_TOOLS_ARCA_CLIENT_ACTIONS_H
#define KEEL_TOOLS_ARCA_CLIENT_ACTIONS_H

#include "tools/arca/node_session.h"

#include <initializer_list>
#include <memory>

namespace arca::tool
{

/// The texts must outlive the call of addActions(); literals do.
template <class Work> struct Action {
    const char *name, *help, *footer;
    Work work;
};

/// Adds each action with the operands that `addOperands(verb, work, asked)` adds to it, the options
/// of every verb and --stdin, which sets asked.fromStandardInput. The chosen action runs
/// `perform(command, asked, work, result)`, which returns Result<void>.
template <class Asked, class Work, class AddOperands, class Perform>
void addActions(tools::Verb verb, Command &command, std::initializer_list<Action<Work>> actions,
                AddOperands addOperands, Perform perform)
{
    verb.requireVerb();
    for (const Action<Work> &action : actions) {
        const tools::Verb inner = verb.addVerb(action.name, action.help);
        auto asked = std::make_shared<Asked>();
        addOperands(inner, action.work, *asked);
        addCommonOptions(inner, command);
        addPasswordOption(inner, asked->fromStandardInput);
        inner.footer(action.footer);
        inner.onChosen(
            [&command, asked, perform, work = action.work, name = verb.name() + " " + action.name] {
                command.verb = name;
                command.run = [&command, asked, perform, work](Json &result) {
                    return perform(command, *asked, work, result);
                };
            });
    }
}

} // namespace arca::tool

#endif
