// How the engine treats a stream.
#ifndef KEEL_CLIENT_ENGINE_PACKS_SETTINGS_H
#define KEEL_CLIENT_ENGINE_PACKS_SETTINGS_H

#include "client/base/crypto/aead.h"

#include <cstddef>

namespace arca::engine
{

struct Settings {
    int compressionLevel = 1; // of zstd; 0: as it is
    bool deduplication = true;
    Cipher cipher = Cipher::aes256;
    bool verify = true;   // every frame is opened and compared before it counts as stored
    unsigned threads = 0; // 0: as many as there are processors, at most 4
    std::size_t memory = std::size_t{64} << 20; // bytes that one stream may use
    std::size_t blockSize = 8192;               // bytes; a power of two
};

constexpr std::size_t kMinBlockSize = 2048;
constexpr std::size_t kMaxBlockSize = 32768;
constexpr std::size_t kMinMemory = std::size_t{32} << 20;
constexpr std::size_t kMaxMemory = std::size_t{1024} << 20;
constexpr unsigned kMaxThreads = 16;
constexpr int kMaxCompressionLevel = 19;

/// Returns how many threads the settings ask for on this host; more than kMaxThreads become that.
/// Nothing else of the settings is checked here: the options are, where they are read.
unsigned workersFor(const Settings &settings);

} // namespace arca::engine

#endif
