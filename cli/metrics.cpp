#include "metrics.h"

#include <charconv>
#include <map>
#include <optional>
#include <vector>

#include "assessment.h"
#include "explanation.h"

namespace disk_info::client {

namespace {

// In the order of the output. A unit is also the end of the name.
constexpr struct {
    const char* name;
    const char* type;
    const char* unit;
    const char* help;
} kFamilies[] = {
    {"up", "gauge", "", "Whether the service answered the call."},
    {"identity_info", "gauge", "", "The disk behind the data partition."},
    {"size_bytes", "gauge", "bytes", "Size of the disk."},
    {"verdict", "gauge", "", "1 for the verdict on the disk, 0 for the others."},
    {"life_used_ratio", "gauge", "ratio",
     "Share of the expected life used, may exceed 1; of a UFS disk the lower end of what it "
     "tells."},
    {"spare_ratio", "gauge", "ratio", "Share of the spare blocks that is left."},
    {"spare_threshold_ratio", "gauge", "ratio", "Share below which the spare is critical."},
    {"critical_warning", "gauge", "", "Critical warnings of an NVMe disk, 1 where raised."},
    {"pre_end_of_life", "gauge", "",
     "Reserved blocks of a UFS disk: 1 normal, 2 warning, 3 urgent."},
    {"written_bytes", "counter", "bytes", "Data written to the disk by its host."},
    {"media_errors", "counter", "", "Errors of an NVMe disk's media."},
    {"error_log_entries", "counter", "", "Entries of an NVMe disk's error log, harmless ones too."},
    {"io_errors", "counter", "", "Requests to a UFS disk that ended with an error."},
    {"power_state", "gauge", "", "Power state of an NVMe disk, 0 takes the most."},
    {"active", "gauge", "", "Whether the disk is in a state that does input and output."},
    {"filesystem_errors", "counter", "", "Errors that ext4 has counted on the partition."},
};

// Where a value comes from: (reading + plus) * times / per.
constexpr struct {
    const char* call;
    const char* field;
    const char* family;
    const char* labels = "";
    double plus = 0;
    double times = 1;
    double per = 1;
} kValues[] = {
    {"info", "size", "size_bytes"},
    {"health", "percentageUsed", "life_used_ratio", "", 0, 1, 100},
    {"health", "deviceLifeTimeEstimationA", "life_used_ratio", R"({estimation="a"})", -1, 1, 10},
    {"health", "deviceLifeTimeEstimationB", "life_used_ratio", R"({estimation="b"})", -1, 1, 10},
    {"health", "availableSpare", "spare_ratio", "", 0, 1, 100},
    {"health", "availableSpareThreshold", "spare_threshold_ratio", "", 0, 1, 100},
    {"health", "preEndOfLifeInfo", "pre_end_of_life"},
    {"health", "dataUnitsWritten", "written_bytes", "", 0, 512'000},
    {"health", "numberOfMediaErrors", "media_errors"},
    {"health", "numberOfErrorLogEntries", "error_log_entries"},
    {"health", "totalNumberOfErrors", "io_errors"},
    {"power", "currentPowerState", "power_state"},
    {"power", "isOperational", "active"},
    {"power", "isActive", "active"},
};

constexpr struct {
    const char* field;
    const char* label;
} kIdentity[] = {
    {"type", "type"},
    {"vendor", "vendor"},
    {"modelNumber", "model"},
    {"serialNumber", "serial"},
    {"firmwareRevision", "firmware"},
    {"versionMajor", "version"},
    {"specVersion", "version"},
};

// One label of an already printable value, which holds no line feed.
std::string labelText(const std::string& name, const std::string& value) {
    std::string text = name + "=\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    return text + '"';
}

// Samples by family. Numbers are doubles, as collectors keep them, written out without exponent.
class Samples {
  public:
    void add(const std::string& family, const std::string& labels, double value) {
        char text[400];
        const auto end =
            std::to_chars(text, text + sizeof text, value, std::chars_format::fixed).ptr;
        samples_[family].push_back(labels + " " + std::string(text, end));
    }

    std::string text() const {
        std::string all;
        for (const auto& family : kFamilies) {
            const auto found = samples_.find(family.name);
            if (found == samples_.end()) continue;
            const std::string name = std::string("disk_info_") + family.name;
            const std::string suffix = family.type == std::string("counter") ? "_total" : "";
            all += "# TYPE " + name + " " + family.type + "\n";
            if (*family.unit != '\0') all += "# UNIT " + name + " " + family.unit + "\n";
            all += "# HELP " + name + " " + family.help + "\n";
            for (const std::string& sample : found->second) {
                all.append(name).append(suffix).append(sample).append("\n");
            }
        }
        return all + "# EOF\n";
    }

  private:
    std::map<std::string, std::vector<std::string>> samples_;
};

std::string oneLabel(const std::string& name, const std::string& value) {
    return "{" + labelText(name, value) + "}";
}

bool isAnswered(const Json& answer) {
    return fieldsOf(answer) != nullptr;
}

void addIdentity(const Json& fields, Samples* samples) {
    std::string labels;
    for (const auto& one : kIdentity) {
        if (!reported(fields, one.field)) continue;
        labels += (labels.empty() ? "{" : ",") + labelText(one.label, words(fields, one.field));
    }
    if (!labels.empty()) samples->add("identity_info", labels + "}", 1);
}

void addHealth(const Json& health, Samples* samples) {
    const Verdict verdict = assess(health).verdict;
    for (size_t i = 0; i < kVerdictNames.size(); ++i) {
        samples->add("verdict", oneLabel("verdict", kVerdictNames[i]),
                     static_cast<size_t>(verdict) == i ? 1 : 0);
    }
    const auto warnings =
        isAnswered(health) ? reading(*fieldsOf(health), "criticalWarning") : std::nullopt;
    for (size_t bit = 0; warnings && bit < kCriticalWarnings.size(); ++bit) {
        samples->add("critical_warning", oneLabel("warning", kCriticalWarnings[bit].key),
                     static_cast<unsigned>(*warnings) >> bit & 1);
    }
}

}  // namespace

std::string metricsText(const Json& document) {
    Samples samples;
    for (const char* call : {"info", "health", "power"}) {
        samples.add("up", oneLabel("call", call), isAnswered(document[call]) ? 1 : 0);
    }
    for (const auto& [partition, answer] : document["filesystems"].items()) {
        const Json* const fields = fieldsOf(answer);
        samples.add("up", oneLabel("call", "fs_" + partition), fields != nullptr ? 1 : 0);
        const auto errors = fields != nullptr ? reading(*fields, "errorCount") : std::nullopt;
        if (errors) samples.add("filesystem_errors", oneLabel("partition", partition), *errors);
    }
    if (isAnswered(document["info"])) addIdentity(*fieldsOf(document["info"]), &samples);
    addHealth(document["health"], &samples);
    for (const auto& value : kValues) {
        const Json* const fields = fieldsOf(document[value.call]);
        const auto number = fields != nullptr ? reading(*fields, value.field) : std::nullopt;
        if (!number) continue;
        samples.add(value.family, value.labels, (*number + value.plus) * value.times / value.per);
    }
    return samples.text();
}

}  // namespace disk_info::client
