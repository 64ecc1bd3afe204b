#include "plain_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <vector>

#include "fields.h"
#include "format.h"
#include "output.h"

namespace disk_info::cli {

namespace {

struct Text {
    std::string words;
    Verdict verdict = Verdict::kUnknown;  // selects the colour; kUnknown: none
};
struct Line {
    std::string label;
    std::vector<Text> start;       // written without blanks between them, never broken
    std::vector<Text> paragraphs;  // the first one follows `start`, the others begin a line each
};
struct Section {
    std::string heading;
    std::vector<Line> lines;
};

// The fields with a bar, and the readings of an empty and a full one. A level of UFS is drawn as
// the start of its range, which is also the value of the metric.
const struct Bar {
    const char* field;
    double empty;
    double full;
} kBars[] = {
    {"availableSpare", 0, 100},
    {"percentageUsed", 0, 100},
    {"deviceLifeTimeEstimationA", 1, 11},
    {"deviceLifeTimeEstimationB", 1, 11},
};
constexpr size_t kBarWidth = 20;
constexpr size_t kLeastWidthForBars = 60;

// Writes lines of limited width, in colour or without.
class Writer {
  public:
    Writer(bool has_colour, size_t width) : has_colour_(has_colour), width_(width) {}

    void Write(const Text& text) {
        static constexpr std::array<Colour, 4> kColours{Colour::kDefault, Colour::kGreen,
                                                        Colour::kYellow, Colour::kRed};
        const Colour colour = kColours[static_cast<size_t>(text.verdict)];
        text_ += Coloured(has_colour_ ? colour : Colour::kDefault, text.words);
        column_ += text.words.size();
    }

    // Ends a line that is full between two words; the next one begins at column `indent`.
    void WriteParagraph(const Text& text, size_t indent) {
        std::string line;
        for (size_t begin = 0; begin <= text.words.size();) {
            size_t end = text.words.find(' ', begin);
            if (end != std::string::npos && text.words.compare(end, 2, " %") == 0) {
                end = text.words.find(' ', end + 1);  // A number stays with its "%".
            }
            end = std::min(end, text.words.size());
            const std::string word = text.words.substr(begin, end - begin);
            const size_t blank = begin == 0 ? 0 : 1;
            begin = end + 1;
            const size_t column = column_ + line.size();
            if (width_ != 0 && column + blank + word.size() > width_ && column > indent) {
                Write({line, text.verdict});
                EndLine();
                Write({std::string(indent, ' ')});
                line = word;
            } else {
                line.append(blank, ' ').append(word);
            }
        }
        Write({line, text.verdict});
    }

    // The first paragraph follows the line's start; the others begin below it.
    void WriteLine(const std::vector<Text>& start, const std::vector<Text>& paragraphs) {
        for (const Text& text : start) Write(text);
        const size_t indent = width_ != 0 ? std::min(column_, width_ / 2) : column_;
        for (const Text& paragraph : paragraphs) {
            if (&paragraph != &paragraphs.front()) Write({std::string(indent, ' ')});
            WriteParagraph(paragraph, indent);
            EndLine();
        }
    }

    void EndLine() {
        text_.erase(text_.find_last_not_of(' ') + 1);
        text_ += '\n';
        column_ = 0;
    }

    const std::string& Written() const { return text_; }

  private:
    const bool has_colour_;
    const size_t width_;
    std::string text_;
    size_t column_ = 0;
};

// "[#####...............] "; empty for a field without bar or value.
std::vector<Text> DrawBar(const Json& fields, const std::string& field, Verdict verdict) {
    const auto* const bar = std::find_if(std::begin(kBars), std::end(kBars),
                                         [&](const Bar& one) { return one.field == field; });
    const auto value = Reading(fields, field);
    if (bar == std::end(kBars) || !value) return {};
    const double part = std::clamp((*value - bar->empty) / (bar->full - bar->empty), 0.0, 1.0);
    const auto filled = static_cast<size_t>(std::lround(part * kBarWidth));
    return {
        {"["}, {std::string(filled, '#'), verdict}, {std::string(kBarWidth - filled, '.') + "] "}};
}

std::vector<Text> Reasons(const Assessment& assessment) {
    std::vector<Text> reasons;
    for (const Finding& finding : assessment.BySeverity()) reasons.push_back({finding.reason});
    return reasons;
}

Line VerdictLine(const std::string& label, const Assessment& assessment) {
    return {label, {{NameOf(assessment.verdict), assessment.verdict}, {": "}}, Reasons(assessment)};
}

std::vector<Line> LinesFor(const Result& result, const std::optional<Assessment>& assessment,
                           bool has_bars) {
    const Json* const fields = result.answer.Fields();
    if (fields == nullptr) return {{"Result", {}, {{"none"}}}};
    std::vector<Line> lines;
    for (const auto& [name, value] : fields->items()) {
        const std::string label = Label(name);
        const std::string words = Words(*fields, name);
        if (label.empty() || words.empty()) continue;
        const Verdict verdict =
            assessment ? assessment->On(name, result.partition) : Verdict::kUnknown;
        const bool is_finding = verdict > Verdict::kOk;
        lines.push_back({label,
                         has_bars ? DrawBar(*fields, name, verdict) : std::vector<Text>(),
                         {{words, is_finding ? verdict : Verdict::kUnknown}}});
    }
    return lines;
}

std::vector<Section> SectionsFor(const Document& document, bool has_bars) {
    std::vector<Section> sections;
    for (const Result& result : document.results) {
        if (result.answer.error) continue;
        const std::string heading = result.call == Call::kFilesystem
                                        ? "Filesystem " + Printable(result.partition)
                                        : Label(NameOf(result.call));
        sections.push_back({heading, LinesFor(result, document.assessment, has_bars)});
    }
    if (!sections.empty() && document.results.size() == 1 && document.assessment) {
        sections.front().lines.push_back(VerdictLine("Verdict", *document.assessment));
    }
    return sections;
}

}  // namespace

std::string DiskTitle(const Document& document) {
    const Result* const info = document.Find(Call::kInfo);
    const Json* const fields = info != nullptr ? info->answer.Fields() : nullptr;
    if (fields == nullptr) return "Disk";
    std::vector<std::string> parts{ModelWords(*fields)};
    if (Reported(*fields, "type") != nullptr) parts.push_back(Words(*fields, "type"));
    if (const auto size = Reading(*fields, "size")) parts.push_back(DecimalSize(*size));
    std::string text;
    for (const std::string& part : parts) {
        text.append(text.empty() || part.empty() ? "" : ", ").append(part);
    }
    return text.empty() ? "Disk" : text;
}

std::string PlainText(const Document& document, bool decorated, size_t width) {
    const std::vector<Section> sections =
        SectionsFor(document, decorated && (width == 0 || width >= kLeastWidthForBars));
    size_t label_width = 0;
    for (const Section& section : sections) {
        for (const Line& line : section.lines) {
            label_width = std::max(label_width, line.label.size());
        }
    }
    if (width != 0) label_width = std::min(label_width, width / 2);
    Writer writer(decorated, width);
    const bool has_headings = document.results.size() > 1;
    if (has_headings && !sections.empty() && document.assessment) {
        const Line line = VerdictLine(DiskTitle(document) + ": ", *document.assessment);
        writer.Write({line.label});
        writer.WriteLine(line.start, line.paragraphs);
    }
    for (const Section& section : sections) {
        if (has_headings) writer.WriteLine({}, {{}, {section.heading}});
        const std::string margin = has_headings ? "  " : "";
        for (const auto& [label, start, paragraphs] : section.lines) {
            const size_t padding = std::max(label_width, label.size()) + 1 - label.size();
            writer.Write({margin + label + ":" + std::string(padding, ' ')});
            writer.WriteLine(start, paragraphs);
        }
    }
    return writer.Written();
}

}  // namespace disk_info::cli
