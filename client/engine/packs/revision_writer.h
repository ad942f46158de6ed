// Writes the next revision of a pack: every block under the number it had, kept or dropped. Nothing
// shows before commit(); after an error of any call drop the writer. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_PACKS_REVISION_WRITER_H
#define KEEL_CLIENT_ENGINE_PACKS_REVISION_WRITER_H

#include "client/engine/packs/pack_store.h"

#include <functional>

namespace arca::engine
{

/// What a writer of a revision needs to know of the mark that its pack was rewritten under.
struct NextRevision {
    /// One more than the newest that is marked: the same for all that rewrite under one mark, so
    /// that putting it is one decision.
    std::uint32_t number = 0;
    /// Called once the writer holds its claim; an error ends the writing. As long as the mark is
    /// the same after the claim was taken, the next mark finds the claim and waits for it: no
    /// revision that is marked ever appears late. May be empty.
    std::function<Result<void>()> stillMarked;
};

class RevisionWriter
{
public:
    /// Begins the revision `next` of `pack`, under the same cipher. Errors: those of
    /// next.stillMarked, what the store says.
    static Result<std::unique_ptr<RevisionWriter>>
    begin(const PackStore &packs, const OpenPack &pack, const NextRevision &next);

    /// Each block of the pack in its order, with one of the two. `block` has entry.length bytes.
    Result<void> keep(BlockEntry entry, ByteView block);
    void drop(BlockEntry entry);

    /// Ends the revision and opens it before it has a name, for proving it: another process counts
    /// on whatever has one. Drop what it returns before the writer.
    Result<std::unique_ptr<OpenPack>> readBack();
    /// Durable when it returns. At least one block was kept. Errors: exists when another process
    /// wrote that revision; then nothing changed. After another error the name may lead to it.
    Result<void> commit();

    const PackName &which() const { return which_; }
    std::uint64_t storedBytes() const { return writer_->storedBytes(); }

private:
    RevisionWriter(const PackStore &packs, const PackName &which,
                   std::unique_ptr<PackWriter> writer, const Aead &cipher)
        : packs_(packs), which_(which), writer_(std::move(writer)), cipher_(cipher)
    {
    }
    Result<void> flush();

    const PackStore &packs_;
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

} // namespace arca::engine

#endif
