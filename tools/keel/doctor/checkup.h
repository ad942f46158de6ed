// Checking an installation as the database's backup tool would meet it: each thing on the way to a
// stored piece separately, so that the first fault is named, with what to do. One thread.
#ifndef KEEL_TOOLS_KEEL_DOCTOR_CHECKUP_H
#define KEEL_TOOLS_KEEL_DOCTOR_CHECKUP_H

#include "tools/keel/agent_options.h"
#include "tools/keel/channel/channel.h"
#include "tools/keel/option_lines.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace keel
{

enum class Health { ok, warning, failed };

struct Finding {
    std::string check; ///< one word
    Health health = Health::ok;
    std::string text;
    std::string cure; ///< what to do, one sentence; empty when all is well
};

class Checkup
{
public:
    /// `tell` is called with each finding as soon as it is made.
    Checkup(ChannelOptions channel, std::function<void(const Finding &)> tell)
        : channel_(std::move(channel)), tell_(std::move(tell))
    {
    }

    /// Makes every check, in the order in which a channel would meet the things. It makes and
    /// removes a file in the log directory, and at last it stores, reads and removes a small piece.
    /// A fault is a finding and no exception; the piece is removed after one, too, or the finding
    /// says that it is still there. Throws UsageError as openChannel() does.
    void run();

private:
    // One for each thing to check. Those in checkup_client.cpp concern the storage client.
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
    void lookAtSpace(const std::string &check, const std::string &directory,
                     const std::string &cure);
    void tryPiece();
    [[nodiscard]] std::string dropSample(const std::string &name) const;

    /// The places where the agent may write its error log, with the sizes that they have now: which
    /// of them it takes depends on what is wrong.
    [[nodiscard]] std::map<std::string, std::uint64_t> errorLogs() const;

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

/// Returns what access(2) answers, for the effective user: the agent works with that one's rights.
/// On false errno says why.
[[nodiscard]] bool mayAccess(const std::string &path, int mode);

/// Returns why the file cannot be opened for reading; empty when it can.
[[nodiscard]] std::string whyUnreadable(const std::string &file);

} // namespace keel

#endif
