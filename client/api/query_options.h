// The record that tells which options are in force.
#ifndef KEEL_CLIENT_API_QUERY_OPTIONS_H
#define KEEL_CLIENT_API_QUERY_OPTIONS_H

#include "client/config/options.h"
#include "client/include/hoxapi.h"

namespace arca::api
{

void fillOptions(optStruct &record, const std::string &directory, const config::Options &options,
                 const std::string &node);

/// The last component of the repository's place: what people call it.
std::string repositoryName(const config::Options &options);

} // namespace arca::api

#endif
