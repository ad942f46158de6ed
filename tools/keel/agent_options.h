// What the option file of the agent says, for the verbs that show it to people. The agent alone
// decides whether the file is good; this reads a good one as the agent does. Values, fixed once
// read.
#ifndef KEEL_TOOLS_KEEL_AGENT_OPTIONS_H
#define KEEL_TOOLS_KEEL_AGENT_OPTIONS_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace keel
{

/// Returns true for a name in quotation marks, " or ', which the agent takes off.
bool isQuoted(std::string_view value);

class AgentOptions
{
public:
    /// Reads the file that the agent would read now: VELO_OPTFILE, else the installed one. Of a
    /// file that cannot be read every option has its default; file() says which it was.
    AgentOptions();

    [[nodiscard]] const std::string &file() const { return file_; }
    /// Returns true when VELO_OPTFILE named the file.
    [[nodiscard]] bool fileIsNamed() const { return named_; }

    /// Returns the last value of the keyword (in upper case), empty when there is none.
    [[nodiscard]] std::string value(const std::string &keyword) const;

    /// Returns a clause about each line with an unknown keyword or without a value, which the agent
    /// refuses. It does not judge values.
    [[nodiscard]] const std::vector<std::string> &wrongLines() const { return wrong_; }

    // Paths, with the agent's defaults where the file names none.
    [[nodiscard]] std::string agentDirectory() const;
    [[nodiscard]] std::string clientDirectory() const;
    [[nodiscard]] std::string logDirectory() const;
    [[nodiscard]] std::string passwordDirectory() const;
    /// The option file of the storage client.
    [[nodiscard]] std::string clientFile() const;

    /// Where the agent is installed, whatever the option file names.
    [[nodiscard]] static std::string installedDirectory();

private:
    std::string file_;
    bool named_ = false;
    std::map<std::string, std::string> values_;
    std::vector<std::string> wrong_;
};

} // namespace keel

#endif
