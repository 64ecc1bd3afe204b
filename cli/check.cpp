#include "check.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "failures.h"
#include "fields.h"
#include "format.h"
#include "plain_text.h"
#include "readings.h"

namespace disk_info::cli {

namespace {

struct State {
    const char* name;
    int status;
};
constexpr std::array<State, 4> kStates{
    {{"UNKNOWN", kCheckUnknown}, {"OK", 0}, {"WARNING", 1}, {"CRITICAL", 2}}};  // by verdict

// A line break or a vertical bar would end the text.
CheckResult ResultOf(Verdict verdict, std::string text, const std::string& performance) {
    const State& state = kStates[static_cast<size_t>(verdict)];
    std::ranges::replace(text, '|', ' ');
    std::ranges::replace(text, '\n', ' ');
    return {std::string("DISK ") + state.name + " - " + text +
                (performance.empty() ? "" : " |" + performance) + "\n",
            state.status};
}

// " label=value unit;warning;critical"; "" for a reading that is null. The limits are ranges: the
// state is reached outside of them.
std::string Datum(const std::string& label, const Json& reading, const char* unit,
                  const std::string& limits) {
    if (reading.is_null()) return "";
    const bool is_percent = *unit == '%';
    const std::string value =
        is_percent ? Format("%.0f", reading.get<double>() * 100) : reading.dump();
    return " " + label + "=" + value + unit + limits;
}

std::string PerformanceOf(const Document& document) {
    const Json readings = Readings(document);
    std::string limits;
    if (const Json& threshold = readings["spareThresholdRatio"]; !threshold.is_null()) {
        const double percent = threshold.get<double>() * 100;
        limits = Format(";%.0f:;%.0f:", percent < 100 ? percent + 1 : percent, percent);
    }
    std::string text = Datum("life_used", readings["lifeUsedRatio"], "%", ";89") +
                       Datum("spare", readings["spareRatio"], "%", limits) +
                       Datum("media_errors", readings["mediaErrors"], "", ";0") +
                       Datum("written", readings["writtenBytes"], "B", "");
    for (const auto& [partition, errors] : readings["filesystemErrors"].items()) {
        text += Datum("errors_" + partition, errors, "", ";0");
    }
    return text;
}

}  // namespace

CheckResult Check(const Document& document) {
    const Assessment assessment = document.assessment.value_or(Assessment{});
    const std::vector<std::string> failures = FailureLines(document);
    std::string text;
    if (assessment.verdict == Verdict::kUnknown && !failures.empty()) {
        text = failures.front();
    } else {
        text = DiskTitle(document);
        const char* separator = ": ";
        for (const Finding& finding : assessment.BySeverity()) {
            text += std::exchange(separator, "; ") + finding.reason;
        }
    }
    return ResultOf(assessment.verdict, text, PerformanceOf(document));
}

CheckResult FailedCheck(const std::string& message) {
    return ResultOf(Verdict::kUnknown, message, "");
}

}  // namespace disk_info::cli
