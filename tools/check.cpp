#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/card.h"
#include "tools/check_card.h"
#include "tools/commands.h"
#include "tools/recordings.h"
#include "tools/size_text.h"

namespace
{

/** What a check reports. */
struct Report {
    std::vector<Finding> findings;
    nlohmann::json recordings = nlohmann::json::array();
    size_t main_count = 0;
    size_t sub_count = 0;
    uint64_t frames = 0;
    uint64_t verified_bytes = 0;
    double verified_seconds = 0; /**< 0: nothing was verified */

    size_t problems() const
    {
        return static_cast<size_t>(std::count_if(findings.begin(), findings.end(), [](const Finding& one) {
            return one.kind->problem && !one.mended;
        }));
    }
    size_t record_files() const { return main_count + sub_count; }
};

/** What the card as a device lacks. */
FindingKind const& card_fault(int mount_error, const std::string& card_path)
{
    if (mount_error == ENOENT)
        return finding::no_partition;
    if (mount_error == EINVAL)
        return finding::no_file_system;
    throw Failure(ExitCode::failed,
                  "the card at '" + card_path + "' cannot be mounted: " + strerror(mount_error));
}

bool is_among(const Finding& finding, const std::vector<Finding>& findings)
{
    return std::any_of(findings.begin(), findings.end(), [&finding](const Finding& other) {
        return finding.kind == other.kind && finding.file == other.file;
    });
}

/** Repair, and see by a second look what that has mended. @return what was mended, then what is left */
std::vector<Finding> repair_card(CardCheck& check)
{
    std::vector<Finding> findings = check.findings();
    check.repair();
    std::vector<Finding> left = check.findings();
    findings.erase(std::remove_if(findings.begin(), findings.end(),
                                  [&left](const Finding& one) { return is_among(one, left); }),
                   findings.end());
    for (Finding& one : findings)
        one.mended = true;
    for (Finding& one : left)
        one.sentence += one.kind->mended ? ", and it could not be mended" : "";
    findings.insert(findings.end(), left.begin(), left.end());
    return findings;
}

/** null: not verified; else what is damaged. */
nlohmann::json verification_json(const Inspection& inspection)
{
    if (!inspection.verification || !inspection.verification->has_checks)
        return nullptr;
    nlohmann::json damaged = nlohmann::json::array();
    for (const ifs_mp4::Loss& loss : inspection.verification->losses)
        damaged.push_back({{"from_ms", loss.begin_ms}, {"to_ms", loss.end_ms}});
    return {{"damaged", damaged}, {"tables_differ", inspection.verification->tables_differ}};
}

void take_recordings(const CardCheck& check, Report& report)
{
    for (const RecordFile& file : check.recordings()) {
        const Inspection& inspection = file.inspection;
        (file.named.stream_type == IFS_STREAM_MAIN ? report.main_count : report.sub_count) += 1;
        report.frames += inspection.frames;
        nlohmann::json damaged_or_null;
        if (inspection.damaged_at_ms)
            damaged_or_null = *inspection.damaged_at_ms;
        report.recordings.push_back({{"file", file.name},
                                     {"stream", stream_name(file.named.stream_type)},
                                     {"state", state_name(inspection.state)},
                                     {"size_bytes", inspection.size},
                                     {"torn_bytes", inspection.torn_bytes},
                                     {"frames", inspection.frames},
                                     {"duration_ms", inspection.info.duration},
                                     {"damaged_at_ms", damaged_or_null},
                                     {"verified", verification_json(inspection)},
                                     {"listed", file.entry != nullptr}});
    }
}

std::string message(const Finding& finding)
{
    return finding.sentence + "; " + finding.kind->advice;
}

const char* severity(const FindingKind& kind)
{
    return kind.problem ? "problem" : "note";
}

nlohmann::json report_json(const Context& context, const Report& report)
{
    nlohmann::json findings = nlohmann::json::array();
    for (const Finding& finding : report.findings) {
        nlohmann::json file_or_null;
        if (!finding.file.empty())
            file_or_null = finding.file;
        findings.push_back({{"code", finding.kind->code},
                            {"severity", severity(*finding.kind)},
                            {"file", file_or_null},
                            {"message", message(finding)},
                            {"mendable", finding.kind->mended != nullptr},
                            {"mended", finding.mended}});
    }
    nlohmann::json data_or_null;
    if (report.verified_seconds > 0)
        data_or_null = {{"bytes", report.verified_bytes}, {"seconds", report.verified_seconds}};
    return {{"card", context.card_path},           {"data", data_or_null},
            {"problems", report.problems()},       {"findings", findings},
            {"recordings", report.recordings},     {"record_files", report.record_files()},
            {"max_record_files", max_record_files}};
}

std::string report_text(const Report& report)
{
    std::string text;
    for (const Finding& finding : report.findings) {
        text += std::string(severity(*finding.kind)) + " " + finding.kind->code + " ";
        text += (finding.file.empty() ? "card" : finding.file) + ": " + message(finding) + ".";
        text += finding.mended && finding.kind->mended
                    ? std::string(" Mended: ") + finding.kind->mended + ".\n"
                    : "\n";
    }
    const auto mended = std::count_if(report.findings.begin(), report.findings.end(),
                                      [](const Finding& finding) { return finding.mended; });
    text += "Recordings: " + std::to_string(report.main_count) + " main, " +
            std::to_string(report.sub_count) + " sub, with " + std::to_string(report.frames) + " frames; " +
            std::to_string(report.record_files()) + " of at most " + std::to_string(max_record_files) +
            " record files.\n";
    if (report.verified_seconds > 0)
        text += "Verified: " + size_text(report.verified_bytes) + ", " +
                size_text(static_cast<uint64_t>(static_cast<double>(report.verified_bytes) /
                                                report.verified_seconds)) +
                " a second.\n";
    return text + "Findings: " + std::to_string(report.findings.size()) + ", mended " +
           std::to_string(mended) + ", problems left " + std::to_string(report.problems()) + ".\n";
}

} // namespace

ExitCode check_card(const Context& context, const CheckOptions& options)
{
    const bool repair = options.repair;
    Report report;
    Card card(context.card_path);
    if (repair)
        card.check_writable();
    if (int error = card.mount_files(!repair)) {
        report.findings.push_back({&card_fault(error, context.card_path), "", "it cannot be mounted"});
    } else {
        CardCheck check(card.folder(), options.data);
        report.findings = repair ? repair_card(check) : check.findings();
        take_recordings(check, report);
        report.verified_bytes = check.verified_bytes();
        report.verified_seconds = check.verified_seconds();
    }
    if (context.json)
        context.results.write(report_json(context, report));
    else
        context.results.write(report_text(report));
    if (report.problems() > 0)
        return ExitCode::problem;
    const bool failed =
        repair && std::any_of(report.findings.begin(), report.findings.end(),
                              [](const Finding& one) { return one.kind->mended && !one.mended; });
    return failed ? ExitCode::failed : ExitCode::ok;
}

std::string check_footer()
{
    std::string text = R"(A finding is a line: its severity, its code, the file, what is wrong and what
mends it. A problem is footage or a catalogue entry that is damaged or in
danger. A note is normal after a power cut, or the next mount mends it without
loss. The check reads the card without the library, whose mount would change it.
With --repair, a line also shows what was done. Exit code 9 means that problems
are left, 1 that something could not be mended.

)";
    for (const FindingKind* kind : finding::kinds) {
        std::string name = std::string(severity(*kind)) + " " + kind->code;
        name.resize(24, ' ');
        text += "  " + name + kind->meaning + (kind->mended ? " (*)\n" : "\n");
    }
    return text + R"(
  (*) --repair mends it

With --json, one object:
    card              its path
    data              with --data: bytes that were verified, seconds; else null
    problems          number of problems that are left
    findings          of each: code, severity (problem or note), file (null: the
                      card itself), message, mendable (by --repair), mended (by
                      this run)
    recordings        of each record file, as it is after a repair: file,
                      stream (main or sub), state (finished, interrupted, stub,
                      empty or unreadable), size_bytes (of the file), torn_bytes
                      (torn, or damaged and left out), frames, duration_ms,
                      damaged_at_ms (the first frame that cannot be read; null:
                      none), verified (null: not, or it carries no checksums; else
                      damaged, from_ms and to_ms of each place, and
                      tables_differ), listed (in an index)
    record_files      their number
    max_record_files  the most that a card's folder holds)";
}
