// Files that the programs write under a name that a person gave. One set of rules for all of them:
//
//   1. A regular file, or a name that leads to nothing, is written under a random name beside it
//      (.unfinished.XXXXXX, mode 0600, which a program that is killed leaves behind), and gets its
//      name in one step when all of it is there. A reader finds the file of before or the whole of
//      the new one.
//   2. A symbolic link to a regular file, or to nothing, is refused: another user may have made the
//      link, and must not choose what a program of root writes.
//   3. A device, a FIFO and a standard stream (/dev/stdout, /dev/fd/3) are written to as they are,
//      and never created, cut or replaced. A directory is refused.
//
// One thread uses a file.
#ifndef KEEL_TOOLS_COMMON_COMMAND_WRITTEN_FILE_H
#define KEEL_TOOLS_COMMON_COMMAND_WRITTEN_FILE_H

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace tools
{

/// A sentence that names the file: "cannot write /x/y: No space left on device".
struct FileFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Existing {
    keep,    ///< a regular file of that name is a failure, also one that appears before publish();
             ///< on a file system without link(2), one that appears in its last moment is replaced
    replace, ///< the new file takes its place
};

struct FileRules {
    Existing existing = Existing::replace;
    const char *hint = ""; ///< ends the sentence about a file that is kept: "; --force replaces it"
    /// Permissions. Without a value: those of the file that is replaced, and its owner where the
    /// system lets it (else the group's rights may be dropped); for a new file 0666 less the
    /// process's mask.
    std::optional<mode_t> mode;
    bool durable = true; ///< what publish() published survives the loss of power
    /// Called again and again while a FIFO has no reader; may throw. Without it the system waits,
    /// and no signal that is only noted ends that.
    std::function<void()> whileNobodyReads = {};
};

class WrittenFile
{
public:
    /// Opens what is to be written; "-" is a name as any other. Throws FileFailure, and then
    /// nothing was made or changed.
    explicit WrittenFile(const std::string &name, const FileRules &rules = {});
    /// Closes the file. Without publish() nothing stays of a file that is written aside.
    ~WrittenFile();
    WrittenFile(const WrittenFile &) = delete;
    WrittenFile &operator=(const WrittenFile &) = delete;

    /// For callers that write themselves. This object closes it.
    [[nodiscard]] int descriptor() const { return descriptor_; }
    /// Returns false for what is written to as it is: what was written there stays written.
    [[nodiscard]] bool isAside() const { return !temporary_.empty(); }

    /// Writes all of it; waits where a FIFO or device is not ready. Throws FileFailure; drop the
    /// object then.
    void write(std::string_view bytes);
    /// Gives a file that is written aside its attributes and its name; does nothing for others.
    /// Call it once, at the end. Throws FileFailure: the name leads to what it led to before,
    /// unless only the sync of the directory failed: then it leads to the new file, and may not
    /// survive the loss of power.
    void publish();

private:
    void openAsItIs(bool isFifo);
    void createAside();
    void takeAttributes() const;
    void takeName();
    void syncDirectory() const;
    [[nodiscard]] std::string directory() const;
    [[noreturn]] void fail(const char *what, int error) const;

    std::string name_;
    FileRules rules_;
    std::string temporary_;             ///< empty when it is written to as it is, or published
    std::optional<struct stat> before_; ///< of the file that is replaced
    int descriptor_ = -1;
};

/// Returns true when what is written to `name` gets mixed with what goes to that descriptor: both
/// lead to one file, pipe or terminal, by whatever name. "-" is standard output.
[[nodiscard]] bool isMixed(const std::string &name, int descriptor);

/// Writes the whole text to `name` and publishes it, by the same rules. Throws FileFailure as
/// publish() does.
void writeWhole(const std::string &name, std::string_view text, const FileRules &rules = {});

} // namespace tools

#endif
