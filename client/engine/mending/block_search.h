// Looks for copies of blocks, by their identities, in all packs of a node. In memory are only the
// identities that are wanted, and where a few copies of each lie. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_MENDING_BLOCK_SEARCH_H
#define KEEL_CLIENT_ENGINE_MENDING_BLOCK_SEARCH_H

#include "client/engine/duplicates/domain.h"
#include "client/engine/packs/damage.h"

#include <map>

namespace arca::engine
{

class BlockSearch
{
public:
    /// As many as the caller may want at once: some 100 bytes of memory each.
    static constexpr std::size_t kMaxWanted = std::size_t{1} << 18;

    /// Copies in the `damaged` parts are not looked at.
    BlockSearch(Domain &domain, const DamagedParts &damaged) : domain_(domain), damaged_(damaged) {}

    /// Adds a block to look for, before run(). One without an identity, stored where no duplicates
    /// were looked for, is never found.
    void want(const BlockEntry &block);
    std::size_t wanted() const { return wanted_.size(); }

    /// Goes through the indexes of all revisions of all packs. A pack that cannot be read is left
    /// out. `goOn`, which may be empty, is asked before each pack. Errors: stopped, and what
    /// listing them says.
    Result<void> run(const std::function<bool()> &goOn);

    /// Reads a copy of a block that was wanted and compares it with its identity. The bytes stay
    /// until the next call. Returns nothing when there is no copy that can be read.
    std::optional<ByteView> fetch(const BlockEntry &block);

private:
    static constexpr std::size_t kCopiesKept = 3;

    struct Copy {
        PackName pack;
        std::uint32_t frame = 0;
        std::uint32_t offset = 0; // in the frame
    };
    struct Wanted {
        std::uint32_t length = 0;
        std::vector<Copy> copies;
    };
    void look(const PackName &pack);
    bool openFrameOf(const Copy &copy);

    Domain &domain_;
    const DamagedParts &damaged_;
    std::map<BlockId, Wanted> wanted_;

    // The frame that was opened last: blocks that were stored together are fetched together.
    std::unique_ptr<OpenPack> pack_;
    PackIndex index_;
    std::optional<std::uint32_t> frame_;
    FrameCoder coder_;
    Bytes sealed_, raw_;
};

} // namespace arca::engine

#endif
