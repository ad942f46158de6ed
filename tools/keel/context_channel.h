// A channel through the second version of the interface, driven as the database's backup tool
// drives it: sbtinit is the one function looked up by name, every other call goes through the table
// that it hands out, and the context is memory of ours in the size that it asks for.
#ifndef KEEL_TOOLS_KEEL_CONTEXT_CHANNEL_H
#define KEEL_TOOLS_KEEL_CONTEXT_CHANNEL_H

#include "agents/oracle/common/sbt.h"
#include "tools/keel/agent.h"
#include "tools/keel/channel.h"

namespace keel
{

class ContextChannel final : public Channel
{
public:
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

    /// Writes the agent's password file for its node. 0, or the agent's code.
    [[nodiscard]] std::uint16_t updatePassword(char *password);
    /// The agent has said that it passes over node and password, because the storage client keeps
    /// the password itself. It says so for as long as nothing else has gone wrong.
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
