// Trying keys on filespaces and manifests: see the header.
#include "client/store/nodes/recovery_check.h"

#include "client/blob/blob_store.h"
#include "client/store/pieces/manifest_format.h"
#include "client/store/records/record.h"
#include "client/store/records/record_forms.h"
#include "client/store/records/record_seal.h"

#include <optional>
#include <vector>

namespace arca::store
{

namespace
{

constexpr std::size_t kTried = 16;  // of each kind
constexpr std::size_t kExcused = 3; // manifests, as damage may be what is wrong with them

Result<std::vector<std::string>> firstUnder(blob::BlobStore &store, const std::string &prefix)
{
    std::vector<std::string> names;
    ARCA_CHECK(store.list(prefix, [&](const std::string &name) {
        names.push_back(name);
        return names.size() < kTried;
    }));
    return names;
}

/// What a look at one blob says; nothing when it proves neither.
using Look = std::optional<bool>;

Look lookAtFilespace(blob::BlobStore &store, const std::string &name, const RecordSeal &seal)
{
    auto bytes = blob::readWhole(store, name, kMaxRecordBytes);
    // One that a fault damaged says nothing.
    if (!bytes || !unframeRecord(*bytes, form::filespace.kind, UINT32_MAX))
        return {};
    const auto opened = seal.open(name, std::move(bytes).value());
    if (!opened)
        return false;
    return opened->proven ? Look(true) : Look();
}

Look lookAtManifest(blob::BlobStore &store, const std::string &name, const SecretKey &key)
{
    const auto blob = store.open(name);
    return blob ? Look(static_cast<bool>(readManifest(**blob, key))) : Look();
}

/// Returns false when no blob is the work of the keys, and more than `excused` are the work of
/// others or damaged.
template <class LookAt>
Result<bool> fits(blob::BlobStore &store, const std::string &prefix, std::size_t excused,
                  LookAt lookAt)
{
    ARCA_TRY(const auto names, firstUnder(store, prefix));
    std::size_t refused = 0;
    for (const std::string &name : names) {
        const Look look = lookAt(name);
        if (look && *look)
            return true;
        refused += look ? 1 : 0;
    }
    return refused <= excused;
}

} // namespace

Result<bool> opensWhatIsStored(blob::BlobStore &store, const std::string &node,
                               const NodeKeys &keys)
{
    ARCA_TRY(const std::string key, spaceKeyOf(node, keys.incarnation));
    ARCA_TRY(const SecretKey records, deriveKey(keys.data, "records"));
    ARCA_TRY(const SecretKey manifests, deriveKey(keys.data, "manifests"));
    const RecordSeal seal = RecordSeal(records, engine::RecordForm::keyed).lenient();
    ARCA_TRY(const bool filespaces,
             fits(store, "filespaces/" + key + "/", 0,
                  [&](const auto &name) { return lookAtFilespace(store, name, seal); }));
    if (!filespaces)
        return false;
    return fits(store, "pieces/" + key + "/", kExcused,
                [&](const auto &name) { return lookAtManifest(store, name, manifests); });
}

} // namespace arca::store
