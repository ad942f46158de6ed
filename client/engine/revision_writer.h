// Writes the next revision of a pack: every block under the number it had, kept or dropped. Belongs
// to one thread.
#ifndef KEEL_CLIENT_ENGINE_REVISION_WRITER_H
#define KEEL_CLIENT_ENGINE_REVISION_WRITER_H

#include "client/engine/pack_store.h"

namespace arca::engine
{

class RevisionWriter
{
public:
    /// A revision after all that there are of `pack`, under the same cipher.
    static Result<std::unique_ptr<RevisionWriter>> begin(const PackStore &packs,
                                                         const OpenPack &pack);

    /// Each block of the pack in its order, with one of the two.
    Result<void> keep(BlockEntry entry, ByteView block);
    void drop(BlockEntry entry);

    /// Durable when it returns. At least one block was kept. Errors: exists when another process
    /// wrote that revision; then nothing changed.
    Result<void> commit();

    const PackName &which() const { return which_; }
    std::uint64_t storedBytes() const { return writer_->storedBytes(); }

private:
    RevisionWriter(const PackName &which, std::unique_ptr<PackWriter> writer, const Aead &cipher)
        : which_(which), writer_(std::move(writer)), cipher_(cipher)
    {
    }
    Result<void> flush();

    const PackName which_;
    std::unique_ptr<PackWriter> writer_;
    Aead cipher_;
    Settings settings_;
    FrameCoder coder_;
    SealedFrame sealed_;
    Bytes raw_;                      // of the frame that is being filled
    std::vector<BlockEntry> blocks_; // of it
    std::uint32_t number_ = 0;
};

/// Removes a revision that was written and not proven, as well as that can be done.
void removeRevision(const PackStore &packs, const PackName &which);

} // namespace arca::engine

#endif
