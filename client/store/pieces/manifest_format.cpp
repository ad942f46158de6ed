// Manifests, to and from bytes.
#include "client/store/pieces/manifest_format.h"

#include <zstd.h>

#include <algorithm>
#include <map>

namespace arca::store
{

namespace
{

constexpr std::string_view kHeaderMagic = "ARCAMANI";
constexpr std::string_view kTailMagic = "ARCAMEND";
constexpr std::string_view kInactiveMagic = "ARCAINAC";
constexpr std::size_t kNoteMarkBytes = 16;
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kCheckBytes = 8;
constexpr std::uint32_t kFlagDeduplicated = 1;
constexpr std::uint32_t kFlagCompressed = 2;
constexpr std::uint8_t kRunsPlain = 0;
constexpr std::uint8_t kRunsZstd = 1;
constexpr int kRunsLevel = 1;

Error damaged(const char *what)
{
    return {ErrorKind::damaged, what};
}

/// The text members of a description in the order in which they are stored.
template <class Description, class Visit> void eachText(Description &piece, Visit visit)
{
    for (auto *text : {&piece.node, &piece.name.filespace, &piece.name.highLevel,
                       &piece.name.lowLevel, &piece.owner, &piece.managementClass, &piece.info})
        visit(*text);
}

Bytes encodePlainRuns(std::span<const engine::Run> runs)
{
    std::map<engine::PackId, std::uint64_t> places;
    ByteWriter packs;
    for (const engine::Run &run : runs)
        if (run.blocks != 0 && places.emplace(run.pack, places.size()).second)
            packs.raw(run.pack);
    ByteWriter writer;
    writer.varint(places.size());
    writer.raw(packs.view());
    for (const engine::Run &run : runs) {
        if (run.blocks == 0) {
            writer.varint(0);
            writer.varint(run.zeroBytes);
        } else {
            writer.varint(1 + places.at(run.pack));
            writer.varint(run.firstBlock);
            writer.varint(run.blocks);
        }
    }
    return writer.take();
}

Result<std::vector<engine::Run>> parsePlainRuns(ByteView bytes)
{
    ByteReader reader(bytes);
    const std::uint64_t count = reader.varint();
    if (count > reader.remaining() / sizeof(engine::PackId))
        return damaged("a chunk of its runs makes no sense");
    std::vector<engine::PackId> packs(static_cast<std::size_t>(count));
    for (engine::PackId &pack : packs) {
        const ByteView id = reader.raw(pack.size());
        std::copy(id.begin(), id.end(), pack.begin());
    }
    std::vector<engine::Run> runs;
    while (reader.ok() && reader.remaining() != 0) {
        engine::Run run;
        const std::uint64_t kind = reader.varint();
        if (kind == 0) {
            run.zeroBytes = reader.varint();
        } else {
            const std::uint64_t first = reader.varint();
            const std::uint64_t blocks = reader.varint();
            if (kind > packs.size() || first > UINT32_MAX || blocks > UINT32_MAX || blocks == 0)
                return damaged("a run makes no sense");
            run = {packs[static_cast<std::size_t>(kind - 1)], static_cast<std::uint32_t>(first),
                   static_cast<std::uint32_t>(blocks), 0};
        }
        if (run == engine::Run{})
            return damaged("a run is empty");
        runs.push_back(run);
    }
    if (!reader.ok())
        return damaged("a chunk of its runs was cut");
    return runs;
}

} // namespace

Bytes encodeManifestHeader(const ManifestHeader &header)
{
    ByteWriter writer;
    writer.raw(viewOf(kHeaderMagic));
    writer.u32(kVersion);
    writer.u32(static_cast<std::uint32_t>(header.cipher));
    writer.u64(header.id);
    writer.raw(header.salt);
    writer.u32(header.descriptionBytes);
    writer.u32(0);
    return writer.take();
}

Result<ManifestHeader> parseManifestHeader(ByteView bytes)
{
    ByteReader reader(bytes);
    const bool ours = textOf(reader.raw(kHeaderMagic.size())) == kHeaderMagic;
    const std::uint32_t version = reader.u32();
    const std::uint32_t cipher = reader.u32();
    ManifestHeader header;
    header.id = reader.u64();
    const ByteView salt = reader.raw(kManifestSaltBytes);
    header.descriptionBytes = reader.u32();
    const std::uint32_t padding = reader.u32();
    if (!reader.ok() || reader.remaining() != 0 || !ours)
        return damaged("it does not begin as a piece does");
    if (version != kVersion || cipher > static_cast<std::uint32_t>(Cipher::aes256) ||
        header.id == 0 || padding != 0 || header.descriptionBytes < kTagBytes ||
        header.descriptionBytes > kMaxDescriptionBytes)
        return damaged("its header makes no sense");
    header.cipher = static_cast<Cipher>(cipher);
    std::copy(salt.begin(), salt.end(), header.salt.begin());
    return header;
}

static std::uint64_t checksumOf(ByteView header, ByteView tailStart)
{
    return checksum64(tailStart, checksum64(header));
}

Bytes encodeManifestTail(ByteView headerBytes, const ManifestHeader &header,
                         const ManifestTail &tail)
{
    ByteWriter writer;
    writer.raw(viewOf(kTailMagic));
    writer.u64(tail.endOffset);
    writer.u32(tail.endBytes);
    writer.u32(tail.chunks);
    writer.u64(header.id);
    writer.u64(0);
    writer.u64(checksumOf(headerBytes, writer.view()));
    return writer.take();
}

Result<ManifestTail> parseManifestTail(ByteView headerBytes, ByteView tailBytes,
                                       std::uint64_t blobBytes)
{
    ByteReader reader(tailBytes);
    const bool ours = textOf(reader.raw(kTailMagic.size())) == kTailMagic;
    ManifestTail tail;
    tail.endOffset = reader.u64();
    tail.endBytes = reader.u32();
    tail.chunks = reader.u32();
    const std::uint64_t id = reader.u64();
    const std::uint64_t padding = reader.u64();
    const std::uint64_t check = reader.u64();
    if (!reader.ok() || reader.remaining() != 0 || !ours || padding != 0 ||
        id != ByteReader(headerBytes.subspan(16)).u64() ||
        check != checksumOf(headerBytes, tailBytes.first(kManifestTailBytes - kCheckBytes)))
        return damaged("it does not end as a piece does");
    if (tail.endBytes < kTagBytes || tail.endBytes > kMaxDescriptionBytes ||
        blobBytes < kManifestHeaderBytes + kManifestTailBytes + tail.endBytes ||
        tail.endOffset != blobBytes - kManifestTailBytes - tail.endBytes)
        return damaged("its parts do not belong together");
    return tail;
}

Bytes encodeDescription(const PieceDescription &description)
{
    ByteWriter writer;
    writer.u64(description.sizeEstimate);
    writer.u32(description.copyGroup);
    writer.u16(description.name.type);
    eachText(description, [&](const std::string &text) { writer.text(text); });
    return writer.take();
}

Result<PieceDescription> parseDescription(ByteView bytes)
{
    ByteReader reader(bytes);
    PieceDescription description;
    description.sizeEstimate = reader.u64();
    description.copyGroup = reader.u32();
    description.name.type = reader.u16();
    eachText(description, [&](std::string &text) { text = reader.text(); });
    if (!reader.ok() || reader.remaining() != 0)
        return damaged("its description makes no sense");
    return description;
}

Bytes encodeEnd(const ManifestEnd &end)
{
    const PieceTotals &totals = end.totals;
    ByteWriter writer;
    writer.u64(totals.streamBytes);
    writer.raw(totals.digest);
    writer.u64(static_cast<std::uint64_t>(end.insertedAt));
    writer.u64(totals.newBytes);
    writer.u64(totals.storedBytes);
    writer.u64(totals.zeroBytes);
    writer.u32((totals.deduplicated ? kFlagDeduplicated : 0) |
               (totals.compressed ? kFlagCompressed : 0));
    return writer.take();
}

Result<ManifestEnd> parseEnd(ByteView bytes)
{
    ByteReader reader(bytes);
    ManifestEnd end;
    PieceTotals &totals = end.totals;
    totals.streamBytes = reader.u64();
    const ByteView digest = reader.raw(totals.digest.size());
    std::copy(digest.begin(), digest.end(), totals.digest.begin());
    end.insertedAt = static_cast<std::int64_t>(reader.u64());
    totals.newBytes = reader.u64();
    totals.storedBytes = reader.u64();
    totals.zeroBytes = reader.u64();
    const std::uint32_t flags = reader.u32();
    totals.deduplicated = (flags & kFlagDeduplicated) != 0;
    totals.compressed = (flags & kFlagCompressed) != 0;
    if (!reader.ok() || reader.remaining() != 0)
        return damaged("its totals make no sense");
    return end;
}

Result<Bytes> encodeRuns(std::span<const engine::Run> runs)
{
    const Bytes plain = encodePlainRuns(runs);
    Bytes packed(ZSTD_compressBound(plain.size()));
    const std::size_t length =
        ZSTD_compress(packed.data(), packed.size(), plain.data(), plain.size(), kRunsLevel);
    if (ZSTD_isError(length) != 0)
        return Error{ErrorKind::internal, "compressing the runs of a piece failed"};
    const bool smaller = length < plain.size();
    ByteWriter writer;
    const auto method = static_cast<std::byte>(smaller ? kRunsZstd : kRunsPlain);
    writer.raw(ByteView(&method, 1));
    writer.u32(static_cast<std::uint32_t>(plain.size()));
    writer.raw(smaller ? ByteView(packed).first(length) : ByteView(plain));
    return writer.take();
}

Result<std::vector<engine::Run>> parseRuns(ByteView bytes)
{
    ByteReader reader(bytes);
    const ByteView method = reader.raw(1);
    const std::uint32_t length = reader.u32();
    const ByteView content = reader.raw(reader.remaining());
    if (!reader.ok() || length > kMaxChunkBytes)
        return damaged("a chunk of its runs makes no sense");
    if (method[0] == std::byte{kRunsPlain} && length == content.size())
        return parsePlainRuns(content);
    if (method[0] != std::byte{kRunsZstd})
        return damaged("a chunk of its runs is compressed in an unknown way");
    Bytes plain(length);
    const std::size_t got =
        ZSTD_decompress(plain.data(), plain.size(), content.data(), content.size());
    if (ZSTD_isError(got) != 0 || got != length)
        return damaged("a chunk of its runs does not expand to what it was");
    return parsePlainRuns(plain);
}

Result<Aead> manifestCipher(const SecretKey &manifestKey, const ManifestHeader &header)
{
    ByteWriter context;
    context.u64(header.id);
    context.raw(header.salt);
    ARCA_TRY(Sha256 key, hmacSha256(manifestKey.view(), context.view()));
    Aead cipher(header.cipher, key);
    wipe(key);
    return cipher;
}

static Result<Bytes> noteMark(ByteView note, const SecretKey &manifestKey, PieceId id)
{
    ByteWriter marked;
    marked.u64(id);
    marked.raw(note);
    ARCA_TRY(const Sha256 mark, hmacSha256(manifestKey.view(), marked.view()));
    return Bytes(mark.begin(), mark.begin() + kNoteMarkBytes);
}

Result<Bytes> encodeInactiveNote(const SecretKey &manifestKey, PieceId id, std::int64_t at)
{
    ByteWriter note;
    note.raw(viewOf(kInactiveMagic));
    note.u64(static_cast<std::uint64_t>(at));
    ARCA_TRY(const Bytes mark, noteMark(note.view(), manifestKey, id));
    note.raw(mark);
    return note.take();
}

Result<std::int64_t> parseInactiveNote(ByteView bytes, const SecretKey &manifestKey, PieceId id)
{
    ByteReader reader(bytes);
    // Where an active piece has numbers far smaller than these letters.
    if (textOf(reader.raw(kInactiveMagic.size())) != kInactiveMagic)
        return std::int64_t{0};
    const auto at = static_cast<std::int64_t>(reader.u64());
    ARCA_TRY(const Bytes mark,
             noteMark(bytes.first(bytes.size() - kNoteMarkBytes), manifestKey, id));
    if (!std::equal(mark.begin(), mark.end(), bytes.end() - kNoteMarkBytes) || at == 0)
        return damaged("what says that it is inactive is not what was written");
    return at;
}

Bytes endAssociated(ByteView headerBytes, ByteView tailBytes)
{
    ByteWriter writer;
    writer.raw(headerBytes);
    writer.raw(tailBytes.first(kManifestTailBytes - kCheckBytes));
    return writer.take();
}

static Result<Bytes> readExactly(blob::BlobReader &blob, std::uint64_t offset, std::size_t length)
{
    Bytes bytes(length);
    ARCA_TRY(const std::size_t got, blob.read(offset, bytes));
    if (got != length)
        return damaged("it was cut");
    return bytes;
}

Result<PieceId> peekIdentifier(blob::BlobReader &blob)
{
    ARCA_TRY(const Bytes bytes, readExactly(blob, 0, kManifestHeaderBytes));
    ARCA_TRY(const ManifestHeader header, parseManifestHeader(bytes));
    return header.id;
}

static Result<PieceDescription> openDescription(blob::BlobReader &blob,
                                                const ManifestHeader &header, ByteView headerBytes,
                                                const Aead &cipher)
{
    ARCA_TRY(const Bytes sealed, readExactly(blob, kManifestHeaderBytes, header.descriptionBytes));
    Bytes plain(sealed.size() - kTagBytes);
    ARCA_CHECK(cipher.open(descriptionNonce(), headerBytes, sealed, plain));
    return parseDescription(plain);
}

Result<PieceDescription> readDescription(blob::BlobReader &blob, const SecretKey &manifestKey)
{
    ARCA_TRY(const Bytes headerBytes, readExactly(blob, 0, kManifestHeaderBytes));
    ARCA_TRY(const ManifestHeader header, parseManifestHeader(headerBytes));
    ARCA_TRY(const Aead cipher, manifestCipher(manifestKey, header));
    return openDescription(blob, header, headerBytes, cipher);
}

Result<Manifest> readManifest(blob::BlobReader &blob, const SecretKey &manifestKey)
{
    std::uint64_t size = blob.size();
    if (size < kManifestHeaderBytes + kManifestTailBytes)
        return damaged("it is shorter than its frame");
    ARCA_TRY(const Bytes headerBytes, readExactly(blob, 0, kManifestHeaderBytes));
    ARCA_TRY(const ManifestHeader header, parseManifestHeader(headerBytes));
    ARCA_TRY(const Bytes note, readExactly(blob, size - kInactiveNoteBytes, kInactiveNoteBytes));
    ARCA_TRY(const std::int64_t inactiveAt, parseInactiveNote(note, manifestKey, header.id));
    size -= inactiveAt != 0 ? kInactiveNoteBytes : 0;
    if (size < kManifestHeaderBytes + kManifestTailBytes)
        return damaged("it is shorter than its frame");
    ARCA_TRY(const Bytes tailBytes,
             readExactly(blob, size - kManifestTailBytes, kManifestTailBytes));
    ARCA_TRY(const ManifestTail tail, parseManifestTail(headerBytes, tailBytes, size));
    const std::uint64_t chunksOffset = kManifestHeaderBytes + header.descriptionBytes;
    if (chunksOffset > tail.endOffset)
        return damaged("its parts do not belong together");

    ARCA_TRY(const Aead cipher, manifestCipher(manifestKey, header));
    ARCA_TRY(PieceDescription description, openDescription(blob, header, headerBytes, cipher));
    ARCA_TRY(const Bytes sealedEnd, readExactly(blob, tail.endOffset, tail.endBytes));
    Bytes plain(sealedEnd.size() - kTagBytes);
    ARCA_CHECK(cipher.open(endNonce(), endAssociated(headerBytes, tailBytes), sealedEnd, plain));
    ARCA_TRY(ManifestEnd end, parseEnd(plain));
    end.totals.cipher = header.cipher;
    end.totals.manifestBytes = blob.size();
    return Manifest{{header.id, std::move(description), end.totals, end.insertedAt, inactiveAt},
                    tail,
                    chunksOffset,
                    cipher};
}

} // namespace arca::store
