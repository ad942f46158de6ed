// The record of options: see the header.
#include "client/api/session/query_options.h"

#include "client/api/session/records.h"
#include "client/blob/directory/location.h"

namespace arca::api
{

std::string repositoryName(const config::Options &options)
{
    const auto place = blob::Location::parse(options.repository);
    if (!place)
        return {};
    return place->directory.substr(place->directory.rfind('/') + 1);
}

void fillOptions(optStruct &record, const std::string &directory, const config::Options &options,
                 const std::string &node)
{
    constexpr std::int16_t kDirectoryOfThisHost = 1;
    record = optStruct{};
    fill(record.hoxiDir, directory);
    fill(record.hoxiConfig, options.file);
    fill(record.serverName, repositoryName(options));
    record.commMethod = kDirectoryOfThisHost;
    fill(record.serverAddress, options.repository);
    fill(record.nodeName, node);
    record.passwordAccess = options.passwordAccess == config::PasswordAccess::prompt
                                ? HOX_PASSWORDACCESS_PROMPT
                                : HOX_PASSWORDACCESS_GENERATE;
}

} // namespace arca::api
