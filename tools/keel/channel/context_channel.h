// A channel through the second version of the interface, driven as the database's backup tool
// drives it: sbtinit is the only function looked up by name, every other call is made through the
// table that it hands out, and the context is memory of ours, of the size that it asks for.
// channel.h says what each call does.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_CONTEXT_CHANNEL_H
#define KEEL_TOOLS_KEEL_CHANNEL_CONTEXT_CHANNEL_H

#include "agents/oracle/common/sbt.h"
#include "tools/keel/channel/agent.h"
#include "tools/keel/channel/channel.h"

namespace keel
{

class ContextChannel final : public Channel
{
public:
    /// Throws Failure when the agent cannot be loaded or refuses the channel; nothing is open then.
    explicit ContextChannel(const ChannelOptions &options);
    ~ContextChannel() override;

    void beginBackup(const std::string &name, const PieceAttributes &attributes,
                     std::size_t blockSize) override;
    void writeBlock(std::span<std::byte> block) override;
    void beginRestore(const std::string &name, std::size_t blockSize) override;
    bool readBlock(std::span<std::byte> block) override;
    void closePiece() override;
    [[nodiscard]] std::vector<PieceInfo> info(std::vector<std::string> names) override;
    void remove(std::vector<std::string> names) override;

    /// Has the agent write its password file for its node; it may overwrite `password`. Returns 0,
    /// or the agent's code.
    [[nodiscard]] std::uint16_t updatePassword(char *password);
    /// Returns true when the agent's last message says that it does not use node and password,
    /// because the storage client keeps the password. Ask before any other call fails.
    [[nodiscard]] bool clientKeepsPassword();

private:
    struct Entries {
        decltype(&::sbtbackup) backup;
        decltype(&::sbtclose2) close2;
        decltype(&::sbtend) end;
        decltype(&::sbterror) error;
        decltype(&::sbtinfo2) info2;
        decltype(&::sbtinit2) init2;
        decltype(&::sbtread2) read2;
        decltype(&::sbtremove2) remove2;
        decltype(&::sbtrestore) restore;
        decltype(&::sbtwrite2) write2;
    };

    void takeEntries(void *const *table);
    void handOverContext(const ChannelOptions &options);
    struct LastError {
        std::uint32_t code;
        std::string text;
    };
    [[nodiscard]] LastError lastError();
    [[noreturn]] void fail();

    Agent agent_;
    Entries entries_ = {};
    std::uint64_t contextSize_ = 0;
    std::unique_ptr<std::byte[]> context_; ///< set once the agent has it
    bool pieceOpen_ = false;
};

} // namespace keel

#endif
