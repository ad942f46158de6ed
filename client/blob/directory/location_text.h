// The text that names a repository's place. It stands apart, and needs nothing else, as keel reads
// option files of the storage client without its code.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_LOCATION_TEXT_H
#define KEEL_CLIENT_BLOB_DIRECTORY_LOCATION_TEXT_H

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace arca::blob
{

constexpr std::string_view kDirectoryScheme = "file://";

/// Returns the directory that "file:///srv/arca%201" names, without slashes at its end. Nothing
/// when that is no absolute path behind file://, or a '%' in it is followed by no two hexadecimal
/// digits, or by 00.
inline std::optional<std::string> directoryNamed(std::string_view text)
{
    if (!text.starts_with(kDirectoryScheme))
        return std::nullopt;
    text.remove_prefix(kDirectoryScheme.size());
    if (!text.starts_with('/'))
        return std::nullopt;
    std::string path;
    for (; !text.empty(); text.remove_prefix(1)) {
        if (text.front() != '%') {
            path += text.front();
            continue;
        }
        const std::string_view digits = text.substr(1, 2);
        unsigned octet = 0;
        const char *const end = digits.data() + digits.size();
        const auto read = std::from_chars(digits.data(), end, octet, 16);
        if (digits.size() != 2 || read.ec != std::errc() || read.ptr != end || octet == 0)
            return std::nullopt;
        path += static_cast<char>(octet);
        text.remove_prefix(digits.size());
    }
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

} // namespace arca::blob

#endif
