// Keeps in the library what none of the exported calls reaches: the maintenance utilities, and the
// routines that other parts of the product and its tools expect beside them. The linker drops code
// that nothing refers to; this table refers to it.
#include "agents/common/dhoxapi.h"
#include "agents/common/maint/mtaccess.h"
#include "agents/common/maint/mtexpire.h"
#include "agents/common/maint/mtgroup.h"
#include "agents/common/maint/mtlog.h"
#include "agents/common/maint/mtoperations.h"
#include "agents/common/maint/mtpolicy.h"
#include "agents/common/maint/mtprompt.h"
#include "agents/common/maint/mtwrap.h"
#include "agents/common/unx/sun/dhoxapidl.h"
#include "agents/oracle/unx/psnode.h"
#include "common/nls/nls.h"

namespace
{

template <class Function> void *addressOf(Function *function)
{
    return reinterpret_cast<void *>(function);
}

// "used" keeps the compiler from dropping the table, "retain" the linker.
__attribute__((used, retain)) void *const retained[] = {
    addressOf(mtSetUp),
    addressOf(mtCleanUp),
    addressOf(mtText),
    addressOf(mtQueryObjects),
    addressOf(mtQueryGroup),
    addressOf(mtRemoveObjects),
    addressOf(mtExpire),
    addressOf(mtClasses),
    addressOf(mtClassDefine),
    addressOf(mtClassChange),
    addressOf(mtClassDelete),
    addressOf(mtBindObjects),
    addressOf(mtGroupMake),
    addressOf(mtGroupAdd),
    addressOf(mtGroupTakeOut),
    addressOf(mtGroupDelete),
    addressOf(mtAccessRules),
    addressOf(mtAccessGrant),
    addressOf(mtAccessRevoke),
    addressOf(mtLogAppend),
    addressOf(mtLogQuery),
    addressOf(mtLogPrune),
    addressOf(mtOperationNames),
    addressOf(mtAsk),
    addressOf(mtAskYesNo),
    addressOf(mtAskText),
    addressOf(mtMeasure),
    addressOf(mtMeasured),
    addressOf(mtCategoryName),
    addressOf(mtWrapAppend),
    addressOf(FunctionNotLoaded),
    addressOf(LumoFunctionNotLoaded),
    addressOf(DIfcTimeUtil::getTimeStamp),
    addressOf(static_cast<void (*)(DBaseApiStatus *, const char *)>(DBaseApi::EndApiCall)),
    addressOf(psveloGetOwnerName),
    addressOf(nlprintf),
    addressOf(nlfprintf),
};

// A pointer to a member cannot be cast to an address for the table above.
__attribute__((used, retain)) const auto retainedTexts = &DHoxApi::LogApiError;
__attribute__((used, retain)) const auto retainedCheck = &DHoxApi::checkCompatibility;

} // namespace
