// Any bytes as the record of a node, of the recovery key, of a rule or of a grant, and as a
// recovery key that somebody typed or a key that was exported. What is taken is written back as it
// was, and no key that nobody shares opens anything.
#include "client/base/text.h"
#include "client/store/keys/exported_key.h"
#include "client/store/keys/node_record.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/access.h"
#include "client/store/records/record.h"

#include <cstdlib>
#include <string>

namespace
{

using namespace arca;

void expect(bool holds)
{
    if (!holds)
        std::abort();
}

template <class Decoded, class Encode>
void expectSame(const Decoded &decoded, Encode encode, ByteView record)
{
    if (decoded)
        expect(textOf(encode(*decoded)) == textOf(record));
}

void tryRecord(ByteView record)
{
    const auto node = store::decodeNodeRecord(record);
    expectSame(node, store::encodeNodeRecord, record);
    const auto grant = store::decodeGrant(record);
    expectSame(grant, store::encodeGrant, record);
    expectSame(store::decodeAccessRule(record), store::encodeAccessRule, record);
    (void)store::decodeRecoveryHalf(record);
    if (!node && !grant)
        return;
    const auto key = SecretKey::random();
    expect(static_cast<bool>(key));
    if (node)
        expect(!store::recoverNodeRecord(*node, node->node, *key));
    if (grant)
        expect(!grant->open(*key));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0 || size >= 0x8000)
        return 0;
    const ByteView bytes = std::as_bytes(std::span(data, size)).subspan(1);
    tryRecord(bytes);
    // Framed, or the fuzzer would never find a checksum that fits.
    constexpr std::pair<std::string_view, std::uint32_t> kKinds[] = {
        {"ARCANODE", 2}, {"ARCANODE", 3}, {"ARCANODE", 4}, {"ARCAGRNT", 1},
        {"ARCAACCS", 2}, {"ARCARCVR", 1}, {"ARCAKEYX", 1}};
    const auto &[kind, version] = kKinds[data[0] % std::size(kKinds)];
    const Bytes framed = store::frameRecord(kind, version, bytes);
    tryRecord(framed);

    (void)store::readExport(textOf(bytes));
    const auto exported =
        store::readExport("ARCA key of a node, sealed; arca key import takes it\n" + toHex(framed));
    if (exported)
        expect(static_cast<bool>(store::readExport(store::writtenExport(*exported))));

    const auto typed = store::typedRecoveryKey(textOf(bytes));
    if (typed) {
        const auto written = store::writtenRecoveryKey(*typed);
        expect(written && store::typedRecoveryKey(*written));
    }
    return 0;
}
