// A channel through the first version of the interface, as older databases drive it: calls that are
// looked up by name, without a context, and an error record that holds two codes and no text.
// channel.h says what each call does.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_FIRST_CHANNEL_H
#define KEEL_TOOLS_KEEL_CHANNEL_FIRST_CHANNEL_H

#include "agents/oracle/common/sbt.h"
#include "tools/keel/channel/agent.h"
#include "tools/keel/channel/channel.h"

namespace keel
{

class FirstChannel final : public Channel
{
public:
    /// Throws UsageError for a trace level, and Failure when the agent cannot be loaded or refuses
    /// the channel.
    explicit FirstChannel(const ChannelOptions &options);
    ~FirstChannel() override;

    /// Throws UsageError for attributes, which this version's calls cannot carry.
    void beginBackup(const std::string &name, const PieceAttributes &attributes,
                     std::size_t blockSize) override;
    void writeBlock(std::span<std::byte> block) override;
    void beginRestore(const std::string &name, std::size_t blockSize) override;
    bool readBlock(std::span<std::byte> block) override;
    void closePiece() override;
    [[nodiscard]] std::vector<PieceInfo> info(std::vector<std::string> names) override;
    void remove(std::vector<std::string> names) override;

private:
    void ready();
    void open(std::string name, unsigned long mode, std::size_t blockSize);
    [[noreturn]] void fail() const;

    Agent agent_;
    decltype(::sbtopen) *open_ = nullptr;
    decltype(::sbtwrite) *write_ = nullptr;
    decltype(::sbtread) *read_ = nullptr;
    decltype(::sbtclose) *close_ = nullptr;
    decltype(::sbtinfo) *info_ = nullptr;
    decltype(::sbtremove) *remove_ = nullptr;
    bserc error_ = {};
    unsigned handle_ = 0;
    bool initialised_ = false; ///< most calls end the channel that sbtinit opened
    bool writing_ = false;
    bool reading_ = false;
};

} // namespace keel

#endif
