// Any bytes as the parts of a manifest: header, tail, and what its sealed parts hold. The runs that
// are taken must survive being written again.
#include "client/base/crypto/hash.h"
#include "client/store/pieces/manifest_format.h"

#include <algorithm>
#include <cstdlib>

using namespace arca;
using namespace arca::store;

namespace
{

/// With the identity and the checksum that it must have, or none would ever get past them.
void tryTail(ByteView header, ByteView any, std::size_t blobBytes)
{
    ByteWriter tail;
    tail.raw(any.first(24));
    tail.raw(header.subspan(16, 8));
    tail.u64(0);
    tail.u64(checksum64(tail.view(), checksum64(header)));
    (void)parseManifestTail(header, tail.view(), blobBytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const ByteView input = std::as_bytes(std::span(data, size)).subspan(1);
    switch (data[0] % 4) {
    case 0:
        (void)parseManifestHeader(input.first(std::min(input.size(), kManifestHeaderBytes)));
        if (input.size() >= kManifestHeaderBytes + kManifestTailBytes)
            tryTail(input.first(kManifestHeaderBytes), input.last(kManifestTailBytes),
                    input.size());
        break;
    case 1:
        if (const auto description = parseDescription(input)) {
            const Bytes again = encodeDescription(*description);
            if (!std::equal(again.begin(), again.end(), input.begin(), input.end()))
                std::abort();
        }
        break;
    case 2:
        (void)parseEnd(input);
        break;
    default:
        if (const auto runs = parseRuns(input)) {
            const auto again = encodeRuns(*runs);
            const auto reread =
                again ? parseRuns(*again) : Result<std::vector<engine::Run>>(again.error());
            if (!reread || *reread != *runs)
                std::abort();
        }
    }
    return 0;
}
