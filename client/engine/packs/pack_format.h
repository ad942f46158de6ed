// The bytes of a pack: a blob of new blocks, gathered into frames, and the index that says where
// each is. All numbers little-endian.
//
//   header    offset  size
//                  0     8  "ARCAPACK"
//                  8     4  version, 1; any other is damage, as repository.cpp explains
//                 12     4  cipher: 0 none (authenticated only), 1 AES-128-GCM, 2 AES-256-GCM
//                 16    16  identifier of the pack: 12 random bytes of the stream that wrote it,
//                           then the number of the pack in that stream (from 0)
//                 32    32  salt, random
//
//   frames    one after the other; a frame is some blocks, compressed together, sealed: as many
//             bytes as its content and a tag of 16
//
//   index     sealed:
//                  0     4  frames f      4  4  blocks b
//                  8  24*f  a frame: offset in the pack (8), length with its tag (4), length of its
//                           blocks together (4), method (4: 0 as it is, 1 zstd), blocks (4)
//                  -  20*b  a block: identity (16; all zeros: duplicates were not looked for),
//                           length (4; bit 31: dropped, not stored any more)
//
//   trailer        0     8  "ARCAPEND"
//   (64 bytes,     8     8  offset of the index
//   ends the      16     4  length of the index with its tag
//   pack)         20     4  frames       24  4  blocks       28  4  0
//                 32    16  identifier of the pack
//                 48     8  0
//                 56     8  XXH3-64 of header and trailer before
//
// The key of a pack is HMAC-SHA-256(pack key of the node, identifier | salt): no other
// blob has it, so the number of a part is nonce enough. Nonces: kind 0 and the frame's number, kind
// 1 and 0 for the index. Associated data: of a frame identifier, its number (4), length of its
// blocks (4), method (4); of the index header and trailer without its checksum.
//
// A pack is never changed. Rewritten without the blocks that no piece needs, it is another blob of
// the next revision (NAME.2, NAME.3 ...): identifier and numbers of the blocks stay, so whatever
// refers to a block finds it there.
#ifndef KEEL_CLIENT_ENGINE_PACKS_PACK_FORMAT_H
#define KEEL_CLIENT_ENGINE_PACKS_PACK_FORMAT_H

#include "client/base/crypto/aead.h"
#include "client/base/crypto/block_hash.h"

#include <string>
#include <vector>

namespace arca::engine
{

using PackId = std::array<std::byte, 16>;

constexpr std::size_t kPackHeaderBytes = 64;
constexpr std::size_t kPackTrailerBytes = 64;
constexpr std::size_t kPackSaltBytes = 32;
constexpr std::size_t kFrameBytes = std::size_t{256} << 10; // of blocks in a full frame
constexpr std::size_t kMaxFrameBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxPackIndexBytes = std::size_t{64} << 20;

struct PackHeader {
    Cipher cipher = Cipher::aes256;
    PackId id{};
    std::array<std::byte, kPackSaltBytes> salt{};
};

enum class FrameMethod : std::uint32_t { plain = 0, zstd = 1 };

struct FrameEntry {
    std::uint64_t offset = 0;
    std::uint32_t storedBytes = 0; // with the tag
    std::uint32_t rawBytes = 0;
    FrameMethod method = FrameMethod::plain;
    std::uint32_t blocks = 0;
};

struct BlockEntry {
    BlockId id{};
    std::uint32_t length = 0;
    bool dropped = false;
};

struct PackIndex {
    std::vector<FrameEntry> frames;
    std::vector<BlockEntry> blocks; // in the order of the frames
};

struct PackTrailer {
    std::uint64_t indexOffset = 0;
    std::uint32_t indexBytes = 0; // with the tag
    std::uint32_t frames = 0;
    std::uint32_t blocks = 0;
};

/// Returns the identifier of the pack that the same stream wrote next, if it did.
PackId successorOf(const PackId &id);

Bytes encodePackHeader(const PackHeader &header);
/// From exactly kPackHeaderBytes. Errors: damaged.
Result<PackHeader> parsePackHeader(ByteView bytes);

/// With its checksum, which covers `header`, too.
Bytes encodePackTrailer(const PackHeader &header, const PackTrailer &trailer);
/// `headerBytes` are those of a header that was parsed; `packBytes`: of the whole pack. Errors:
/// damaged.
Result<PackTrailer> parsePackTrailer(ByteView headerBytes, ByteView trailerBytes,
                                     std::uint64_t packBytes);

Bytes encodePackIndex(const PackIndex &index);
/// Everything in it is checked against everything else: the frames fill the pack from the header to
/// the index and hold all blocks. Errors: damaged.
Result<PackIndex> parsePackIndex(ByteView bytes, const PackTrailer &trailer);

/// Returns the cipher of one pack. Errors: internal.
Result<Aead> packCipher(ByteView packKey, const PackHeader &header);

Bytes frameAssociated(const PackId &id, std::uint32_t number, std::uint32_t rawBytes,
                      FrameMethod method);
Bytes indexAssociated(ByteView headerBytes, ByteView trailerBytes);

constexpr Nonce frameNonce(std::uint32_t number)
{
    return {0, number};
}
constexpr Nonce indexNonce()
{
    return {1, 0};
}

} // namespace arca::engine

#endif
