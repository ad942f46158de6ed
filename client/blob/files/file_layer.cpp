// What a layer does that has no quicker way.
#include "client/blob/files/file_layer.h"

namespace arca::blob
{

Result<std::vector<FileLayer::Entry>> FileLayer::entries(const std::string &path,
                                                         std::string_view begin, bool)
{
    std::vector<Entry> found;
    ARCA_CHECK(list(path, [&](const std::string &name) {
        if (name.starts_with(begin))
            found.push_back({name, {}});
        return true;
    }));
    for (Entry &entry : found) {
        ARCA_TRY(entry.state, state(path + "/" + entry.name));
    }
    return found;
}

} // namespace arca::blob
