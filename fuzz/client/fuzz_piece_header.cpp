// Any bytes as a stored piece: opened, described and read to the end. The checksums are made to fit
// first, or the fuzzer would never get past them.
#include "client/store/piece_reader.h"

#include <algorithm>
#include <cstdlib>

namespace
{

using namespace arca;

class MemoryBlob final : public blob::BlobReader
{
public:
    explicit MemoryBlob(Bytes bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t size() const override { return bytes_.size(); }
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) override
    {
        const ByteView from =
            ByteView(bytes_).subspan(std::min<std::size_t>(offset, bytes_.size()));
        const std::size_t length = std::min(from.size(), into.size());
        std::copy_n(from.begin(), length, into.begin());
        return length;
    }
    void readAhead(std::uint64_t, std::uint64_t) override {}

private:
    Bytes bytes_;
};

void put64(std::span<std::byte> at, std::uint64_t value)
{
    ByteWriter writer;
    writer.u64(value);
    std::copy(writer.view().begin(), writer.view().end(), at.begin());
}

/// Makes the checksums of header and trailer what they should be.
void repair(Bytes &bytes)
{
    constexpr std::size_t kLengthAt = 12;
    if (bytes.size() < store::kMinHeaderBytes + store::kTrailerBytes)
        return;
    const std::size_t length = ByteReader(ByteView(bytes).subspan(kLengthAt)).u32();
    if (length < store::kMinHeaderBytes || length > bytes.size() - store::kTrailerBytes)
        return;
    const std::span<std::byte> all(bytes);
    const std::uint64_t header = checksum64(all.first(length - 8));
    put64(all.subspan(length - 8, 8), header);
    const auto trailer = all.last(store::kTrailerBytes);
    put64(trailer.subspan(56, 8), header);
    put64(trailer.subspan(64, 8), checksum64(trailer.first(64)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const ByteView input = std::as_bytes(std::span(data, size)).subspan(1);
    Bytes bytes(input.begin(), input.end());
    if ((data[0] & 1) != 0)
        repair(bytes);
    auto reader = store::PieceReader::open(std::make_unique<MemoryBlob>(bytes));
    if (!reader)
        return 0;
    Bytes block(4096);
    std::uint64_t total = 0;
    while (!(*reader)->atEnd()) {
        const auto got = (*reader)->read(block);
        if (!got)
            return 0;
        total += *got;
    }
    // Nobody forges a digest of 128 bits by accident; what was delivered is at least as long as
    // told.
    if (total != (*reader)->info().totals.streamBytes || total > bytes.size())
        std::abort();
    return 0;
}
