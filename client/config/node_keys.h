// The passwords that this client made for its nodes and keeps: a file of mode 0600 beside the
// option file, with the option file's name and ".keys". A line of it is
//
//   <repository: 32 digits> <password: 64 digits> <node name to the end of the line>
//
// and lines that begin with '#' say what the file is. A reader of the file can act as these nodes.
// What must stay true:
//
//   1. A node has two lines while its password is being changed, or when that was interrupted: one
//      of them is right. introduce(), replace() and recover() keep a password durably before it
//      holds, and the one that held until after that.
//   2. Each change writes a new file beside the old one, syncs it and renames it: a reader, and a
//      loss of power, find the old file or the new one.
//   3. Changes exclude each other, between processes and threads, by a lock on <file>.lock, which
//      says who holds it. Every call but find() takes it itself, waits for it as for a lock of the
//      repository (client/blob/directory/lock_wait.h; conflict, or stopped by a signal), and calls
//      the functions that it was given under it.
//   4. When the file is a symbolic link, the file that it leads to is replaced and locked; the link
//      stays.
//   5. What root makes is given to the owner of the file that it replaces, or of the option file.
//
// Any thread may call these. The caller wipes every password that it gives and gets.
#ifndef KEEL_CLIENT_CONFIG_NODE_KEYS_H
#define KEEL_CLIENT_CONFIG_NODE_KEYS_H

#include "client/base/result.h"
#include "client/blob/directory/directory_store.h"

#include <chrono>
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
    /// `patience`: how long the lock is waited for.
    explicit NodeKeys(const std::string &optionFile,
                      std::chrono::milliseconds patience = blob::DirectoryStore::kPatience)
        : optionFile_(optionFile), path_(optionFile + ".keys"), patience_(patience)
    {
    }

    const std::string &path() const { return path_; }

    /// Returns the first kept password of the node that `prove` accepts; the caller wipes it. When
    /// none is accepted and the file changed meanwhile, all are tried again. Takes no lock. Errors:
    /// noPassword when the file, or the node in it, is not there or cannot be read; else the last
    /// failure of `prove`.
    Result<std::string> find(const std::string &repositoryUuid, const std::string &node,
                             const std::function<Result<void>(const std::string &)> &prove) const;

    /// Keeps `password` as the only one of the node, durably, when `prove` accepts it; else returns
    /// its error. After a failure what was kept is kept, unless only the last sync failed: then
    /// either may hold.
    Result<void> keep(const std::string &repositoryUuid, const std::string &node,
                      const std::string &password,
                      const std::function<Result<void>(const std::string &)> &prove) const;

    /// The steps of introduce(), in their order.
    struct Introduction {
        std::function<Result<bool>()> isRegistered;
        std::function<Result<void>(const std::string &)> prove;
        std::function<Result<std::string>()> make;
        std::function<Result<void>(const std::string &)> enrol; // registers; errors: exists
    };
    /// Registers a node with a kept password, under one lock from the first look to the end: of
    /// several processes that register a node at once one does, and the others find its password.
    /// `make` makes it; it is durable here, beside what is kept of the name already, before `enrol`
    /// gets it, and the only one when that succeeded. Returns false when the node was registered
    /// before. Errors: noPassword when it was and no password of it is kept here, or what `prove`
    /// failed with; exists when another host was faster, and then nothing new is kept. After
    /// another failure of `enrol` the password stays: it may hold.
    Result<bool> introduce(const std::string &repositoryUuid, const std::string &node,
                           const Introduction &steps) const;

    /// Drops, durably, the passwords of a node that `prove` refuses with `authentication`: all of
    /// them, unless the name was given to a new node since. Succeeds when nothing is kept.
    Result<void> forget(const std::string &repositoryUuid, const std::string &node,
                        const std::function<Result<void>(const std::string &)> &prove) const;

    /// Changes the password that find() returns to `fresh`. `change` gets the password that holds
    /// and makes `fresh` hold instead. Before it is called both are kept, durably; the old one is
    /// dropped only after it succeeded. So an interruption, or a failure, leaves a password that
    /// find() proves. Errors: those of find() and of `change`.
    Result<void> replace(const std::string &repositoryUuid, const std::string &node,
                         const std::string &fresh,
                         const std::function<Result<void>(const std::string &)> &prove,
                         const std::function<Result<void>(const std::string &)> &change) const;

    /// Makes `fresh` the password of a node whose kept one may be lost: `change` makes it hold.
    /// Before it is called `fresh` is kept, durably, beside the one that `prove` accepts, if any;
    /// that one is dropped only after `change` succeeded. So an interruption, or a failure, leaves
    /// a password that find() proves, if one did before. Errors: those of `change`, and of `prove`
    /// but for noPassword and authentication.
    Result<void> recover(const std::string &repositoryUuid, const std::string &node,
                         const std::string &fresh,
                         const std::function<Result<void>(const std::string &)> &prove,
                         const std::function<Result<void>()> &change) const;

private:
    Result<std::string> read() const;
    Result<std::string> findIn(std::string_view text, const std::string &repositoryUuid,
                               const std::string &node,
                               const std::function<Result<void>(const std::string &)> &prove) const;
    class Turn; // the lock, held
    Result<std::unique_ptr<Turn>> lock() const;
    Result<std::string> place() const;
    Result<void> write(const std::string &repositoryUuid, const std::string &node,
                       std::initializer_list<std::string_view> passwords) const;
    Result<void> write(const std::string &repositoryUuid, const std::string &node,
                       const std::function<bool(std::string_view)> &stays,
                       std::initializer_list<std::string_view> passwords) const;
    Result<void> put(const std::string &file, const std::string &text) const;

    std::string optionFile_;
    std::string path_;
    std::chrono::milliseconds patience_;
};

} // namespace arca::config

#endif
