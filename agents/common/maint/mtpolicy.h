// Management classes: what becomes of the objects that are bound to them. They belong to the whole
// repository. The session is idle; changes are durable on return.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTPOLICY_H
#define KEEL_AGENTS_COMMON_MAINT_MTPOLICY_H

#include <optional>
#include <vector>

#include "agents/common/maint/mtremove.h"

constexpr std::uint16_t mtNoLimit = 65535; // of versions, of days

struct mtClass_t {
    std::string name; // upper case
    std::string description;
    std::string stgPool;
    std::uint16_t versionsKept = 1;
    std::uint16_t daysKept = mtNoLimit;
    bool isDefault = false;
    bool isDeleted = false; // nothing new is bound to it, what was keeps it
};

/// The default one first, then the others; those that were deleted only when they are wanted.
int mtClasses(const mtSession &session, bool alsoDeleted, std::vector<mtClass_t> &classes);

/// Only what has a value is taken over.
struct mtClassChange_t {
    std::optional<std::string> description, stgPool;
    std::optional<std::uint16_t> versionsKept, daysKept;
};

/// What is left out is the storage pool of the default class, one version, for ever.
/// HOX_RC_OBJECT_EXISTS; HOX_RC_BAD_ARGUMENT for what is no name or too long.
int mtClassDefine(const mtSession &session, const std::string &name, const mtClassChange_t &change);
/// HOX_RC_MC_UNKNOWN, HOX_RC_BAD_ARGUMENT.
int mtClassChange(const mtSession &session, const std::string &name, const mtClassChange_t &change);
/// HOX_RC_MC_UNKNOWN; HOX_RC_BAD_ARGUMENT for the default class.
int mtClassDelete(const mtSession &session, const std::string &name);

/// Binds every active object that the filter names to a class, one after the other; those that are
/// bound to it already are passed over, so that whoever was interrupted begins again. `finding`
/// answers the query while `changing` binds; they are two sessions of one node. The report tells of
/// each what became of it: 0, or HOX_RC_OBJECT_UNKNOWN when it went, or another one took its name,
/// meanwhile. A dry run only reports. HOX_RC_MC_UNKNOWN; HOX_RC_ABORTED when the report said stop;
/// HOX_RC_REPOSITORY_DAMAGED when objects cannot be read: then all others were treated.
int mtBindObjects(const mtSession &finding, const mtSession &changing, const mtFilter_t &filter,
                  const std::string &className, bool dryRun, const mtRemovalReport_t &report);

#endif
