// The records of the interface: see the header.
#include "client/api/session/records.h"

#include "common/cu/cutime.h"

#include <ctime>

namespace arca::api
{

hoxDate dateOf(std::int64_t seconds)
{
    std::tm local{};
    if (!cuLocalTime(static_cast<std::time_t>(seconds), &local))
        return {};
    hoxDate date{};
    date.year = static_cast<std::uint16_t>(local.tm_year + 1900);
    date.month = static_cast<std::uint8_t>(local.tm_mon + 1);
    date.day = static_cast<std::uint8_t>(local.tm_mday);
    date.hour = static_cast<std::uint8_t>(local.tm_hour);
    date.minute = static_cast<std::uint8_t>(local.tm_min);
    date.second = static_cast<std::uint8_t>(local.tm_sec);
    return date;
}

Answer<std::string> pointerText(const char *text, std::size_t limit, const char *what, int tooLong)
{
    if (text == nullptr)
        return std::string();
    const std::size_t length = strnlen(text, limit + 1);
    if (length > limit)
        return refused(tooLong, std::string(what) + " has more than " + std::to_string(limit) +
                                    " characters");
    return std::string(text, length);
}

Answer<void> expectVersion(const void *record, std::uint16_t version, std::uint16_t known,
                           const char *what)
{
    if (record == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, std::string(what) + " is null");
    if (version != known)
        return refused(HOX_RC_BAD_VERSION, std::string(what) + " has version " +
                                               std::to_string(version) + " where " +
                                               std::to_string(known) + " is known");
    return {};
}

static Answer<void> expectSlash(const std::string &text, const char *what)
{
    if (!text.starts_with('/'))
        return refused(HOX_RC_BAD_ARGUMENT, std::string(what) + " does not begin with '/'");
    return {};
}

Answer<store::ObjectName> objectNameOf(const hoxObjName *name)
{
    if (name == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the object name is null");
    store::ObjectName result;
    ARCA_TRY(result.filespace, fieldText(name->fsName, "the filespace name"));
    ARCA_TRY(result.highLevel, fieldText(name->hlName, "the high-level name"));
    ARCA_TRY(result.lowLevel, fieldText(name->llName, "the low-level name"));
    ARCA_CHECK(expectSlash(result.filespace, "the filespace name"));
    ARCA_CHECK(expectSlash(result.highLevel, "the high-level name"));
    ARCA_CHECK(expectSlash(result.lowLevel, "the low-level name"));
    if (name->objType != HOX_OBJ_FILE)
        return refused(HOX_RC_BAD_ARGUMENT, "the object type is unknown");
    result.type = name->objType;
    return result;
}

Answer<std::string> filespaceNameOf(const char *name)
{
    if (name == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the filespace name is null");
    ARCA_TRY(std::string text, pointerText(name, HOX_MAX_FS_NAME, "the filespace name"));
    ARCA_CHECK(expectSlash(text, "the filespace name"));
    return text;
}

void fill(hoxObjName &record, const store::ObjectName &name)
{
    fill(record.fsName, name.filespace);
    fill(record.hlName, name.highLevel);
    fill(record.llName, name.lowLevel);
    record.objType = static_cast<std::uint8_t>(name.type);
}

static Answer<void> expectBlock(const DataBlk *block)
{
    ARCA_CHECK(expectVersion(block, block == nullptr ? std::uint16_t{0} : block->stVersion,
                             HOX_DATABLK_VERSION, "the data block"));
    if (block->bufferPtr == nullptr && block->bufferLen != 0)
        return refused(HOX_RC_NULL_ARGUMENT, "the data block has no buffer");
    return {};
}

Answer<ByteView> bytesIn(const DataBlk *block)
{
    ARCA_CHECK(expectBlock(block));
    return viewOf(std::string_view(block->bufferPtr, block->bufferLen));
}

Answer<std::span<std::byte>> roomIn(const DataBlk *block)
{
    ARCA_CHECK(expectBlock(block));
    return std::as_writable_bytes(std::span(block->bufferPtr, block->bufferLen));
}

} // namespace arca::api
