// arca metrics: statistics of the node's pieces in the Prometheus text format, as a collector reads
// it from files of a directory.
#include "agents/common/maint/mttiming.h"
#include "client/store/upkeep/statistics.h"
#include "client/store/upkeep/verify_state.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/node_session.h"
#include "tools/common/command/streams.h"
#include "tools/common/command/written_file.h"

#include <algorithm>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string output = "-";
    bool fromStandardInput = false;
};

/// Returns a label's value with backslash, quotation mark and line feed escaped.
std::string labelText(const std::string &value)
{
    std::string text;
    for (const char c : value)
        text += c == '\n'               ? "\\n"
                : c == '"' || c == '\\' ? std::string("\\") + c
                                        : std::string(1, c);
    return text;
}

class Exposition
{
public:
    explicit Exposition(const std::string &node) : node_(labelText(node)) {}

    void family(const std::string &name, const std::string &help)
    {
        name_ = name;
        text_ += fmt::format("# HELP {} {}\n# TYPE {} gauge\n", name, help, name);
    }
    void value(std::uint64_t value, const std::string &more = {})
    {
        text_ += fmt::format("{}{{node=\"{}\"{}}} {}\n", name_, node_, more, value);
    }
    void gauge(const std::string &name, const std::string &help, std::uint64_t number)
    {
        family(name, help);
        value(number);
    }
    const std::string &text() const { return text_; }

private:
    std::string node_, name_, text_;
};

std::uint64_t compressionBytes(const store::PieceSums &sums)
{
    return sums.newBytes - std::min(sums.newBytes, sums.storedBytes);
}

void addPieces(Exposition &out, const store::Statistics &statistics)
{
    const store::PieceSums &all = statistics.all;
    out.gauge("arca_pieces", "Versions that the node keeps, active and inactive.", all.pieces);
    out.gauge("arca_inactive_versions", "Inactive ones of these.", statistics.inactivePieces);
    out.gauge("arca_logical_bytes", "What the application sent for these pieces.", all.streamBytes);
    out.gauge("arca_stored_bytes", "What was stored for these pieces.", all.storedBytes);
    out.family("arca_saved_bytes", "What did not have to be stored for these pieces.");
    out.value(all.zeroBytes, ",by=\"zeros\"");
    out.value(all.duplicateBytes, ",by=\"duplicates\"");
    out.value(compressionBytes(all), ",by=\"compression\"");
    out.gauge("arca_manifest_bytes", "Size of the manifests of these pieces.",
              statistics.manifestBytes);
    out.gauge("arca_packs", "Packs of the node.", statistics.packs);
    out.gauge("arca_pack_bytes", "Size of the packs, with what no piece needs any more.",
              statistics.packBytes);
    out.gauge("arca_unreadable", "Pieces and packs that cannot be opened.", statistics.unreadable);
    out.gauge("arca_damaged_parts", "Parts of packs that were found damaged and not mended yet.",
              statistics.damagedParts);
    out.gauge("arca_quarantined", "Damaged manifests that were set aside.", statistics.quarantined);
    if (statistics.newest > 0)
        out.gauge("arca_last_piece_timestamp_seconds", "When the newest piece was stored.",
                  static_cast<std::uint64_t>(statistics.newest));
}

void addVerification(Exposition &out, const store::Statistics &statistics, const std::string &cache,
                     const std::string &key)
{
    store::VerifyState state = store::loadVerifyState(cache, key);
    // Restores find and record damage, too, and so does the counting above.
    for (store::VerifyRound *round : {&state.structure, &state.data})
        if (statistics.unreadable != 0 || statistics.lastDamage >= round->proven)
            round->proven = 0;
    out.family(
        "arca_verify_proven_timestamp_seconds",
        "When the last round that found nothing began; 0: none here, or damage was found since.");
    out.value(static_cast<std::uint64_t>(state.structure.proven), ",depth=\"structure\"");
    out.value(static_cast<std::uint64_t>(state.data.proven), ",depth=\"data\"");
    out.family("arca_verify_hurt", "Found hurt in the round of verifying that is under way.");
    out.value(state.structure.hurt, ",depth=\"structure\"");
    out.value(state.data.hurt, ",depth=\"data\"");
}

void addSpace(Exposition &out, const std::string &directory)
{
    struct statvfs system = {};
    if (::statvfs(directory.c_str(), &system) != 0)
        return;
    out.gauge("arca_filesystem_size_bytes", "Size of the file system of the repository.",
              std::uint64_t{system.f_blocks} * system.f_frsize);
    out.gauge("arca_filesystem_available_bytes", "What is free there.",
              std::uint64_t{system.f_bavail} * system.f_frsize);
}

Result<void> tell(const Command &command, const Asked &asked, Json &result)
{
    if (command.json && asked.output != "-" && tools::isMixed(asked.output, STDOUT_FILENO))
        throw mixedOutput(asked.output);
    ARCA_TRY(const NodeSession session, logOn(command, asked.fromStandardInput, result));
    const mtTimed timed(MT_TIME_CLIENT);
    ARCA_TRY(const store::Statistics statistics,
             store::gatherStatistics(*session.space, shownProgress("Counting")));
    Exposition out(session.space->node());
    addPieces(out, statistics);
    addVerification(out, statistics, session.repository->cache().directory(),
                    session.space->domain().nodeKey());
    addSpace(out, session.repository->shownName());
    if (asked.output != "-") {
        // 0644 whatever our mask: the collector reads as another user.
        tools::FileRules rules;
        rules.mode = 0644;
        tools::writeWhole(asked.output, out.text(), rules);
    }
    if (command.json)
        result["metrics"] = out.text();
    else if (asked.output == "-")
        tools::print("{}", out.text());
    return {};
}

} // namespace

void addMetrics(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("metrics", "Tell monitoring how the node's pieces are, as Prometheus text");
    auto asked = std::make_shared<Asked>();
    verb.addOption("--output,-o", asked->output,
                   "File that is replaced as a whole; - is standard output")
        .valueName("FILE")
        .showDefault();
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer("Example: arca metrics --output /var/lib/node_exporter/arca.prom\n"
                "Run it by a timer: it reads every manifest. The name of the file ends in .prom "
                "for a node exporter's directory of text files.\n"
                "It is about what NODENAME keeps itself; ASNODE changes nothing.");
    verb.onChosen([&command, asked] {
        command.verb = "metrics";
        command.run = [&command, asked](Json &result) { return tell(command, *asked, result); };
    });
}

} // namespace arca::tool
