// Gathering blocks into the frames of a new revision: see the header.
#include "client/engine/packs/revision_writer.h"

#include <algorithm>

namespace arca::engine
{

Result<std::unique_ptr<RevisionWriter>>
RevisionWriter::begin(const PackStore &packs, const OpenPack &pack, const NextRevision &next)
{
    const PackName which{pack.which().id, next.number};
    ARCA_TRY(const PackHeader header, PackStore::newHeader(which.id, pack.cipher().cipher()));
    ARCA_TRY(const Aead cipher, packCipher(packs.packKey(), header));
    ARCA_TRY(auto writer, packs.begin(which, header));
    if (next.stillMarked)
        ARCA_CHECK(next.stillMarked());
    return std::unique_ptr<RevisionWriter>(
        new RevisionWriter(packs, which, std::move(writer), cipher));
}

/// A frame is closed only when a block that is kept does not fit, so that dropped blocks behind the
/// last kept one belong to it.
Result<void> RevisionWriter::keep(BlockEntry entry, ByteView block)
{
    if (!raw_.empty() && raw_.size() + block.size() > kFrameBytes)
        ARCA_CHECK(flush());
    raw_.insert(raw_.end(), block.begin(), block.end());
    entry.dropped = false;
    blocks_.push_back(entry);
    return {};
}

void RevisionWriter::drop(BlockEntry entry)
{
    entry.dropped = true;
    blocks_.push_back(entry);
}

Result<void> RevisionWriter::flush()
{
    if (blocks_.empty())
        return {};
    ARCA_CHECK(coder_.seal(settings_, cipher_, which_.id, number_++, raw_, sealed_));
    ARCA_CHECK(writer_->append(sealed_, blocks_));
    raw_.clear();
    blocks_.clear();
    return {};
}

Result<std::unique_ptr<OpenPack>> RevisionWriter::readBack()
{
    ARCA_CHECK(flush());
    return packs_.readBack(*writer_, which_);
}

Result<void> RevisionWriter::commit()
{
    ARCA_CHECK(flush());
    return writer_->commit();
}

} // namespace arca::engine
