#include "plain_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "fields.h"
#include "format.h"
#include "output.h"

namespace disk_info::cli {

namespace {

struct Line {
    std::string label;
    std::string words;
};
struct Section {
    std::string heading;
    std::vector<Line> lines;
};

// The fields with a bar, and the reading of a full one.
const struct Bar {
    const char* field;
    double full;
} kBars[] = {
    {"availableSpare", 100},
    {"percentageUsed", 100},
    {"deviceLifeTimeEstimationA", 10},
    {"deviceLifeTimeEstimationB", 10},
};
constexpr size_t kBarWidth = 20;

std::string ColouredBy(Verdict verdict, const std::string& text) {
    static constexpr std::array<Colour, 4> kColours{Colour::kDefault, Colour::kGreen,
                                                    Colour::kYellow, Colour::kRed};
    return Coloured(kColours[static_cast<size_t>(verdict)], text);
}

// "[#####...............] " in the colour of the field's worst finding; "" for a field without bar
// or value.
std::string DrawBar(const Json& fields, const std::string& field, const Assessment& assessment) {
    const auto* const bar = std::find_if(std::begin(kBars), std::end(kBars),
                                         [&](const Bar& one) { return one.field == field; });
    const auto value = Reading(fields, field);
    if (bar == std::end(kBars) || !value) return "";
    const double part = std::clamp(*value / bar->full, 0.0, 1.0);
    const auto filled = static_cast<size_t>(std::lround(part * kBarWidth));
    Verdict worst = Verdict::kOk;
    for (const Finding& finding : assessment.findings) {
        if (finding.field == field) worst = std::max(worst, finding.verdict);
    }
    return "[" + ColouredBy(worst, std::string(filled, '#')) +
           std::string(kBarWidth - filled, '.') + "] ";
}

std::string VerdictWords(const Assessment& assessment, bool decorated) {
    const std::string name = NameOf(assessment.verdict);
    std::string text = decorated ? ColouredBy(assessment.verdict, name) : name;
    const char* separator = ": ";
    for (const Finding& finding : assessment.findings) {
        text += std::exchange(separator, "; ") + finding.reason;
    }
    return text;
}

std::vector<Line> LinesFor(const Answer& answer, const Assessment* decoration) {
    if (answer.error) return {{"Not available", Describe(*answer.error)}};
    const Json* const fields = answer.Fields();
    if (fields == nullptr) return {{"Result", "none"}};
    std::vector<Line> lines;
    for (const auto& [name, value] : fields->items()) {
        const std::string label = Label(name);
        if (label.empty()) continue;
        const std::string bar = decoration != nullptr ? DrawBar(*fields, name, *decoration) : "";
        lines.push_back({label, bar + Words(*fields, name)});
    }
    return lines;
}

Section SectionFor(const Result& result, const Document& document, bool decorated) {
    if (result.call == Call::kFilesystem) {
        return {"Filesystem " + Printable(result.partition), LinesFor(result.answer, nullptr)};
    }
    const bool is_health = result.call == Call::kHealth && document.assessment;
    const Assessment* const decoration = is_health && decorated ? &*document.assessment : nullptr;
    Section section{Label(NameOf(result.call)), LinesFor(result.answer, decoration)};
    if (is_health) {
        section.lines.push_back({"Verdict", VerdictWords(*document.assessment, decorated)});
    }
    return section;
}

}  // namespace

std::string PlainText(const Document& document, bool decorated) {
    std::vector<Section> sections;
    size_t width = 0;
    for (const Result& result : document.results) {
        sections.push_back(SectionFor(result, document, decorated));
        for (const Line& line : sections.back().lines) width = std::max(width, line.label.size());
    }
    const bool has_headings = sections.size() > 1;
    std::string text;
    for (const Section& section : sections) {
        if (has_headings) text += (text.empty() ? "" : "\n") + section.heading + "\n";
        for (const auto& [label, words] : section.lines) {
            text += (has_headings ? "  " : "") + label + ":" +
                    std::string(width + 1 - label.size(), ' ') + words + "\n";
        }
    }
    return text;
}

}  // namespace disk_info::cli
