// Names of pieces: see the header.
#include "tools/arca/piece_name.h"

#include "client/base/text.h"
#include "tools/arca/command.h"

#include <cstring>

namespace arca::tool
{

namespace
{

template <std::size_t N> void fill(char (&field)[N], const std::string &text)
{
    if (text.size() >= N || text.find('\0') != std::string::npos)
        throw UsageError("a name is longer than an object's may be");
    std::memcpy(field, text.c_str(), text.size() + 1);
}

} // namespace

TypedName typedName(const std::string &text)
{
    const auto apart = text.find("//");
    if (apart == 0)
        throw UsageError(printable(text) + " names no filespace before its //");
    if (!text.starts_with('/') || apart == text.npos)
        return TypedName{{}, text};
    if (apart + 2 == text.size())
        throw UsageError(printable(text) + " names no piece after its //");
    return TypedName{text.substr(0, apart), text.substr(apart + 2)};
}

hoxObjName objectName(std::string_view filespace, std::string_view piece)
{
    hoxObjName name{};
    name.objType = HOX_OBJ_FILE;
    const bool slash = filespace.starts_with('/');
    fill(name.fsName, (slash ? "" : "/") + std::string(filespace));
    fill(name.hlName, "/");
    fill(name.llName, "/" + std::string(piece));
    return name;
}

std::string pieceOf(const hoxObjName &name)
{
    const std::string_view high(name.hlName);
    std::string_view low(name.llName);
    if (high != "/")
        return std::string(high) + std::string(low);
    low.remove_prefix(low.starts_with('/') ? 1 : 0);
    return std::string(low);
}

std::string pieceText(const hoxObjName &name)
{
    return std::string(name.fsName) + name.hlName + name.llName;
}

} // namespace arca::tool
