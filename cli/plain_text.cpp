#include "plain_text.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <utility>
#include <vector>

#include "assessment.h"
#include "explanation.h"
#include "failures.h"

namespace disk_info::client {

namespace {

using Line = std::pair<std::string, std::string>;  // name, value
struct Section {
    std::string heading;
    std::vector<Line> lines;
};

// The fields that are drawn, and the reading that fills the bar.
const struct {
    const char* field;
    double full;
} kBars[] = {
    {"availableSpare", 100},
    {"percentageUsed", 100},
    {"deviceLifeTimeEstimationA", 10},
    {"deviceLifeTimeEstimationB", 10},
};
constexpr size_t kBarWidth = 20;

std::string coloured(const std::string& text, Verdict verdict) {
    static constexpr std::array<const char*, 4> kColours{"", "\x1b[32m", "\x1b[33m", "\x1b[31m"};
    const char* const colour = kColours[static_cast<size_t>(verdict)];
    return *colour == '\0' || text.empty() ? text : colour + text + "\x1b[0m";
}

// "[#####...............] " or "" where there is nothing to draw.
std::string bar(const Json& fields, const std::string& field, const Assessment& assessment) {
    const auto* const drawn = std::find_if(std::begin(kBars), std::end(kBars),
                                           [&](const auto& one) { return one.field == field; });
    const auto value = reading(fields, field);
    if (drawn == std::end(kBars) || !value) return "";
    const double part = std::clamp(*value / drawn->full, 0.0, 1.0);
    const auto filled = static_cast<size_t>(std::lround(part * kBarWidth));
    Verdict worst = Verdict::kOk;
    for (const Finding& finding : assessment.findings) {
        if (finding.field == field) worst = std::max(worst, finding.verdict);
    }
    return "[" + coloured(std::string(filled, '#'), worst) + std::string(kBarWidth - filled, '.') +
           "] ";
}

std::string verdictText(const Assessment& assessment, bool decorated) {
    const std::string name = kVerdictNames[static_cast<size_t>(assessment.verdict)];
    std::string text = decorated ? coloured(name, assessment.verdict) : name;
    const char* separator = ": ";
    for (const std::string& reason : assessment.reasons) {
        text += std::exchange(separator, "; ") + reason;
    }
    return text;
}

Section section(const std::string& heading, const Json& answer, bool decorated) {
    if (answer.is_null()) return {heading, {{"Result", "none"}}};
    if (const std::string error = errorText(answer); !error.empty()) {
        return {heading, {{"Not available", error}}};
    }
    const Json& fields = *fieldsOf(answer);
    const Assessment assessment = assess(answer);
    Section result{heading, {}};
    for (const auto& [key, value] : fields.items()) {
        const std::string name = label(key);
        // The exact text of a large number stands beside the number for JSON readers alone.
        if (name.empty() || key.ends_with("_s")) continue;
        const std::string drawn = decorated ? bar(fields, key, assessment) : "";
        result.lines.emplace_back(name, drawn + words(fields, key));
    }
    return result;
}

std::vector<Section> sections(const Json& document, bool decorated) {
    std::vector<Section> result;
    for (const auto& [key, answer] : document.items()) {
        if (key == "schemaVersion" || key == "assessment") continue;
        if (key == "filesystems") {
            for (const auto& [partition, filesystem] : answer.items()) {
                result.push_back(
                    section("Filesystem " + printable(partition), filesystem, decorated));
            }
            continue;
        }
        result.push_back(section(label(key), answer, decorated));
        if (key == "health") {
            result.back().lines.emplace_back("Verdict", verdictText(assess(answer), decorated));
        }
    }
    return result;
}

}  // namespace

std::string plainText(const Json& document, bool decorated) {
    const std::vector<Section> all = sections(document, decorated);
    size_t width = 0;
    for (const Section& one : all) {
        for (const auto& [name, value] : one.lines) width = std::max(width, name.size());
    }
    const bool headed = all.size() > 1;
    std::ostringstream text;
    text << std::left;
    for (const Section& one : all) {
        if (headed) text << (text.tellp() > 0 ? "\n" : "") << one.heading << "\n";
        for (const auto& [name, value] : one.lines) {
            text << (headed ? "  " : "") << std::setw(static_cast<int>(width) + 2) << name + ":"
                 << value << "\n";
        }
    }
    return text.str();
}

bool wantsDecoration() {
    const char* const refused = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0');
}

}  // namespace disk_info::client
