// What the option file of the agent says, for the verbs that have to name it to people. The agent
// alone decides whether the file is good; this reads a good one as it does.
#ifndef KEEL_TOOLS_KEEL_AGENT_OPTIONS_H
#define KEEL_TOOLS_KEEL_AGENT_OPTIONS_H

#include <map>
#include <string>
#include <vector>

namespace keel
{

class AgentOptions
{
public:
    /// Reads the file that the agent would read now: VELO_OPTFILE, else the installed one. A file
    /// that cannot be read is one without lines.
    AgentOptions();

    [[nodiscard]] const std::string &file() const { return file_; }
    [[nodiscard]] bool fileIsNamed() const { return named_; }

    /// The last value of the keyword, empty when there is none.
    [[nodiscard]] std::string value(const std::string &keyword) const;

    /// Of each line that the agent refuses, what is wrong with it.
    [[nodiscard]] const std::vector<std::string> &wrongLines() const { return wrong_; }

    // With the agent's defaults.
    [[nodiscard]] std::string agentDirectory() const;
    [[nodiscard]] std::string clientDirectory() const;
    [[nodiscard]] std::string logDirectory() const;
    [[nodiscard]] std::string passwordDirectory() const;
    /// The option file of the storage client.
    [[nodiscard]] std::string clientFile() const;

private:
    std::string file_;
    bool named_ = false;
    std::map<std::string, std::string> values_;
    std::vector<std::string> wrong_;
};

} // namespace keel

#endif
