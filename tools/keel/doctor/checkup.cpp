// The agent's side of the check-up: see checkup.h.
#include "tools/keel/doctor/checkup.h"

#include "agents/oracle/common/sbt.h"
#include "tools/common/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <nl_types.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace fs = std::filesystem;

namespace
{

constexpr std::array kEntryPoints = {
    "sbtinit",    "sbtinit2", "sbtbackup", "sbtwrite2",        "sbtclose2",
    "sbtrestore", "sbtread2", "sbtinfo2",  "sbtremove2",       "sbtcommand",
    "sbterror",   "sbtend",   "sbtopen",   "sbtwrite",         "sbtread",
    "sbtclose",   "sbtinfo",  "sbtremove", "veloQueryVersion", "psveloUpdatePswd"};

std::string shown(const std::string &name)
{
    return tools::printable(name);
}

/// Returns the locale of messages, as the host's process would take it from its environment.
std::string messageLocale()
{
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(name);
        if (value && *value)
            return value;
    }
    return "C";
}

/// Returns "EN_US" for "C", "DE_DE" for "de_DE.UTF-8". A name of two letters is left as it is: the
/// agent has a table of those.
std::string catalogueDirectory(const std::string &locale)
{
    std::string language = locale.substr(0, locale.find_first_of(".@"));
    if (language.empty() || language == "C" || language == "POSIX")
        return "EN_US";
    std::ranges::transform(language, language.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return language;
}

bool opensAsCatalogue(const std::string &file)
{
    if (!mayAccess(file, R_OK))
        return false;
    const nl_catd catalogue = ::catopen(file.c_str(), 0);
    if (catalogue == reinterpret_cast<nl_catd>(-1))
        return false;
    ::catclose(catalogue);
    return true;
}

} // namespace

bool mayAccess(const std::string &path, int mode)
{
    return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

std::string whyUnreadable(const std::string &file)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0)
        return std::strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "it is no file";
    return mayAccess(file, R_OK) ? "" : std::strerror(errno);
}

void Checkup::good(const std::string &check, const std::string &text)
{
    tell_({check, Health::ok, text, ""});
}

void Checkup::warn(const std::string &check, const std::string &text, const std::string &cure)
{
    tell_({check, Health::warning, text, cure});
}

void Checkup::bad(const std::string &check, const std::string &text, const std::string &cure)
{
    tell_({check, Health::failed, text, cure});
}

void Checkup::run()
{
    lookAtUser();
    lookAtAgent();
    lookAtOptionFile();
    lookAtDirectories();
    lookAtErrorLog();
    lookAtCatalogue();
    lookAtClock();
    lookAtClientLibrary();
    lookAtClientOptions();
    lookAtPassword();
    lookAtRepository();
    tryPiece();
}

void Checkup::lookAtUser()
{
    const passwd *user = ::getpwuid(::geteuid());
    const std::string text =
        fmt::format("{} ({})", user ? shown(user->pw_name) : "no name", ::geteuid());
    if (::geteuid() == 0)
        warn("user", text,
             "Run this as the user that the database runs as: what root may do tells little.");
    else
        good("user", text);
}

void Checkup::lookAtAgent()
{
    const char *cure = "Install the agent, or name it as SBT_LIBRARY in the channel's PARMS "
                       "(here: --library).";
    void *library = ::dlopen(channel_.library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        return bad("agent", shown(::dlerror()), cure);
    for (const char *entry : kEntryPoints) {
        if (!::dlsym(library, entry))
            return bad("agent", fmt::format("{} has no {}", shown(channel_.library), entry), cure);
    }
    decltype(::veloQueryVersion) *query = nullptr;
    query = reinterpret_cast<decltype(query)>(::dlsym(library, "veloQueryVersion"));
    veloVersion version = {};
    query(&version);
    good("agent", fmt::format("{}, version {}.{}.{}.{}", shown(channel_.library), version.version,
                              version.release, version.level, version.subLevel));
}

void Checkup::lookAtOptionFile()
{
    const std::string file = shown(options_.file());
    const std::string reason = whyUnreadable(options_.file());
    optionFileIsGood_ = reason.empty() && options_.wrongLines().empty();
    if (!reason.empty())
        bad("options", fmt::format("{} cannot be read: {}", file, reason),
            options_.fileIsNamed()
                ? "Make it readable for this user, or name another one in "
                  "ENV=(VELO_OPTFILE=...) of the channel's PARMS."
                : "Name the option file in ENV=(VELO_OPTFILE=...) of the channel's PARMS "
                  "(here: --optfile).");
    else if (!options_.wrongLines().empty())
        bad("options", fmt::format("{}: {}", file, shown(options_.wrongLines().front())),
            "Correct the line, or make it a comment with an asterisk.");
    else
        good("options", file);
}

void Checkup::lookAtDirectories()
{
    struct Directory {
        const char *keyword;
        std::string path;
        bool written;
    };
    std::vector<Directory> directories = {{"HOXI_ORC_DIR", options_.agentDirectory(), false},
                                          {"HOXI_DIR", options_.clientDirectory(), false},
                                          {"HOXI_LOG", options_.logDirectory(), true}};
    bool allGood = true;
    for (const Directory &directory : directories) {
        struct stat status = {};
        std::string reason;
        if (::stat(directory.path.c_str(), &status) != 0)
            reason = std::strerror(errno);
        else if (!S_ISDIR(status.st_mode))
            reason = "it is no directory";
        else if (!mayAccess(directory.path, X_OK | (directory.written ? W_OK : R_OK)))
            reason = directory.written ? "this user may not write there" : std::strerror(errno);
        if (reason.empty())
            continue;
        allGood = false;
        bad("directory", fmt::format("{} {}: {}", directory.keyword, shown(directory.path), reason),
            fmt::format("Make the directory and give it to this user, or set {} in {}.",
                        directory.keyword, shown(options_.file())));
    }
    if (allGood)
        good("directory", fmt::format("logs go to {}", shown(options_.logDirectory())));
}

std::map<std::string, std::uint64_t> Checkup::errorLogs() const
{
    std::map<std::string, std::uint64_t> sizes;
    std::error_code error;
    const fs::path here = fs::current_path(error);
    for (const fs::path &directory :
         {fs::path(options_.logDirectory()), here, fs::path(AgentOptions::installedDirectory())}) {
        const fs::path log = (directory / "veloerror.log").lexically_normal();
        const std::uintmax_t size = fs::file_size(log, error);
        if (!error)
            sizes[log.string()] = size;
    }
    return sizes;
}

void Checkup::lookAtErrorLog()
{
    const std::string log = options_.logDirectory() + "/veloerror.log";
    if (!mayAccess(log, F_OK))
        good("errorlog", optionFileIsGood_
                             ? "nothing has gone wrong yet"
                             : fmt::format("{} is not there; as long as the option file is wrong, "
                                           "lines may go elsewhere",
                                           shown(log)));
    else if (!mayAccess(log, W_OK))
        bad("errorlog", fmt::format("{}: {}", shown(log), std::strerror(errno)),
            "Give the file to the user that the database runs as.");
    else
        good("errorlog", shown(log));
}

void Checkup::lookAtCatalogue()
{
    const std::string locale = messageLocale();
    const std::string language = catalogueDirectory(locale);
    const std::string directory = options_.agentDirectory() + "/";
    if (!opensAsCatalogue(directory + "EN_US/velo.cat"))
        bad("messages",
            fmt::format("{} is no message catalogue", shown(directory + "EN_US/velo.cat")),
            "Install the agent again, or set HOXI_ORC_DIR to the directory that holds EN_US.");
    else if (language.size() != 2 && !opensAsCatalogue(directory + language + "/velo.cat"))
        warn("messages",
             fmt::format("there are none for the locale {}, so they are English", shown(locale)),
             "Set LANG for the database to one of the languages that are installed, if you like.");
    else
        good("messages", fmt::format("{} ({})", language, shown(locale)));
}

void Checkup::lookAtClock()
{
    const char *cure = "Set the clock of this host, best by a time service.";
    const std::time_t now = std::time(nullptr);
    struct stat library = {};
    if (::stat(channel_.library.c_str(), &library) == 0 && library.st_ctime > now + 60)
        return bad("clock", "it is earlier than the installation of the agent", cure);
    std::string probe = options_.logDirectory() + "/.keel-doctor.XXXXXX";
    const int descriptor = ::mkstemp(probe.data());
    struct stat written = {};
    const bool known =
        descriptor >= 0 && ::write(descriptor, "", 1) == 1 && ::fstat(descriptor, &written) == 0;
    if (descriptor >= 0) {
        ::close(descriptor);
        ::unlink(probe.c_str());
    }
    const std::int64_t apart = known ? std::int64_t{written.st_mtime} - std::time(nullptr) : 0;
    if (apart < -60 || apart > 60)
        warn("clock",
             fmt::format("the one of the file system of {} is {} seconds apart",
                         shown(options_.logDirectory()), apart),
             "Set the clocks of this host and of its file server, best by a time service.");
    else
        good("clock", tools::localTimeText(now));
}

} // namespace keel
