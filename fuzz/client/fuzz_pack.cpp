// Any bytes as the parts of a pack: header, trailer and what its sealed index holds. What is taken
// must be made again of what was understood.
#include "client/base/crypto/hash.h"
#include "client/engine/packs/pack_format.h"

#include <cstdlib>

using namespace arca;
using namespace arca::engine;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const ByteView input = std::as_bytes(std::span(data, size));
    if (const auto header = parsePackHeader(input.first(std::min(size, kPackHeaderBytes)))) {
        const Bytes again = encodePackHeader(*header);
        if (!std::equal(again.begin(), again.end(), input.begin()))
            std::abort();
    }
    if (size >= kPackHeaderBytes + kPackTrailerBytes) {
        // With the identity and the checksum that it must have, or none would ever get past them.
        const ByteView header = input.first(kPackHeaderBytes);
        ByteWriter trailer;
        trailer.raw(input.last(kPackTrailerBytes).first(32));
        trailer.raw(header.subspan(16, sizeof(PackId)));
        trailer.u64(0);
        trailer.u64(checksum64(trailer.view(), checksum64(header)));
        (void)parsePackTrailer(header, trailer.view(), size);
    }

    ByteReader counts(input);
    PackTrailer trailer;
    trailer.frames = counts.u32();
    trailer.blocks = counts.u32();
    trailer.indexOffset = counts.u64();
    const ByteView index =
        input.first(input.size() - counts.remaining()).first(counts.ok() ? 8 : 0);
    Bytes bytes(index.begin(), index.end());
    bytes.insert(bytes.end(), input.end() - static_cast<std::ptrdiff_t>(counts.remaining()),
                 input.end());
    if (const auto parsed = parsePackIndex(bytes, trailer)) {
        if (encodePackIndex(*parsed) != bytes)
            std::abort();
    }
    return 0;
}
