// Any bytes as a small stored record, as the payload of one, as the name of a blob, as a line of
// the activity log, and as the files of verifying and of the sizes of
// packs.
#include "client/blob/temporary_name.h"
#include "client/store/log/activity_reader.h"
#include "client/store/pieces/manifest_place.h"
#include "client/store/pieces/removed_piece.h"
#include "client/store/records/record.h"
#include "client/store/records/record_seal.h"
#include "client/store/upkeep/record_kinds.h"
#include "client/store/upkeep/verify_state.h"
#include "client/store/usage/pack_sizes.h"

#include <span>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace arca;
    const ByteView bytes = std::as_bytes(std::span(data, size));
    if (const auto key = SecretKey::from(Bytes(SecretKey::kBytes, std::byte{1})))
        (void)store::RecordSeal(*key, engine::RecordForm::keyed)
            .open("objects/a/00000001", Bytes(bytes.begin(), bytes.end()));
    const std::string name(textOf(bytes));
    (void)store::parseRemovedName("0", name);
    (void)store::changeIn(name);
    (void)blob::isTemporaryName(name);
    static const auto seal = store::LogSeal::of(*SecretKey::random(), 0);
    (void)store::parseLogLine(textOf(bytes), "node", *seal);
    (void)store::encodeVerifyState(store::parseVerifyState(textOf(bytes)));
    if (size < 0x10000)
        (void)store::encodePackSizes(
            store::parsePackSizes(store::frameRecord("ARCAPSIZ", 1, bytes)));
    for (const store::RecordKind &kind : store::recordKinds()) {
        (void)kind.check(bytes);
        if (size < 0x10000)
            for (std::uint32_t version = kind.form.oldest; version <= kind.form.newest; ++version)
                (void)kind.check(store::frameRecord(kind.form.kind, version, bytes));
        // A keyed one with a digest that is too short, or that nobody compares.
        if (size < 0x10000)
            (void)store::RecordSeal().open({},
                                           store::frameRecord(kind.form.kind, 0x80000001, bytes));
    }
    return 0;
}
