// A directory for the files that a target writes; it goes when the process ends well.
#ifndef KEEL_FUZZ_SCRATCH_H
#define KEEL_FUZZ_SCRATCH_H

#include <cstdlib>
#include <filesystem>
#include <string>

namespace keelfuzz
{

/// Its path, the same one for the whole life of the process.
inline const std::string &scratch()
{
    struct Directory {
        std::string path = std::filesystem::temp_directory_path() / "keel-fuzz.XXXXXX";
        Directory()
        {
            if (mkdtemp(path.data()) == nullptr)
                std::abort();
        }
        ~Directory()
        {
            std::error_code ignored; // nothing is told of it at the end of a process
            std::filesystem::remove_all(path, ignored);
        }
    };
    static const Directory directory;
    return directory.path;
}

} // namespace keelfuzz

#endif
