// A channel of the agent, as the verbs use it, whichever of the agent's two interfaces is driven
// (open_channel.h). One thread.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_CHANNEL_H
#define KEEL_TOOLS_KEEL_CHANNEL_CHANNEL_H

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

/// What a backup says of its piece, besides the bytes.
struct PieceAttributes {
    std::string database;                  ///< empty: none named
    std::optional<std::uint64_t> fileType; ///< SBT_FILETYPE_...
    unsigned long copy = 1;                ///< 1 to 4; from 2 on a class of the agent's option file
};

/// What the agent knows of a piece. Times are seconds since 1970, UTC, 0 for none.
struct PieceInfo {
    std::string name;
    bool found = false;
    std::uint64_t method = 1; ///< 1: a stream, as keel and the database store them
    std::uint64_t share = 0;  ///< 1: one reader at a time; 2: several; 0: unknown
    std::int64_t created = 0;
    std::int64_t expires = 0;
    std::optional<std::uint64_t> size; ///< bytes stored; only the first interface reports it
    std::string label;
    std::string managementClass;
};

/// One channel; a process can have only one at a time. A call that the agent refuses throws Failure
/// with the SBT code and the agent's text; destroy the channel then, which gives an open piece up.
class Channel
{
public:
    Channel() = default;
    /// Ends the channel. A piece that is open for a backup is given up: nothing of it is visible.
    virtual ~Channel() = default;
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    /// Opens a new piece of that name, which must be free. `blockSize`, in bytes, is that of all
    /// its blocks.
    virtual void beginBackup(const std::string &name, const PieceAttributes &attributes,
                             std::size_t blockSize) = 0;
    /// Sends one block of exactly that size. Not durable before closePiece().
    virtual void writeBlock(std::span<std::byte> block) = 0;

    /// Opens the piece of that name for reading in blocks of that size.
    virtual void beginRestore(const std::string &name, std::size_t blockSize) = 0;
    /// Fills one block. Returns false when the block before was the last. The agent does not report
    /// how much of the last block it filled; the rest is left as it was.
    virtual bool readBlock(std::span<std::byte> block) = 0;

    /// Ends the piece. A backup is durable and visible when this returns; after a failure do not
    /// rely on the piece.
    virtual void closePiece() = 0;

    /// Returns an entry for each name, in their order; `found` is false for a piece that is not
    /// there.
    [[nodiscard]] virtual std::vector<PieceInfo> info(std::vector<std::string> names) = 0;

    /// Deletes the pieces, durably, each by itself: after a failure some may be deleted. A piece
    /// that is not there is no failure, and the agent may pass over one that it cannot delete; ask
    /// info() what became of them.
    virtual void remove(std::vector<std::string> names) = 0;
};

} // namespace keel

#endif
