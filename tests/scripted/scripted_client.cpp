// The script itself. Both sides compile this: the operations inside the library, which keep the
// calls, and the tests outside, which read them.

#include "tests/scripted/scripted.h"

void ScriptedClient::on(const std::string &operation, int nth, int rc, int reason)
{
    rules_.push_back({operation, nth, rc, reason});
}

ScriptedClient::Answer ScriptedClient::called(const std::string &operation,
                                              const std::string &fields)
{
    calls.push_back(fields.empty() ? operation : operation + " " + fields);
    Answer answer{false, 0, 0};
    for (Rule &rule : rules_) {
        if (rule.operation != operation)
            continue;
        const bool applies = rule.callsToGo == kEveryCall || rule.callsToGo == 1;
        if (rule.callsToGo > 0 && --rule.callsToGo == 0)
            rule.callsToGo = -1; // spent
        if (applies && !answer.scripted)
            answer = {true, rule.rc, rule.reason};
    }
    if (answer.scripted && answer.rc != 0 && !sendingName.empty())
        poisoned = true;
    return answer;
}

std::vector<std::string> ScriptedClient::callsOf(const std::vector<std::string> &beginnings) const
{
    std::vector<std::string> found;
    for (const std::string &call : calls)
        for (const std::string &beginning : beginnings)
            if (call.compare(0, beginning.size(), beginning) == 0) {
                found.push_back(call);
                break;
            }
    return found;
}

std::vector<std::string> ScriptedClient::operations() const
{
    std::vector<std::string> names;
    for (const std::string &call : calls)
        if (call.compare(0, 13, "hoxLogEventEx") != 0)
            names.push_back(call.substr(0, call.find(' ')));
    return names;
}
