// Reads one revision of a pack and says what of it is damaged. Nothing is written.
#ifndef KEEL_CLIENT_ENGINE_MENDING_PACK_CHECK_H
#define KEEL_CLIENT_ENGINE_MENDING_PACK_CHECK_H

#include "client/engine/duplicates/domain.h"
#include "client/engine/packs/damage.h"

#include <functional>

namespace arca::engine
{

enum class CheckDepth {
    structure, // header, index and trailer, and that they agree
    data       // every frame, too, and each of its blocks against its identity
};

struct PackFindings {
    /// What is not what was written, in the order of the pack.
    std::vector<DamagedPart> damaged;
    /// Frames that the operating system failed to read, which may pass: among `damaged`, too.
    std::set<std::uint32_t> unreadable;
    /// Blocks of frames that open, but whose bytes contradict their identity.
    std::set<std::uint32_t> wrongBlocks;
    /// Why the first part of `damaged` is: one line.
    std::string reason;

    bool isSound() const { return damaged.empty(); }
    bool isWhole() const { return !isSound() && damaged.front().kind == DamageKind::whole; }
};

/// Checks `pack`. `progress`, which may be empty, is told the bytes of each frame that was read.
/// Damage is a finding, not an error, and so is a frame that gives io. Errors: notFound when there
/// is no such revision; io, denied when header, index or trailer cannot be read.
Result<PackFindings> checkPack(Domain &domain, const PackName &pack, CheckDepth depth,
                               const std::function<void(std::size_t bytes)> &progress);

/// The same of a pack that is open, for example one that has no name yet.
Result<PackFindings> checkPack(Domain &domain, const OpenPack &pack, CheckDepth depth,
                               const std::function<void(std::size_t bytes)> &progress);

/// Returns true when `content` is the block that the index names, or the block has no identity.
bool fitsIdentity(const BlockHasher &identify, const BlockEntry &block, ByteView content);

/// Reads and opens a frame; `raw` receives its blocks, one after the other, without the dropped
/// ones. After an error `sealed` and `raw` may hold anything. Errors: damaged, io.
Result<void> openFrame(const OpenPack &pack, FrameCoder &coder, std::uint32_t number,
                       const FrameEntry &entry, Bytes &sealed, Bytes &raw);

} // namespace arca::engine

#endif
