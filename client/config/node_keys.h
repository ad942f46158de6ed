// The passwords that this client made for its nodes and keeps: a file of mode 0600 beside the
// option file, named like it with ".keys" behind. A line of it is
//
//   <repository: 32 digits> <password: 64 digits> <node name to the end of the line>
//
// and lines that begin with '#' say what the file is. Whoever can read it can act as these nodes.
#ifndef KEEL_CLIENT_CONFIG_NODE_KEYS_H
#define KEEL_CLIENT_CONFIG_NODE_KEYS_H

#include "client/base/result.h"

#include <string>
#include <string_view>

namespace arca::config
{

class NodeKeys
{
public:
    explicit NodeKeys(const std::string &optionFile) : path_(optionFile + ".keys") {}

    const std::string &path() const { return path_; }

    /// `noPassword` when the file, or the node in it, is not there or cannot be read.
    Result<std::string> find(const std::string &repositoryUuid, const std::string &node) const;

    /// Adds or replaces, durably: the file is written anew beside the old one and takes its place.
    Result<void> keep(const std::string &repositoryUuid, const std::string &node,
                      const std::string &password) const;

private:
    Result<std::string> read() const;

    std::string path_;
};

} // namespace arca::config

#endif
