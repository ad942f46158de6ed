// The passwords that this client made for its nodes and keeps: a file of mode 0600 beside the
// option file, named like it with ".keys" behind. A line of it is
//
//   <repository: 32 digits> <password: 64 digits> <node name to the end of the line>
//
// and lines that begin with '#' say what the file is. A node has two lines while its password is
// being changed, or when that was interrupted: one of them is right. Whoever can read the file can
// act as these nodes. Changes of the file take turns, by a lock on a file named like it with
// ".lock" behind. When the file is a symbolic link, it is replaced, and locked, where the link
// leads; the link stays.
#ifndef KEEL_CLIENT_CONFIG_NODE_KEYS_H
#define KEEL_CLIENT_CONFIG_NODE_KEYS_H

#include "client/base/result.h"
#include "client/blob/file_layer.h"

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace arca::config
{

class NodeKeys
{
public:
    explicit NodeKeys(const std::string &optionFile)
        : optionFile_(optionFile), path_(optionFile + ".keys")
    {
    }

    const std::string &path() const { return path_; }

    /// Tries what is kept of the node until `prove` takes one, and gives that one. `noPassword`
    /// when the file, or the node in it, is not there or cannot be read; else the last failure of
    /// `prove`. The caller wipes it.
    Result<std::string> find(const std::string &repositoryUuid, const std::string &node,
                             const std::function<Result<void>(const std::string &)> &prove) const;

    /// Adds or replaces, durably: the file is written anew beside the old one and takes its place.
    Result<void> keep(const std::string &repositoryUuid, const std::string &node,
                      const std::string &password) const;

    /// Registers a node with a kept password, under one lock from the first look to the end, so
    /// that of several processes that register a node at once one does, and the others find its
    /// password. What is kept of an interrupted run is used; else `make` makes a password, which is
    /// durable here before `enrol` is told it. Returns false when the node was registered before.
    /// Errors: noPassword when it was, and no password of it is kept here; exists when another
    /// host was faster: then nothing new is kept. After another failure of `enrol` the password
    /// stays, for the next run.
    struct Introduction {
        std::function<Result<bool>()> isRegistered;
        std::function<Result<void>(const std::string &)> prove;
        std::function<Result<std::string>()> make;
        std::function<Result<void>(const std::string &)> enrol; // `exists`
    };
    Result<bool> introduce(const std::string &repositoryUuid, const std::string &node,
                           const Introduction &steps) const;

    /// Drops what is kept of a node, durably; fine when that is nothing.
    Result<void> forget(const std::string &repositoryUuid, const std::string &node) const;

    /// Changes what find() gave to `fresh`. `change` is told the password that holds and makes
    /// `fresh` hold instead; before it is called both are kept, durably, and only after it
    /// succeeded the old one goes, so that whatever is interrupted leaves a password that find()
    /// proves.
    Result<void> replace(const std::string &repositoryUuid, const std::string &node,
                         const std::string &fresh,
                         const std::function<Result<void>(const std::string &)> &prove,
                         const std::function<Result<void>(const std::string &)> &change) const;

private:
    Result<std::string> read() const;
    Result<std::string> findIn(std::string_view text, const std::string &repositoryUuid,
                               const std::string &node,
                               const std::function<Result<void>(const std::string &)> &prove) const;
    Result<std::unique_ptr<blob::File>> lock() const;
    Result<std::string> place() const;
    Result<void> write(const std::string &repositoryUuid, const std::string &node,
                       std::initializer_list<std::string_view> passwords) const;
    Result<void> put(const std::string &file, const std::string &text) const;

    std::string optionFile_;
    std::string path_;
};

} // namespace arca::config

#endif
