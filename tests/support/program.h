// Running a program and catching what it says.
#ifndef KEEL_TESTS_SUPPORT_PROGRAM_H
#define KEEL_TESTS_SUPPORT_PROGRAM_H

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace keel::test
{

struct ProgramResult {
    int status = -1; ///< exit status, or 128 + signal
    std::string out;
    std::string err;
};

struct ProgramOptions {
    std::string input;                              ///< standard input
    std::map<std::string, std::string> environment; ///< added to that of the test
    std::filesystem::path directory;                ///< working directory; empty: that of the test
};

/// In a child, before it becomes a program: as a shell gives them to one in the foreground. The
/// tests may run behind a shell that ignores an interrupt, and what is ignored is inherited.
void defaultSignals();

/// argv[0] is looked up in PATH when it holds no slash. Throws std::system_error when nothing runs.
[[nodiscard]] ProgramResult run(const std::vector<std::string> &argv,
                                const ProgramOptions &options = {});

/// The words of a command line, which blanks keep apart; '' is an empty one.
[[nodiscard]] std::vector<std::string> wordsOf(const std::string &line);
/// Those of several lines, which semicolons keep apart.
[[nodiscard]] std::vector<std::vector<std::string>> linesOf(const std::string &lines);

/// A program that runs beside the test, its standard input a pipe that the test holds. One that is
/// still there when the object goes is killed.
class Program
{
public:
    explicit Program(const std::vector<std::string> &argv, const ProgramOptions &options = {});
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    /// Returns when the program, or the pipe, has taken all of it. False when nobody reads any
    /// more.
    bool feed(std::string_view bytes);
    /// Has the program read all that it was fed?
    [[nodiscard]] bool taken() const;
    void closeInput();
    void signal(int number);
    [[nodiscard]] ProgramResult wait();
    [[nodiscard]] pid_t pid() const { return pid_; }

private:
    friend ProgramResult run(const std::vector<std::string> &, const ProgramOptions &);
    void start(const std::vector<std::string> &argv, const ProgramOptions &options, int input);
    Program() = default;

    pid_t pid_ = -1;
    int input_ = -1; ///< our end of the pipe
    int out_ = -1;   ///< unnamed files: no reader is needed, so nothing can block
    int err_ = -1;
};

} // namespace keel::test

#endif
