// Where a stream is cut into the blocks that are compared with those stored already.
//
// A backup piece is a sequence of database blocks, so it is cut at multiples of the block size: a
// block that did not change is the same bytes wherever it comes to lie. What does not look like
// database blocks is cut where its own content says (a rolling "gear" hash), so that an insertion
// moves the cuts with it. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_WRITING_CUTTER_H
#define KEEL_CLIENT_ENGINE_WRITING_CUTTER_H

#include "client/base/crypto/block_hash.h"
#include "client/base/crypto/hash.h"

#include <vector>

namespace arca::engine
{

constexpr std::size_t kChunkBytes = std::size_t{1} << 20; // a multiple of every block size
constexpr std::size_t kMaxCutBytes = std::size_t{256} << 10;

struct Cut {
    std::uint32_t offset; // in the chunk's storage
    std::uint32_t length;
    bool zero;
    BlockId id;
};

/// A portion of the stream on its way through the stages. What the chunk before left over is put in
/// front of it.
struct Chunk {
    Chunk() : storage(kMaxCutBytes + kChunkBytes) {}

    std::span<std::byte> room() { return std::span(storage).subspan(end); }
    ByteView at(const Cut &cut) const { return ByteView(storage).subspan(cut.offset, cut.length); }
    void clear()
    {
        begin = end = kMaxCutBytes;
        last = false;
        cuts.clear();
    }

    Bytes storage;
    std::size_t begin = kMaxCutBytes;
    std::size_t end = kMaxCutBytes;
    bool last = false;
    std::vector<Cut> cuts;
};

/// Returns true when every byte is 0, also for none.
bool isZero(ByteView bytes);

class Cutter
{
public:
    /// `blockSize` divides kChunkBytes. `deduplicating` false: cuts as large as they may be.
    Cutter(std::size_t blockSize, bool deduplicating)
        : blockSize_(blockSize), deduplicating_(deduplicating)
    {
    }

    /// Fills in chunk.cuts (without identities) for what is complete; what is not waits for the
    /// next chunk. The chunks of a stream, in order; all but the last are full.
    void cut(Chunk &chunk);

private:
    enum class Mode { undecided, blocks, content };

    Mode modeFor(ByteView fresh) const;
    void cutEvery(std::size_t length, Chunk &chunk);
    void cutByContent(Chunk &chunk);

    std::size_t blockSize_;
    bool deduplicating_;
    Mode mode_ = Mode::undecided;
    Bytes left_;
};

} // namespace arca::engine

#endif
