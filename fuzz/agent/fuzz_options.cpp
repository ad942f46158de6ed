// Any bytes as an option file: both readers end, stay within their slots, and agree on what a value
// is. No message catalogue is open here, so that nothing is reported.

#include "agents/oracle/common/diagnostics/optionfile.h"
#include "agents/oracle/common/session/velooptions.h"
#include "common/ut/trace.h"

#include <cstdlib>
#include <cstring>
#include <memory>

static void require(bool holds)
{
    if (!holds)
        std::abort();
}

/// The full reading refuses an empty value; the text is cleaned, except that of the test flags.
static void checkOption(const orcObj_t &ctx, int option, std::FILE *stream, bool accepted)
{
    const char *value = ctx.options[option];
    require(std::memchr(value, '\0', ORC_OPTION_SIZE) != nullptr);
    if (option != OPT_VELO_TEST_FLAGS) {
        require(std::strchr(value, '"') == nullptr);
        require(*value == '\0' ||
                std::strchr(" \t\r\v\f", value[std::strlen(value) - 1]) == nullptr);
    }

    char single[ORC_OPTION_SIZE] = "untouched";
    const std::uint16_t rc = veloGetOption(stream, optLookup[option], single, 0, 0);
    require(rc == 0 || (rc == 0xFFFF && std::strcmp(single, "untouched") == 0));
    require(std::memchr(single, '\0', sizeof single) != nullptr);
    if (accepted)
        require((rc == 0) == (*value != '\0'));
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    std::FILE *stream = fmemopen(const_cast<unsigned char *>(data), size, "r");
    if (!stream) // no bytes at all
        return 0;
    const auto ctx = std::make_unique<orcObj_t>();
    const std::uint16_t rc = veloParseOptionFile(ctx.get(), stream, "velo.opt", 0, 0);
    require(rc == 0 || rc == ORC_RC_OPTION_FILE);
    for (int option = 0; option < OPT_COUNT; ++option)
        checkOption(*ctx, option, stream, rc == 0);
    std::fclose(stream);
    // Flags are read from their options, whatever stands there.
    trTestEnable(ctx->options[OPT_VELO_TEST_FLAGS]);
    const char *value = "";
    require(!trTestFlag("TEST_ORACLEDATA", &value) || std::strlen(value) < ORC_OPTION_SIZE);
    trEnable(ctx->options[OPT_VELO_TRACE_FLAGS], 1);
    trEnd();
    return 0;
}
