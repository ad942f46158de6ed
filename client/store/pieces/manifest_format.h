// The bytes of a stored piece: a manifest, which says what the piece is and of which blocks its
// stream is made. Publishing it is the commit of the piece. All numbers little-endian.
//
//   header    offset  size
//                  0     8  "ARCAMANI"
//                  8     4  version, 1; any other is damage, as repository.cpp explains
//                 12     4  cipher: 0 none (authenticated only), 1 AES-128-GCM, 2 AES-256-GCM
//                 16     8  identifier of the piece
//                 24    32  salt, random
//                 56     4  length of the description with its tag
//                 60     4  0
//
//   description  sealed: size estimate (8), copy group (4), object type (2); then node, filespace,
//                high-level name, low-level name, owner, management class, information: each a
//                16-bit length and as many bytes
//
//   chunk k      length with its tag (4), then sealed: how the runs are compressed (1: 0 not,
//                1 zstd), their length before (4), the runs:
//                  packs of this chunk p (varint), p identifiers of 16 bytes,
//                  then each run: 0 and the number of zero bytes (varint),
//                                 or 1 + the place of its pack above (varint), first block
//                                 (varint), blocks (varint)
//                varint: seven bits a byte, the lowest first, the upper bit set on all but the last
//
//   end          sealed: length n of the stream (8), XXH3-128 of it, canonical form (16), time of
//                insertion, seconds since 1970, UTC (8), bytes of blocks that were new (8), bytes
//                that the packs of this stream came to (8), bytes of zeros (8), 1 when duplicates
//                were looked for, 2 when compressed, together (4)
//
//   tail         0     8  "ARCAMEND"
//   (48 bytes,   8     8  offset of the end
//   ends the    16     4  length of the end with its tag
//   blob)       20     4  chunks
//               24     8  identifier of the piece
//               32     8  0
//               40     8  XXH3-64 of header and tail before
//
//   note         only of a piece that was made inactive, behind the tail:
//   (32 bytes)   0     8  "ARCAINAC"
//                8     8  when that was, seconds since 1970, UTC
//               16    16  the beginning of HMAC-SHA-256(manifest key of the node, identifier |
//                         the 16 bytes before)
//
// The key of a manifest is HMAC-SHA-256(manifest key of the node, identifier | salt); no other blob
// has it. Nonces: kind 2 and 0 for the description, kind 3 and k for a chunk, kind 4 and 0 for the
// end. Associated data: of the description the header, of a chunk nothing, of the end header and
// tail without its checksum.
#ifndef KEEL_CLIENT_STORE_PIECES_MANIFEST_FORMAT_H
#define KEEL_CLIENT_STORE_PIECES_MANIFEST_FORMAT_H

#include "client/base/crypto/secret_key.h"
#include "client/blob/blob_store.h"
#include "client/engine/packs/run.h"
#include "client/store/pieces/piece.h"

namespace arca::store
{

constexpr std::size_t kManifestHeaderBytes = 64;
constexpr std::size_t kManifestTailBytes = 48;
constexpr std::size_t kInactiveNoteBytes = 32;
constexpr std::size_t kManifestSaltBytes = 32;
constexpr std::size_t kMaxDescriptionBytes = 16 * 1024;
constexpr std::size_t kMaxChunkBytes = std::size_t{4} << 20;

struct ManifestHeader {
    Cipher cipher = Cipher::aes256;
    PieceId id = 0;
    std::array<std::byte, kManifestSaltBytes> salt{};
    std::uint32_t descriptionBytes = 0; // with the tag
};

struct ManifestTail {
    std::uint64_t endOffset = 0;
    std::uint32_t endBytes = 0; // with the tag
    std::uint32_t chunks = 0;
};

struct ManifestEnd {
    PieceTotals totals;
    std::int64_t insertedAt = 0;
};

/// The parts, to and from bytes. Each parse function takes any bytes, and keeps no view of them.
/// Errors: damaged, with half a sentence that the caller puts the name of the blob before.
Bytes encodeManifestHeader(const ManifestHeader &header);
/// From exactly kManifestHeaderBytes.
Result<ManifestHeader> parseManifestHeader(ByteView bytes);
Bytes encodeManifestTail(ByteView headerBytes, const ManifestHeader &header,
                         const ManifestTail &tail);
/// `headerBytes` belong to a header that was parsed; `blobBytes`: without an inactive note.
Result<ManifestTail> parseManifestTail(ByteView headerBytes, ByteView tailBytes,
                                       std::uint64_t blobBytes);

Bytes encodeDescription(const PieceDescription &description);
Result<PieceDescription> parseDescription(ByteView bytes);
Bytes encodeEnd(const ManifestEnd &end);
Result<ManifestEnd> parseEnd(ByteView bytes);

/// The runs of a chunk with how they are compressed; a run is never empty.
Result<Bytes> encodeRuns(std::span<const engine::Run> runs);
Result<std::vector<engine::Run>> parseRuns(ByteView bytes);

/// Returns what makes the blob of an active piece that of an inactive one when it is appended;
/// `at`: seconds since 1970, UTC, not 0.
Result<Bytes> encodeInactiveNote(const SecretKey &manifestKey, PieceId id, std::int64_t at);
/// Returns 0 when the bytes, kInactiveNoteBytes of them, are no note. Errors: damaged when it is
/// another piece's.
Result<std::int64_t> parseInactiveNote(ByteView bytes, const SecretKey &manifestKey, PieceId id);

Result<Aead> manifestCipher(const SecretKey &manifestKey, const ManifestHeader &header);
Bytes endAssociated(ByteView headerBytes, ByteView tailBytes);

constexpr Nonce descriptionNonce()
{
    return {2, 0};
}
constexpr Nonce chunkNonce(std::uint64_t number)
{
    return {3, number};
}
constexpr Nonce endNonce()
{
    return {4, 0};
}

/// A stored piece without its runs: everything that a query tells.
struct Manifest {
    PieceInfo info;
    ManifestTail tail;
    std::uint64_t chunksOffset = 0;
    Aead cipher;
};

/// Opens and checks all but the chunks, without keeping the reader. Errors: damaged, also under
/// another key; what reading says.
Result<Manifest> readManifest(blob::BlobReader &blob, const SecretKey &manifestKey);
/// Returns what the piece is, even when the rest of its manifest is damaged. Errors: as before.
Result<PieceDescription> readDescription(blob::BlobReader &blob, const SecretKey &manifestKey);
/// Returns the identifier that the header claims, without a key: for choosing among blobs, not for
/// trusting. Errors: damaged, what reading says.
Result<PieceId> peekIdentifier(blob::BlobReader &blob);

} // namespace arca::store

#endif
