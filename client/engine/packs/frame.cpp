// Frames: zstd (RFC 8878), then AES-GCM.
#include "client/engine/packs/frame.h"

#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace arca::engine
{

namespace
{

template <class Context> Context *made(Context *context)
{
    if (context == nullptr)
        throw std::bad_alloc();
    return context;
}

} // namespace

/// Each made when it is first needed: together they take most of a mebibyte.
struct FrameCoder::Contexts {
    Contexts() = default;
    ~Contexts()
    {
        ZSTD_freeCCtx(in_);
        ZSTD_freeDCtx(out_);
    }
    Contexts(const Contexts &) = delete;
    Contexts &operator=(const Contexts &) = delete;

    ZSTD_CCtx *in() { return in_ != nullptr ? in_ : in_ = made(ZSTD_createCCtx()); }
    ZSTD_DCtx *out() { return out_ != nullptr ? out_ : out_ = made(ZSTD_createDCtx()); }

private:
    ZSTD_CCtx *in_ = nullptr;
    ZSTD_DCtx *out_ = nullptr;
};

FrameCoder::FrameCoder() : contexts_(std::make_unique<Contexts>()) {}
FrameCoder::~FrameCoder() = default;

/// Empty when it is not worth it.
Result<ByteView> FrameCoder::compress(const Settings &settings, ByteView raw)
{
    if (settings.compressionLevel == 0)
        return ByteView();
    compressed_.resize(ZSTD_compressBound(raw.size()));
    const std::size_t length =
        ZSTD_compressCCtx(contexts_->in(), compressed_.data(), compressed_.size(), raw.data(),
                          raw.size(), settings.compressionLevel);
    if (ZSTD_isError(length) != 0)
        return Error{ErrorKind::internal,
                     std::string("compressing failed: ") + ZSTD_getErrorName(length)};
    // What saves less than a thirty-second is cheaper to restore as it is.
    if (length + raw.size() / 32 >= raw.size())
        return ByteView();
    return ByteView(compressed_).first(length);
}

Result<void> FrameCoder::seal(const Settings &settings, const Aead &cipher, const PackId &pack,
                              std::uint32_t number, ByteView raw, SealedFrame &into)
{
    ARCA_TRY(const ByteView smaller, compress(settings, raw));
    const ByteView content = smaller.empty() ? raw : smaller;
    into.rawBytes = static_cast<std::uint32_t>(raw.size());
    into.method = smaller.empty() ? FrameMethod::plain : FrameMethod::zstd;
    into.bytes.resize(content.size() + kTagBytes);
    ARCA_CHECK(cipher.seal(frameNonce(number),
                           frameAssociated(pack, number, into.rawBytes, into.method), content,
                           into.bytes));
    if (!settings.verify)
        return {};

    expanded_.resize(raw.size());
    const FrameEntry entry{0, static_cast<std::uint32_t>(into.bytes.size()), into.rawBytes,
                           into.method, 0};
    const auto opened = open(cipher, pack, number, entry, into.bytes, expanded_);
    if (!opened || std::memcmp(raw.data(), expanded_.data(), raw.size()) != 0)
        return Error{ErrorKind::internal,
                     "what was made of the data does not give them back; the memory or the "
                     "processor of this host may be at fault"};
    return {};
}

Result<void> FrameCoder::open(const Aead &cipher, const PackId &pack, std::uint32_t number,
                              const FrameEntry &entry, ByteView sealed, std::span<std::byte> raw)
{
    const Bytes associated = frameAssociated(pack, number, entry.rawBytes, entry.method);
    if (entry.method == FrameMethod::plain)
        return cipher.open(frameNonce(number), associated, sealed, raw);
    opened_.resize(sealed.size() - std::min(sealed.size(), kTagBytes));
    ARCA_CHECK(cipher.open(frameNonce(number), associated, sealed, opened_));
    const std::size_t length = ZSTD_decompressDCtx(contexts_->out(), raw.data(), raw.size(),
                                                   opened_.data(), opened_.size());
    if (ZSTD_isError(length) != 0 || length != raw.size())
        return Error{ErrorKind::damaged, "a frame does not expand to what it was"};
    return {};
}

} // namespace arca::engine
