// A channel of the agent, as the verbs use it. Which of the agent's two interfaces is driven is
// decided once, in openChannel.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_H
#define KEEL_TOOLS_KEEL_CHANNEL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace keel
{

struct ChannelOptions {
    std::string library;
    std::string traceFile;                   ///< empty: no trace
    std::optional<std::uint64_t> traceLevel; ///< 1 when none is given
    bool firstVersion = false;               ///< the interface of older databases
};

/// What a backup is about, beside its bytes.
struct PieceAttributes {
    std::string database;                  ///< empty: none named
    std::optional<std::uint64_t> fileType; ///< SBT_FILETYPE_...
    unsigned long copy = 1;
};

/// What the agent knows of a piece. Times are seconds since the epoch, 0 for none.
struct PieceInfo {
    std::string name;
    bool found = false;
    std::uint64_t method = 1; ///< 1: a stream, as keel and the database store them
    std::uint64_t share = 0;  ///< 1: one reader at a time; 2: several; 0: not told
    std::int64_t created = 0;
    std::int64_t expires = 0;
    std::optional<std::uint64_t> size; ///< the first version of the interface alone tells it
    std::string label;
    std::string managementClass;
};

/// One channel; a process can have only one at a time. A call that the agent refuses throws Failure
/// with the SBT code and the agent's text.
class Channel
{
public:
    Channel() = default;
    /// Ends the channel; a piece still open is given up, so that nothing of it stays.
    virtual ~Channel() = default;
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    virtual void beginBackup(const std::string &name, const PieceAttributes &attributes,
                             std::size_t blockSize) = 0;
    virtual void writeBlock(std::span<std::byte> block) = 0;

    virtual void beginRestore(const std::string &name, std::size_t blockSize) = 0;
    /// False when the block before was the last. How much of the last one was filled is not told.
    virtual bool readBlock(std::span<std::byte> block) = 0;

    /// Ends the piece. A backup is durable and visible when this returns.
    virtual void closePiece() = 0;

    /// In the order of the names.
    [[nodiscard]] virtual std::vector<PieceInfo> info(std::vector<std::string> names) = 0;

    /// A piece that is not there is no failure.
    virtual void remove(std::vector<std::string> names) = 0;
};

[[nodiscard]] std::unique_ptr<Channel> openChannel(const ChannelOptions &options);

} // namespace keel

#endif
