// Objects in words: see the header.
#include "tools/arca/object_text.h"

#include "client/base/text.h"
#include "tools/arca/piece_name.h"
#include "tools/common/text.h"

#include <cstring>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

Json timeOrNull(std::int64_t time)
{
    return time == 0 ? Json(nullptr) : Json(tools::utcTimeText(time));
}

const char *cipherText(std::uint8_t type)
{
    return (type & HOX_ENCRYPT_AES_256BIT) != 0   ? "AES256"
           : (type & HOX_ENCRYPT_AES_128BIT) != 0 ? "AES128"
                                                  : "no";
}

} // namespace

void describe(Json &row, const dhoxBackupObject_t &object)
{
    row["piece"] = pieceOf(object.objName);
    row["filespace"] = object.objName.fsName;
    row["id"] = idText(object.objId);
    row["active"] = object.objState == HOX_STATE_ACTIVE;
    row["size"] = object.size;
    row["storedSize"] = object.storedSize;
    row["stored"] = timeOrNull(object.insTime);
    row["inactiveSince"] = timeOrNull(object.inactTime);
    row["class"] = object.mcName;
    row["owner"] = object.owner;
    row["info"] = object.objInfo;
    row["compressed"] = object.objCompressed != 0;
    row["deduplicated"] = object.objDeduplicated != 0;
    row["encryption"] = cipherText(object.encryptionType);
}

std::string idText(std::uint64_t id)
{
    return toHex(id);
}

std::uint64_t idFrom(const std::string &text)
{
    if (text.empty() || text.size() > 16 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw UsageError("an identifier has up to 16 hexadecimal digits, as arca ls --long shows "
                         "it, not '" +
                         printable(text, 40) + "'");
    return std::stoull(text, nullptr, 16);
}

std::string sizeText(std::uint64_t bytes)
{
    return tools::byteText(static_cast<double>(bytes));
}

} // namespace arca::tool
