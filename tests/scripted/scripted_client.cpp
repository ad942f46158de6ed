// The script itself. Both sides compile this: the operations inside the library, which keep the
// calls, and the tests outside, which read them.

#include "tests/scripted/scripted.h"

#include <cstdio>
#include <sstream>

void ScriptedClient::on(const std::string &operation, int nth, int rc, int reason)
{
    rules_.push_back({operation, nth, rc, reason});
}

void ScriptedClient::script(const std::string &rules)
{
    std::istringstream words(rules);
    for (std::string word; words >> word;) {
        const std::size_t colon = word.find(':');
        int nth = kEveryCall, rc = 0, reason = 0;
        if (word[colon + 1] == '*')
            std::sscanf(word.c_str() + colon, ":*=%d/%d", &rc, &reason);
        else
            std::sscanf(word.c_str() + colon, ":%d=%d/%d", &nth, &rc, &reason);
        on("hox" + word.substr(0, colon), nth, rc, reason);
    }
}

ScriptedClient::Answer ScriptedClient::called(const std::string &operation,
                                              const std::string &fields)
{
    if (operation == during && happens)
        happens();
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

std::string ScriptedClient::story() const
{
    std::string story;
    for (const std::string &call : calls) {
        unsigned log = 0, severity = 0;
        int kind = 0;
        std::string token = call.substr(3, call.find(' ') - 3);
        if (std::sscanf(call.c_str(), "hoxLogEventEx handle=%*u log=%u severity=%u kind=%d", &log,
                        &severity, &kind) == 3)
            token = kind != 0   ? "K" + std::to_string(kind)
                    : log == 0U ? "S" + std::to_string(severity)
                                : "L" + std::to_string(severity);
        else if (token == "EndTxn")
            token += call.back();
        story += (story.empty() ? "" : " ") + token;
    }
    return story;
}
