// Any bytes as what lies behind a seal: a row of the object catalogue, an exported key, the note of
// an inactive piece. They are sealed here with the key that opens them, or no input would ever
// reach what reads them.
#include "client/store/keys/exported_key.h"
#include "client/store/listing/catalogue_file.h"
#include "client/store/pieces/manifest_format.h"

#include <algorithm>
#include <cstdlib>

namespace
{

using namespace arca;

void expect(bool holds)
{
    if (!holds)
        std::abort();
}

const SecretKey &key()
{
    static const auto zeros = SecretKey::from(Bytes(SecretKey::kBytes));
    return *zeros;
}

/// A row whose columns are all 0, which is what it is bound to.
void tryRow(ByteView plain)
{
    static const store::CatalogueFile file("", key());
    constexpr std::size_t kNonceBytes = 12, kColumnBytes = 4 * 8 + 2 + sizeof(store::NameHash);
    store::CatalogueRow row;
    row.sealed.resize(kNonceBytes + plain.size() + kTagBytes);
    expect(static_cast<bool>(Aead(Cipher::aes256, key().view())
                                 .seal({}, Bytes(kColumnBytes), plain,
                                       std::span<std::byte>(row.sealed).subspan(kNonceBytes))));
    const auto piece = file.openRow(row);
    expect(piece || piece.error().text.find("row of the object catalogue") != std::string::npos);
    if (!piece)
        return;
    store::CatalogueRow again;
    expect(static_cast<bool>(file.seal(again, *piece)));
    const auto reread = file.openRow(again);
    expect(reread && reread->description == piece->description);
}

void tryExport(ByteView plain)
{
    store::SealedExport sealed{{2, 1, 1}, {}, Bytes(plain.size() + kTagBytes)};
    static const auto keys = derivePasswordKeys("phrase", sealed.salt, sealed.cost);
    ByteWriter head;
    head.u64(sealed.cost.n);
    head.u32(sealed.cost.r);
    head.u32(sealed.cost.p);
    head.raw(sealed.salt);
    expect(static_cast<bool>(Aead(Cipher::aes256, keys->wrapping.view())
                                 .seal({1, 0}, head.view(), plain, sealed.sealed)));
    const auto opened = store::openExport(sealed, "phrase");
    expect(opened || opened.error().kind == ErrorKind::damaged);
}

/// The time in a note is believed when its mark is right, and only then.
void tryNote(ByteView bytes)
{
    Bytes note(bytes.begin(), bytes.end());
    note.resize(store::kInactiveNoteBytes);
    (void)store::parseInactiveNote(note, key(), 1);
    const auto at = static_cast<std::int64_t>(ByteReader(ByteView(note).subspan(8)).u64());
    const auto marked = store::encodeInactiveNote(key(), 1, at);
    const auto read = store::parseInactiveNote(*marked, key(), 1);
    expect(at == 0 ? !read : read && *read == at);
    expect(!store::parseInactiveNote(*marked, key(), 2));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const ByteView bytes = std::as_bytes(std::span(data, size));
    tryRow(bytes);
    tryExport(bytes);
    tryNote(bytes);
    return 0;
}
