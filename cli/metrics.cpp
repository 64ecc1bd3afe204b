#include "metrics.h"

#include <charconv>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include "fields.h"
#include "format.h"

namespace disk_info::cli {

namespace {

struct Sample {
    std::string labels;  // "" or in braces
    double value;
};
using Samples = std::vector<Sample>;

std::string LabelText(const std::string& name, const std::string& value) {
    return name + "=" + Quoted(value);
}
std::string OneLabel(const std::string& name, const std::string& value) {
    return "{" + LabelText(name, value) + "}";
}

// Null if the call failed or returned no result.
const Json* FieldsOf(const Document& document, Call call) {
    const Result* const result = document.Find(call);
    return result != nullptr ? result->answer.Fields() : nullptr;
}

Samples Up(const Document& document) {
    Samples samples;
    for (const Result& result : document.results) {
        std::string name = NameOf(result.call);
        if (result.call == Call::kFilesystem) name += "_" + result.partition;
        samples.push_back({OneLabel("call", name), result.answer.Fields() != nullptr ? 1.0 : 0.0});
    }
    return samples;
}

Samples Identity(const Document& document) {
    constexpr struct {
        const char* field;
        const char* label;
    } kLabels[] = {
        {"type", "type"},
        {"vendor", "vendor"},
        {"modelNumber", "model"},
        {"serialNumber", "serial"},
        {"firmwareRevision", "firmware_revision"},
        {"versionMajor", "version"},
        {"specVersion", "version"},
    };
    const Json* const fields = FieldsOf(document, Call::kInfo);
    if (fields == nullptr) return {};
    std::string labels;
    for (const auto& [field, label] : kLabels) {
        if (Reported(*fields, field) == nullptr) continue;
        labels += (labels.empty() ? "{" : ",") + LabelText(label, Words(*fields, field));
    }
    if (labels.empty()) return {};
    return {{labels + "}", 1}};
}

Samples Verdicts(const Document& document) {
    Samples samples;
    for (size_t i = 0; i < std::size(kVerdictNames); ++i) {
        const bool is_set =
            document.assessment && document.assessment->verdict == static_cast<Verdict>(i);
        samples.push_back({OneLabel("verdict", kVerdictNames[i]), is_set ? 1.0 : 0.0});
    }
    return samples;
}

Samples CriticalWarnings(const Document& document) {
    const Json* const fields = FieldsOf(document, Call::kHealth);
    const auto warnings = fields != nullptr ? Reading(*fields, "criticalWarning") : std::nullopt;
    if (!warnings) return {};
    Samples samples;
    auto bits = static_cast<unsigned>(*warnings);
    for (const CriticalWarning& warning : kCriticalWarnings) {
        samples.push_back({OneLabel("warning", warning.key), (bits & 1) != 0 ? 1.0 : 0.0});
        bits >>= 1;
    }
    return samples;
}

Samples FilesystemErrors(const Document& document) {
    Samples samples;
    for (const Result& result : document.results) {
        const Json* const fields = result.answer.Fields();
        if (result.call != Call::kFilesystem || fields == nullptr) continue;
        const auto errors = Reading(*fields, "errorCount");
        if (errors) samples.push_back({OneLabel("partition", result.partition), *errors});
    }
    return samples;
}

enum class Type { kGauge, kCounter };
using enum Type;
using enum Call;

struct Family {
    const char* name;  // ends in the unit, if there is one
    Type type;
    const char* unit;
    const char* help;
    Samples (*collect)(const Document& document) = nullptr;  // null: from its rows in kSources
};

// In output order.
constexpr Family kFamilies[] = {
    {"up", kGauge, "", "1 if the service answered the call, otherwise 0.", Up},
    {"identity_info", kGauge, "", "The disk that holds the data partition.", Identity},
    {"size_bytes", kGauge, "bytes", "Size of the disk."},
    {"verdict", kGauge, "", "1 for the verdict on the disk, 0 for the others.", Verdicts},
    {"life_used_ratio", kGauge, "ratio",
     "Used share of the expected life; it can exceed 1. For a UFS disk it is the lower end of the "
     "reported range."},
    {"spare_ratio", kGauge, "ratio", "Share of the spare blocks that is left."},
    {"spare_threshold_ratio", kGauge, "ratio", "Share below which the spare is critical."},
    {"critical_warning", kGauge, "", "Critical warnings of an NVMe disk, 1 if raised.",
     CriticalWarnings},
    {"pre_end_of_life", kGauge, "",
     "Reserved blocks of a UFS disk: 1 normal, 2 warning, 3 urgent."},
    {"written_bytes", kCounter, "bytes", "Data written to the disk by its host."},
    {"media_errors", kCounter, "", "Media errors of an NVMe disk."},
    {"error_log_entries", kCounter, "",
     "Entries in the error log of an NVMe disk, including rejected commands."},
    {"io_errors", kCounter, "", "Requests to a UFS disk that ended with an error."},
    {"power_state", kGauge, "", "Power state of an NVMe disk; 0 uses the most power."},
    {"active", kGauge, "", "1 if the disk is in a state that handles input and output."},
    {"filesystem_errors", kCounter, "", "Errors that ext4 counted on the partition.",
     FilesystemErrors},
};

// Fields that are samples: (reading + plus) * times / per.
constexpr struct {
    const char* family;
    Call call;
    const char* field;
    const char* labels = "";
    double plus = 0;
    double times = 1;
    double per = 1;
} kSources[] = {
    {"size_bytes", kInfo, "size"},
    {"life_used_ratio", kHealth, "percentageUsed", "", 0, 1, 100},
    {"life_used_ratio", kHealth, "deviceLifeTimeEstimationA", R"({estimation="a"})", -1, 1, 10},
    {"life_used_ratio", kHealth, "deviceLifeTimeEstimationB", R"({estimation="b"})", -1, 1, 10},
    {"spare_ratio", kHealth, "availableSpare", "", 0, 1, 100},
    {"spare_threshold_ratio", kHealth, "availableSpareThreshold", "", 0, 1, 100},
    {"pre_end_of_life", kHealth, "preEndOfLifeInfo"},
    {"written_bytes", kHealth, "dataUnitsWritten", "", 0, 512'000},
    {"media_errors", kHealth, "numberOfMediaErrors"},
    {"error_log_entries", kHealth, "numberOfErrorLogEntries"},
    {"io_errors", kHealth, "totalNumberOfErrors"},
    {"power_state", kPower, "currentPowerState"},
    {"active", kPower, "isOperational"},
    {"active", kPower, "isActive"},
};

Samples SamplesOf(const Family& family, const Document& document) {
    if (family.collect != nullptr) return family.collect(document);
    Samples samples;
    for (const auto& source : kSources) {
        if (std::string_view(source.family) != family.name) continue;
        const Json* const fields = FieldsOf(document, source.call);
        const auto reading = fields != nullptr ? Reading(*fields, source.field) : std::nullopt;
        if (!reading) continue;
        const double value = (*reading + source.plus) * source.times / source.per;
        // As in JSON, an amount above 64 bits is impossible.
        if (value <= 0x1p64) samples.push_back({source.labels, value});
    }
    return samples;
}

// A double, as collectors store it, without an exponent.
std::string ValueText(double value) {
    char text[400];
    const auto end = std::to_chars(text, text + sizeof(text), value, std::chars_format::fixed).ptr;
    return {text, end};
}

// The lines before the samples of a family. In the Prometheus format they name the samples; in
// OpenMetrics they name the family, which is without the "_total" of a counter's samples.
std::string Description(const Family& family, const std::string& sample, MetricsFormat format) {
    const std::string type = family.type == kCounter ? " counter\n" : " gauge\n";
    if (format == MetricsFormat::kPrometheus) {
        return "# HELP " + sample + " " + family.help + "\n# TYPE " + sample + type;
    }
    const std::string name = std::string("disk_info_") + family.name;
    std::string text = "# TYPE " + name + type;
    if (*family.unit != '\0') text += "# UNIT " + name + " " + family.unit + "\n";
    return text + "# HELP " + name + " " + family.help + "\n";
}

// "" for a family without samples.
std::string FamilyText(const Family& family, const Samples& samples, MetricsFormat format) {
    if (samples.empty()) return "";
    const std::string name =
        std::string("disk_info_") + family.name + (family.type == kCounter ? "_total" : "");
    std::string text = Description(family, name, format);
    for (const Sample& sample : samples) {
        text += name + sample.labels + " " + ValueText(sample.value) + "\n";
    }
    return text;
}

}  // namespace

std::string MetricsText(const Document& document, MetricsFormat format) {
    std::string text;
    for (const Family& family : kFamilies) {
        text += FamilyText(family, SamplesOf(family, document), format);
    }
    return format == MetricsFormat::kOpenMetrics ? text + "# EOF\n" : text;
}

}  // namespace disk_info::cli
