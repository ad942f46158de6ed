// Files that root makes for another user: what a database's user could not open would lock him out.
#ifndef KEEL_CLIENT_CONFIG_ROOT_FILE_H
#define KEEL_CLIENT_CONFIG_ROOT_FILE_H

#include <initializer_list>
#include <string>

namespace arca::config
{

/// Gives `file`, which this process has just made, to the owner of the first of `models` that is
/// there, because that user's programs log on with it. Does nothing unless the process is root's;
/// no failure is told; a file that another user could have put in its place is left alone.
void giveToOwnerOf(std::initializer_list<std::string> models, const std::string &file);

} // namespace arca::config

#endif
