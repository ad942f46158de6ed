// What is visited, in which order, and when a run ends. What is looked at in a blob, blob_proof.cpp
// says, and what comes of it, verify_report.cpp.
#include "client/store/upkeep/verify.h"

#include "client/base/text.h"
#include "client/store/marks/grace.h"
#include "client/store/marks/quarantine.h"
#include "client/store/nodes/policy.h"
#include "client/store/pieces/inventory.h"
#include "client/store/records/defaults.h"
#include "client/store/upkeep/blob_proof.h"
#include "client/store/upkeep/record_kinds.h"

#include <algorithm>
#include <ctime>
#include <map>

namespace arca::store
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr auto kSaveEvery = std::chrono::seconds(10);

/// What lies under a part of the names, which goes through the same checks.
struct Section {
    std::string prefix;
    Checked what;
    bool divided; // into 256 directories, because there may be many
};

/// In the order of checking, so that the last name that was checked says how far a round is.
/// Manifests come in the order in which they move (stored_manifests.h), so that a round meets each.
std::vector<Section> sectionsOf(const std::string &nodeKey, const std::string &nameKey)
{
    return {
        {"access/" + nodeKey + "/", Checked::record, false},
        {"changes/" + nodeKey + "/", Checked::record, false},
        {"classes/", Checked::record, false},
        {"damage/" + nodeKey + "/", Checked::record, false},
        {"defaults", Checked::record, false},
        {"filespaces/" + nodeKey + "/", Checked::record, false},
        {"grants/" + nodeKey + "/", Checked::record, false},
        {"groups/" + nodeKey + "/", Checked::record, false},
        {"inventory/" + nodeKey + "/", Checked::record, false},
        {"keys/", Checked::record, false},
        {"log/", Checked::record, false},
        {"nodes/" + nameKey + "/", Checked::record, false},
        {"objects/" + nodeKey + "/", Checked::record, false},
        {"options/", Checked::record, false},
        {"outcomes/" + nodeKey + "/", Checked::record, false},
        {"packs/" + nodeKey + "/", Checked::pack, true},
        {"reclaim/" + nodeKey + "/", Checked::record, false},
        {"coming/" + nodeKey + "/", Checked::piece, true},
        {"pieces/" + nodeKey + "/", Checked::piece, true},
        {"inactive/" + nodeKey + "/", Checked::piece, true},
        {"removed/" + nodeKey + "/", Checked::piece, true},
        {"quarantine/" + nodeKey + "/", Checked::piece, false},
    };
}

/// Whether a name begins with one of the directories of a divided section.
bool liesInPart(std::string_view rest)
{
    return rest.size() > 3 && rest[2] == '/' &&
           rest.substr(0, 2).find_first_not_of("0123456789abcdef") == rest.npos;
}

class Verification
{
public:
    Verification(NodeSpace &space, const VerifyRequest &request, const VerifyWatcher &watcher)
        : space_(space), blobs_(space.domain().blobs()), quarantine_(space.domain()),
          request_(request), report_(space, watcher, round()),
          proof_(space, request.readData, request.shared, report_, [this] { return mustStop(); })
    {
    }

    Result<VerifyOutcome> run();

private:
    enum class Went { on, out }; // out: of the time or the number that the run may take

    VerifyRound &round() { return request_.readData ? state_.data : state_.structure; }
    Result<void> compareStock();
    Result<void> compareDefaults();
    Result<std::uint64_t> count();
    void tellStrays();
    Result<Went> checkSections();
    Result<Went> checkUnder(const Section &section, const std::string &directory);
    Result<Went> checkOne(const std::string &blobName, Checked what);
    Went passQuarantined(const std::string &blobName);

    bool isOut() const { return request_.maxDuration.count() != 0 && Clock::now() >= end_; }
    /// What is begun first is finished, or a piece that takes longer than a run would never be.
    bool mustStop() const { return report_.progress().done != 0 && isOut(); }
    bool isGone(const std::string &blobName);
    void endRound();
    void save();

    NodeSpace &space_;
    blob::BlobStore &blobs_;
    const Quarantine quarantine_;
    const VerifyRequest request_;
    VerifyState state_;
    VerifyReport report_;
    BlobProof proof_;
    std::vector<Section> sections_;
    std::map<std::string, Checked> strays_;
    Clock::time_point end_;
    Clock::time_point saved_ = Clock::now();
};

Result<VerifyOutcome> Verification::run()
{
    end_ = Clock::now() + request_.maxDuration;
    ARCA_TRY(const std::string nameKey, nodeKey(space_.node()));
    sections_ = sectionsOf(space_.domain().nodeKey(), nameKey);
    state_ = loadVerifyState(space_.domain().cache().directory(), space_.domain().nodeKey());
    if (!request_.isPartial() || round().began == 0) {
        const std::int64_t proven = round().proven;
        round() = VerifyRound{std::time(nullptr), proven, 0, {}};
    }
    ARCA_CHECK(compareStock());
    if (round().last.empty())
        ARCA_CHECK(compareDefaults());
    ARCA_TRY(const std::uint64_t blobs, count());
    report_.plan((blobs * request_.percent + 99) / 100);
    if (round().last.empty())
        tellStrays();
    ARCA_TRY(const Went went, checkSections());
    if (went == Went::on)
        endRound();
    VerifyOutcome outcome = report_.outcome();
    if (outcome.hurt() != 0 || outcome.uncounted)
        state_.structure.proven = state_.data.proven = 0;
    save();
    outcome.roundEnded = went == Went::on;
    outcome.bytesRead = report_.progress().bytes;
    outcome.round = round();
    return outcome;
}

/// What should be there and is not lies under no name that could be checked.
Result<void> Verification::compareStock()
{
    ARCA_TRY(const auto claims, blobs_.livingWriters(space_.domain().nodeKey()));
    Inventory inventory(space_.domain());
    ARCA_TRY(const Stock stock, inventory.check());
    report_.missing(stock);
    bool packs = false;
    if (stock.found == 0 && claims.empty())
        ARCA_CHECK(space_.domain().packs().list(
            [&](const engine::PackName &) { return !(packs = true); }));
    report_.endStock(packs);
    return {};
}

/// What is there and damaged is told where it lies; here only what is not there at all.
Result<void> Verification::compareDefaults()
{
    ARCA_TRY(const bool noted, areDefaultsNoted(blobs_));
    ARCA_TRY(const std::string standard, Policy::placeOf(kDefaultClass));
    for (const std::string &place : {std::string(kGracePlace), standard}) {
        NumberedRecord record(blobs_, place);
        ARCA_TRY(const std::uint32_t newest, record.newestNumber());
        if (newest == 0 && noted)
            report_.hurt(place, Checked::record,
                         "the record was written when the repository was made, and is lost");
    }
    return {};
}

Result<std::uint64_t> Verification::count()
{
    std::uint64_t blobs = 0;
    for (const Section &section : sections_)
        ARCA_CHECK(blobs_.list(section.prefix, [&](const std::string &name) {
            ++blobs;
            if (section.divided &&
                !liesInPart(std::string_view(name).substr(section.prefix.size())))
                strays_.emplace(name, section.what);
            return true;
        }));
    ARCA_CHECK(blobs_.list("log/", [&](const std::string &name) {
        if (name.find('/', 4) == name.npos)
            strays_.emplace(name, Checked::record); // in a day's place
        return true;
    }));
    return blobs;
}

/// What lies where no pack and no manifest can, above all a symbolic link in a directory's place:
/// what was behind it cannot be read.
void Verification::tellStrays()
{
    for (const auto &[name, what] : strays_) {
        const auto opened = blobs_.open(name);
        if (opened || opened.error().kind != ErrorKind::notFound)
            report_.hurt(name, what,
                         opened ? "nothing of the repository has such a name"
                                : opened.error().text);
    }
}

Result<Verification::Went> Verification::checkSections()
{
    // Where the round is. One that is in no section begins with the first.
    const auto reached = std::find_if(sections_.begin(), sections_.end(), [&](const Section &one) {
        return round().last.starts_with(one.prefix);
    });
    if (reached == sections_.end())
        round().last.clear();
    for (auto at = reached == sections_.end() ? sections_.begin() : reached; at != sections_.end();
         ++at) {
        const Section &section = *at;
        for (unsigned part = 0; part < (section.divided ? 256U : 1U); ++part) {
            const auto digits = static_cast<std::byte>(part);
            const std::string directory =
                section.divided ? toHex(ByteView(&digits, 1)) + "/" : std::string();
            if (strays_.contains(section.prefix + directory.substr(0, 2)))
                continue; // no directory
            ARCA_TRY(const Went went, checkUnder(section, directory));
            if (went == Went::out)
                return went;
        }
    }
    return Went::on;
}

Result<Verification::Went> Verification::checkUnder(const Section &section,
                                                    const std::string &directory)
{
    std::vector<std::string> names;
    ARCA_CHECK(blobs_.list(section.prefix + directory, [&](const std::string &name) {
        if (name.starts_with(quarantine_.prefix()) && !quarantine_.isManifest(name))
            return true; // what a manifest there may need
        // Names of sections that come later are not compared.
        if (!round().last.starts_with(section.prefix) || name > round().last)
            names.push_back(name);
        return true;
    }));
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) {
        ARCA_TRY(const Went went, checkOne(name, section.what));
        if (went == Went::out)
            return went;
    }
    return Went::on;
}

Result<Verification::Went> Verification::checkOne(const std::string &blobName, Checked what)
{
    const VerifyProgress &progress = report_.progress();
    const bool isEnough = request_.percent < 100 && progress.done >= progress.planned;
    if (progress.done != 0 && (isOut() || isEnough))
        return Went::out;
    if (quarantine_.isManifest(blobName))
        return passQuarantined(blobName);
    const auto proven = proof_.prove(blobName, what);
    if (proof_.wasCutShort())
        return Went::out;
    if (!proven && !isGone(blobName))
        report_.hurt(blobName, what,
                     what == Checked::record && recordKindAt(blobName) != nullptr
                         ? aboutRecord(proven.error(), blobName).text
                         : proven.error().text);
    report_.checked(what);
    round().last = blobName;
    if (Clock::now() - saved_ >= kSaveEvery)
        save();
    return Went::on;
}

Verification::Went Verification::passQuarantined(const std::string &blobName)
{
    if (isGone(blobName))
        return Went::on;
    report_.quarantined(blobName);
    round().last = blobName;
    return Went::on;
}

/// Whatever was wrong with a blob that is not there any more is no fault.
bool Verification::isGone(const std::string &blobName)
{
    const auto blob = blobs_.open(blobName);
    return !blob && blob.error().kind == ErrorKind::notFound;
}

void Verification::endRound()
{
    VerifyRound &ended = round();
    if (ended.hurt == 0 && report_.outcome().hurt() == 0 && !report_.outcome().uncounted)
        ended.proven = ended.began;
    // A run that reads all data has checked the structure, too.
    if (request_.readData)
        state_.structure.proven = std::max(state_.structure.proven, ended.proven);
    ended.began = 0; // and what was hurt stays to be told until the next round begins
    ended.last.clear();
}

void Verification::save()
{
    saved_ = Clock::now();
    saveVerifyState(space_.domain().cache().directory(), space_.domain().nodeKey(), state_);
}

} // namespace

Result<VerifyOutcome> verify(NodeSpace &space, const VerifyRequest &request,
                             const VerifyWatcher &watcher)
{
    return Verification(space, request, watcher).run();
}

} // namespace arca::store
