// Management classes: the rules for the objects that are bound to them. They belong to the whole
// repository. Each call returns the storage client's code, 0 for success. The sessions are idle;
// changes are durable on return, and a call that fails has changed nothing unless it says so.
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
    bool isDeleted = false; // no object can be bound to it; those that are stay bound
};

/// Reads the classes, the default one first; deleted ones only with alsoDeleted. After anything but
/// 0 `classes` may hold some of them. HOX_RC_REPOSITORY_DAMAGED when classes cannot be read: then
/// it holds all others, and does not begin with the default one when that is damaged.
int mtClasses(const mtSession &session, bool alsoDeleted, std::vector<mtClass_t> &classes);

/// The fields to set; one without a value is left as it is.
struct mtClassChange_t {
    std::optional<std::string> description, stgPool;
    std::optional<std::uint16_t> versionsKept, daysKept;
};

/// Defines a class, also under the name of a deleted one; names are in any case. Fields without a
/// value get the storage pool of the default class, 1 version, no limit of days. Errors:
/// HOX_RC_OBJECT_EXISTS; HOX_RC_BAD_ARGUMENT for an invalid name and for a text that is too long;
/// HOX_RC_REPOSITORY_DAMAGED when the storage pool is not given and cannot be read.
int mtClassDefine(const mtSession &session, const std::string &name, const mtClassChange_t &change);
/// Changes a class; what others change in it at the same time is kept. Errors: HOX_RC_MC_UNKNOWN;
/// HOX_RC_BAD_ARGUMENT also when no field has a value.
int mtClassChange(const mtSession &session, const std::string &name, const mtClassChange_t &change);
/// Marks a class as deleted. Errors: HOX_RC_MC_UNKNOWN; HOX_RC_BAD_ARGUMENT for the default class.
int mtClassDelete(const mtSession &session, const std::string &name);

/// Binds every active object that the filter names to a class, one after the other. Objects that
/// are bound to it already are passed over without a report, so that an interrupted call can be
/// repeated. `finding` answers the query while `changing` binds; they are two sessions of one node.
/// The report receives each object with 0, or with HOX_RC_OBJECT_UNKNOWN when it was removed, or
/// another one took its name, meanwhile. A dry run reports and binds nothing. After any error the
/// objects that were reported with 0 stay bound. Errors: HOX_RC_MC_UNKNOWN (nothing was done),
/// HOX_RC_ABORTED when the report or the progress said stop, HOX_RC_REPOSITORY_DAMAGED when objects
/// cannot be read: they are not reported, and all others were treated; or when the class may be
/// among those that cannot be read: then nothing was done.
int mtBindObjects(const mtSession &finding, const mtSession &changing, const mtFilter_t &filter,
                  const std::string &className, bool dryRun, const mtRemovalReport_t &report);

#endif
