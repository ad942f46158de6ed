// Exported keys: see the header for their form.
#include "client/store/keys/exported_key.h"

#include "client/base/crypto/aead.h"
#include "client/base/text.h"
#include "client/store/records/record.h"

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = "ARCAKEYX";
constexpr std::string_view kTitle = "ARCA key of a node, sealed; arca key import takes it";
constexpr std::size_t kDigitsInLine = 64;
constexpr PasswordCost kCost{std::uint64_t{1} << 16, 8, 1};
constexpr Nonce kNonce{1, 0};

void writeHead(ByteWriter &writer, const SealedExport &sealed)
{
    writer.u64(sealed.cost.n);
    writer.u32(sealed.cost.r);
    writer.u32(sealed.cost.p);
    writer.raw(sealed.salt);
}

} // namespace

Result<SealedExport> sealExport(const ExportedKey &key, std::string_view passphrase)
{
    SealedExport made{kCost, {}, {}};
    ARCA_CHECK(fillRandom(made.salt));
    ARCA_TRY(const PasswordKeys keys, derivePasswordKeys(passphrase, made.salt, made.cost));
    ByteWriter head, plain;
    writeHead(head, made);
    for (const std::string *text : {&key.repository, &key.node, &key.password})
        plain.text(*text);
    Bytes secret = plain.take();
    made.sealed.resize(secret.size() + kTagBytes);
    const auto done =
        Aead(Cipher::aes256, keys.wrapping.view()).seal(kNonce, head.view(), secret, made.sealed);
    wipe(secret);
    ARCA_CHECK(done);
    return made;
}

Result<ExportedKey> openExport(const SealedExport &sealed, std::string_view passphrase)
{
    ARCA_TRY(const PasswordKeys keys, derivePasswordKeys(passphrase, sealed.salt, sealed.cost));
    ByteWriter head;
    writeHead(head, sealed);
    if (sealed.sealed.size() < kTagBytes)
        return Error{ErrorKind::badArgument, "the exported key is cut short"};
    Bytes plain(sealed.sealed.size() - kTagBytes);
    if (!Aead(Cipher::aes256, keys.wrapping.view()).open(kNonce, head.view(), sealed.sealed, plain))
        return Error{ErrorKind::authentication,
                     "the passphrase is not that of the exported key, or the key was changed"};
    ByteReader reader(plain);
    ExportedKey key;
    for (std::string *text : {&key.repository, &key.node, &key.password})
        *text = reader.text();
    wipe(plain);
    if (!reader.ok())
        return Error{ErrorKind::damaged, "the exported key is damaged"};
    return key;
}

std::string writtenExport(const SealedExport &sealed)
{
    ByteWriter payload;
    writeHead(payload, sealed);
    payload.raw(sealed.sealed);
    const std::string digits = toHex(frameRecord(kKind, 1, payload.view()));
    std::string text = std::string(kTitle) + "\n";
    for (std::size_t at = 0; at < digits.size(); at += kDigitsInLine)
        text += digits.substr(at, kDigitsInLine) + "\n";
    return text;
}

Result<SealedExport> readExport(std::string_view text)
{
    const Error none{ErrorKind::badArgument, "this is no key that arca key export wrote"};
    const auto first = text.find(kTitle);
    if (first == std::string_view::npos || text.size() > kMaxRecordBytes)
        return none;
    std::string digits;
    for (const char c : text.substr(first + kTitle.size()))
        if (std::string_view(" \t\r\n").find(c) == std::string_view::npos)
            digits += c;
    const auto bytes = fromHex(digits);
    if (!bytes)
        return none;
    const auto payload = unframeRecord(*bytes, kKind, 1);
    if (!payload)
        return payload.error().kind == ErrorKind::newerFormat ? payload.error() : none;
    ByteReader reader(*payload);
    SealedExport sealed;
    sealed.cost.n = reader.u64();
    sealed.cost.r = reader.u32();
    sealed.cost.p = reader.u32();
    reader.copyInto(sealed.salt);
    const ByteView rest = reader.raw(reader.remaining());
    sealed.sealed.assign(rest.begin(), rest.end());
    if (!reader.ok())
        return none;
    return sealed;
}

} // namespace arca::store
