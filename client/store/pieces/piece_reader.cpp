// A piece on its way out.
#include "client/store/pieces/piece_reader.h"

#include "client/base/text.h"

#include <algorithm>

namespace arca::store
{

Error PieceReader::damaged(const std::string &what) const
{
    return {ErrorKind::damaged, "the stored piece " + printable(info().description.name.joined()) +
                                    " is damaged (" + what + "); it cannot be restored"};
}

Result<std::unique_ptr<PieceReader>> PieceReader::open(engine::Domain &domain,
                                                       const engine::Settings &settings,
                                                       std::unique_ptr<blob::BlobWriter> claim,
                                                       std::unique_ptr<blob::BlobReader> blob,
                                                       std::optional<DamageRecords> damage)
{
    ARCA_TRY(Manifest manifest, readManifest(*blob, domain.manifestKey()));
    std::unique_ptr<PieceReader> reader(
        new PieceReader(std::move(claim), std::move(blob), std::move(manifest), std::move(damage)));
    ARCA_TRY(reader->stream_, engine::StreamReader::begin(domain.packs(), settings, reader->runs_));
    if (reader->info().totals.streamBytes == 0)
        ARCA_CHECK(reader->checkEnd());
    return reader;
}

Result<std::size_t> PieceReader::read(std::span<std::byte> into)
{
    const std::uint64_t left = info().totals.streamBytes - delivered_;
    if (left == 0)
        return std::size_t{0};
    const auto wanted =
        into.first(static_cast<std::size_t>(std::min<std::uint64_t>(into.size(), left)));
    ARCA_TRY(const std::size_t got, readStream(wanted));
    if (got != wanted.size())
        return damaged("its stream ends early");
    digest_.update(wanted);
    if (got == left)
        ARCA_CHECK(checkEnd());
    delivered_ += got;
    return got;
}

Result<std::size_t> PieceReader::readStream(std::span<std::byte> into)
{
    auto got = stream_->read(into);
    if (got || got.error().kind != ErrorKind::damaged)
        return got;
    // The restore fails for the damage, whether it can be recorded or not.
    if (damage_)
        for (const engine::DamagedPart &part : stream_->damage())
            (void)damage_->note(part, "a restore: " + got.error().text);
    return damaged(got.error().text);
}

/// Before the last bytes are handed out.
Result<void> PieceReader::checkEnd()
{
    std::byte beyond;
    ARCA_TRY(const std::size_t more, readStream({&beyond, 1}));
    if (more != 0)
        return damaged("its stream is longer than it was");
    if (digest_.value() != info().totals.digest)
        return damaged("the digest of the whole differs");
    ended_ = true;
    return {};
}

} // namespace arca::store
