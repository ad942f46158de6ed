// The record of the options in force. Pure functions of their arguments.
#ifndef KEEL_CLIENT_API_SESSION_QUERY_OPTIONS_H
#define KEEL_CLIENT_API_SESSION_QUERY_OPTIONS_H

#include "client/config/options.h"
#include "client/include/hoxapi.h"

namespace arca::api
{

/// Fills in the whole record; a text that does not fit its field is cut.
void fillOptions(optStruct &record, const std::string &directory, const config::Options &options,
                 const std::string &node);

/// Returns the last component of the repository's directory, which people call it by; empty when
/// the address is malformed.
std::string repositoryName(const config::Options &options);

} // namespace arca::api

#endif
