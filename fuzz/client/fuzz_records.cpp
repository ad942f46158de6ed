// Any bytes as a small stored record, as the payload of one, as a line of the activity log, and as
// the file of verifying.
#include "client/store/access.h"
#include "client/store/activity_reader.h"
#include "client/store/change_plan.h"
#include "client/store/filespace.h"
#include "client/store/group.h"
#include "client/store/policy.h"
#include "client/store/verify_state.h"

#include <span>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace arca;
    const ByteView bytes = std::as_bytes(std::span(data, size));
    (void)store::decodeFilespace(bytes);
    (void)store::decodeAccessRule(bytes);
    (void)store::decodeManagementClass(bytes);
    (void)store::decodeObjectRecord(bytes);
    (void)store::decodeGroup(bytes);
    (void)store::decodeChangePlan(bytes);
    (void)store::parseLogLine(textOf(bytes));
    (void)store::encodeVerifyState(store::parseVerifyState(textOf(bytes)));
    if (size < 0x10000) {
        (void)store::decodeFilespace(store::frameRecord("ARCAFSPC", 2, bytes));
        (void)store::decodeAccessRule(store::frameRecord("ARCAACCS", 2, bytes));
        (void)store::decodeManagementClass(store::frameRecord("ARCACLAS", 1, bytes));
        (void)store::decodeObjectRecord(store::frameRecord("ARCAOBJE", 1, bytes));
        (void)store::decodeGroup(store::frameRecord("ARCAGRUP", 1, bytes));
        (void)store::decodeChangePlan(store::frameRecord("ARCAPLAN", 1, bytes));
    }
    return 0;
}
