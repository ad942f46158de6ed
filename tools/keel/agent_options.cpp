// See agent_options.h.
#include "tools/keel/agent_options.h"

#include "keel_paths.h"
#include "tools/keel/option_lines.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include <fmt/format.h>

namespace keel
{

namespace
{

constexpr const char *kAgentDirectory = KEEL_CLIENT_ROOT "/oracle/bin64";
constexpr const char *kClientDirectory = KEEL_CLIENT_ROOT "/api/bin64";

constexpr std::array kKeywords = {"HOXI_DIR",          "HOXI_LOG",          "HOXI_ORC_DIR",
                                  "HOXI_ORC_CONFIG",   "VELO_AVG_SIZE",     "VELO_FS",
                                  "VELO_NODE",         "VELO_OWNER",        "VELO_PSWDPATH",
                                  "VELO_TRACE_MAX",    "VELO_TRACE_FILE",   "VELO_TRACE_FLAGS",
                                  "VELO_MGMT_CLASS_2", "VELO_MGMT_CLASS_3", "VELO_MGMT_CLASS_4",
                                  "VELO_NUM_BUFFERS",  "VELO_DATE_FMT",     "VELO_TIME_FMT",
                                  "VELO_NUM_FMT",      "VELO_LANGUAGE",     "VELO_TEST_FLAGS"};

/// Returns the name without the quotation marks that an administrator may have put around it.
std::string chosenFile(const std::string &value)
{
    return isQuoted(value) ? value.substr(1, value.size() - 2) : value;
}

std::string orElse(std::string value, const char *usual)
{
    return value.empty() ? usual : value;
}

} // namespace

bool isQuoted(std::string_view value)
{
    return value.size() > 1 && value.front() == value.back() &&
           (value.front() == '"' || value.front() == '\'');
}

AgentOptions::AgentOptions()
{
    const char *chosen = std::getenv("VELO_OPTFILE");
    named_ = chosen && *chosen;
    file_ = named_ ? chosenFile(chosen) : std::string(kAgentDirectory) + "/velo.opt";
    for (auto &[keyword, value] : readOptionLines(file_)) {
        if (std::ranges::find(kKeywords, keyword) == kKeywords.end())
            wrong_.push_back(fmt::format("{} is no keyword", keyword));
        else if (value.empty())
            wrong_.push_back(fmt::format("{} has no value", keyword));
        else
            values_[keyword] = value;
    }
}

std::string AgentOptions::value(const std::string &keyword) const
{
    const auto found = values_.find(keyword);
    return found == values_.end() ? "" : found->second;
}

std::string AgentOptions::installedDirectory()
{
    return kAgentDirectory;
}

std::string AgentOptions::agentDirectory() const
{
    return orElse(value("HOXI_ORC_DIR"), kAgentDirectory);
}

std::string AgentOptions::clientDirectory() const
{
    return orElse(value("HOXI_DIR"), kClientDirectory);
}

std::string AgentOptions::logDirectory() const
{
    return orElse(value("HOXI_LOG"), kAgentDirectory);
}

std::string AgentOptions::passwordDirectory() const
{
    const std::string directory = value("VELO_PSWDPATH");
    return directory.empty() ? agentDirectory() : directory;
}

std::string AgentOptions::clientFile() const
{
    const std::string file = value("HOXI_ORC_CONFIG");
    return file.empty() ? clientDirectory() + "/arca.opt" : file;
}

} // namespace keel
