#include "plain_text.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <sstream>
#include <utility>
#include <vector>

namespace disk_info::client {

namespace {

using Line = std::pair<std::string, std::string>;  // name, value
struct Section {
    std::string heading;
    std::vector<Line> lines;
};

// "numberOfMediaErrors" is "Number of media errors"; acronyms and single letters stay capital.
std::string label(const std::string& key) {
    std::string words;
    for (size_t i = 0; i < key.size(); ++i) {
        const auto c = static_cast<unsigned char>(key[i]);
        if (std::isupper(c) == 0) {
            words += key[i];
        } else {
            words += ' ';
            words += static_cast<char>(i + 1 == key.size() ? c : std::tolower(c));
        }
    }
    const bool acronym = words.starts_with("ufs ") || words.starts_with("ffu ");
    std::transform(words.begin(), words.begin() + (acronym ? 3 : 1), words.begin(), ::toupper);
    return words;
}

std::string valueText(const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (!value.is_string()) return value.dump();
    std::string text = value.get<std::string>();
    // Identity texts come padded with blanks, which nobody can see.
    text.erase(text.find_last_not_of(' ') + 1);
    return text.empty() ? "-" : printable(text);
}

Section section(const std::string& heading, const Json& answer) {
    if (answer.is_null()) return {heading, {{"Result", "none"}}};
    if (const std::string error = errorText(answer); !error.empty()) {
        return {heading, {{"Not available", error}}};
    }
    const bool is_disk = answer.contains("nvme") || answer.contains("ufs");
    const Json& fields = is_disk ? answer.front() : answer;
    Section result{heading, {}};
    for (const auto& [key, value] : fields.items()) {
        // The exact text of a large number stands beside the number for JSON readers alone.
        if (!key.ends_with("_s")) result.lines.emplace_back(label(key), valueText(value));
    }
    return result;
}

std::vector<Section> sections(const Json& document) {
    std::vector<Section> result;
    for (const auto& [key, answer] : document.items()) {
        if (key == "schemaVersion") continue;
        if (key != "filesystems") {
            result.push_back(section(label(key), answer));
            continue;
        }
        for (const auto& [partition, filesystem] : answer.items()) {
            result.push_back(section("Filesystem " + printable(partition), filesystem));
        }
    }
    return result;
}

}  // namespace

std::string printable(const std::string& text) {
    const std::string quoted =
        Json(text).dump(-1, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2);
}

std::string errorText(const Json& answer) {
    if (!answer.is_object() || !answer.contains("error")) return "";
    const Json& error = answer["error"];
    return error["kind"].get<std::string>() + " error " + error["code"].dump();
}

std::string plainText(const Json& document) {
    const std::vector<Section> all = sections(document);
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

}  // namespace disk_info::client
