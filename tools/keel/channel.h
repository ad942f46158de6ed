// A channel of the agent, driven as the database's backup tool drives it: sbtinit is the one
// function looked up by name, every other call goes through the table that it hands out, and the
// context is memory of ours in the size that it asks for.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_H
#define KEEL_TOOLS_KEEL_CHANNEL_H

#include "agents/oracle/common/sbt.h"

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
    std::string traceFile; ///< empty: no trace
    std::uint64_t traceLevel = 0;
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
    std::uint64_t method = 0; ///< 1: a stream, as keel and the database store them
    std::uint64_t share = 0;  ///< 1: one reader at a time; 2: several
    std::int64_t created = 0;
    std::int64_t expires = 0;
    std::string label;
    std::string managementClass;
};

/// One channel; a process can have only one at a time. A call that the agent refuses throws Failure
/// with the SBT code and the agent's text.
class Channel
{
public:
    explicit Channel(const ChannelOptions &options);
    /// Ends the channel; a piece still open is given up, so that nothing of it stays.
    ~Channel();
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    void beginBackup(const std::string &name, const PieceAttributes &attributes,
                     std::size_t blockSize);
    void writeBlock(std::span<std::byte> block);

    void beginRestore(const std::string &name, std::size_t blockSize);
    /// False when the block before was the last. How much of the last one was filled is not told.
    bool readBlock(std::span<std::byte> block);

    /// Ends the piece. A backup is durable and visible when this returns.
    void closePiece();

    /// In the order of the names.
    [[nodiscard]] std::vector<PieceInfo> info(std::vector<std::string> names);

    /// A piece that is not there is no failure.
    void remove(std::vector<std::string> names);

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

    void negotiate(void *library, const ChannelOptions &options);
    void handOverContext(const ChannelOptions &options);
    struct LastError {
        std::uint32_t code;
        std::string text;
    };
    [[nodiscard]] LastError lastError();
    [[noreturn]] void fail();

    Entries entries_ = {};
    std::uint64_t contextSize_ = 0;
    std::unique_ptr<std::byte[]> context_; ///< set once the agent has it
    bool pieceOpen_ = false;
};

} // namespace keel

#endif
