// Looking an installation over as the database's backup tool would meet it: each thing on the way
// to a stored piece by itself, so that the first one that is wrong is named, with what to do.
#ifndef KEEL_TOOLS_KEEL_CHECKUP_H
#define KEEL_TOOLS_KEEL_CHECKUP_H

#include "tools/keel/agent_options.h"
#include "tools/keel/channel.h"
#include "tools/keel/option_lines.h"

#include <functional>
#include <string>
#include <vector>

namespace keel
{

enum class Health { ok, warning, failed };

struct Finding {
    std::string check; ///< one word
    Health health = Health::ok;
    std::string text;
    std::string cure; ///< one sentence; empty when all is well
};

class Checkup
{
public:
    /// tell is called with each finding as soon as it is made.
    Checkup(ChannelOptions channel, std::function<void(const Finding &)> tell)
        : channel_(std::move(channel)), tell_(std::move(tell))
    {
    }

    /// Everything, in the order in which a channel would come upon it.
    void run();

private:
    // One for each thing to look at. Those in checkup_client.cpp concern the storage client.
    void lookAtUser();
    void lookAtAgent();
    void lookAtOptionFile();
    void lookAtDirectories();
    void lookAtErrorLog();
    void lookAtCatalogue();
    void lookAtClock();
    void lookAtClientLibrary();
    void lookAtClientOptions();
    void lookAtPassword();
    void lookAtRepository();
    void lookAtDamage(const std::string &repository);
    void lookAtSpace(const std::string &check, const std::string &directory);
    void tryPiece();

    void good(const std::string &check, const std::string &text);
    void warn(const std::string &check, const std::string &text, const std::string &cure);
    void bad(const std::string &check, const std::string &text, const std::string &cure);
    [[nodiscard]] std::string clientOption(const std::string &keyword) const;

    ChannelOptions channel_;
    std::function<void(const Finding &)> tell_;
    AgentOptions options_;
    OptionLines client_;
    bool optionFileIsGood_ = true;
};

/// What stands in the way of opening the file for reading; empty when nothing does.
[[nodiscard]] std::string whyUnreadable(const std::string &file);

} // namespace keel

#endif
