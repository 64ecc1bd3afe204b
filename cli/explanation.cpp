#include "explanation.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace disk_info::client {

namespace {

// The value as a number, reported or not.
std::optional<double> number(const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
    if (value.is_number()) return value.get<double>();
    if (!value.is_string()) return std::nullopt;
    const auto& text = value.get_ref<const std::string&>();
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const end = text.data() + text.size();
    uint32_t result = 0;
    const auto parsed =
        std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, result, hexadecimal ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return result;
}

double numberAt(const Json& fields, const char* field) {
    return fields.contains(field) ? number(fields[field]).value_or(0) : 0;
}

bool emptyText(const Json& fields, const char* field) {
    return fields.value(field, "-").empty();
}

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
    char text[64];
    va_list values;
    va_start(values, pattern);
    (void)std::vsnprintf(text, sizeof text, pattern, values);
    va_end(values);
    return text;
}

std::string scaled(double bytes, double step, std::initializer_list<const char*> units) {
    const char* const* unit = units.begin();
    for (; bytes >= step && unit + 1 != units.end(); ++unit) bytes /= step;
    return format("%.1f ", bytes) + *unit;
}

std::string inThousands(double bytes) {
    return scaled(bytes, 1000, {"B", "kB", "MB", "GB", "TB", "PB", "EB"});
}

// Whether a field is reported. The neighbours often tell more than the value itself.
using Known = bool (*)(const Json& fields, const Json& value);

// Identity is read as a whole: without a type nothing was.
bool identified(const Json& fields, const Json& /*value*/) {
    return !emptyText(fields, "type");
}
bool notZero(const Json& /*fields*/, const Json& value) {
    return number(value).value_or(0) > 0;
}
// Anything else is no field of bits.
bool isByte(const Json& /*fields*/, const Json& value) {
    const double bits = number(value).value_or(-1);
    return bits >= 0 && bits <= 0xFF;
}
bool anyVersion(const Json& fields, const Json& /*value*/) {
    return numberAt(fields, "versionMajor") > 0;  // VER was 0 before NVMe 1.2
}
// Both 0 without the warning for it is what a disk shows that does not count its spare.
bool hasSpare(const Json& fields, const Json& /*value*/) {
    return numberAt(fields, "availableSpare") > 0 ||
           numberAt(fields, "availableSpareThreshold") > 0 ||
           (static_cast<int>(numberAt(fields, "criticalWarning")) & 1) != 0;
}
bool hasPowerState(const Json& fields, const Json& /*value*/) {
    return numberAt(fields, "currentPowerState") >= 0;
}
bool hasLinkState(const Json& fields, const Json& /*value*/) {
    return !emptyText(fields, "linkState");
}
// Features of a UFS disk are bits of one attribute; an NVMe disk has no such field.
bool hasFeatures(const Json& fields, const Json& value) {
    return identified(fields, value) && !emptyText(fields, "extendedFeatureSupport");
}
bool hasWriteBooster(const Json& fields, const Json& value) {
    return numberAt(fields, "writeBoosterSupport") > 0 || number(value).value_or(0) > 0;
}
// Bytes of the UFS Health Descriptor: what lies beyond the last one defined is not known either.
template <int kLast>
bool hasLevel(const Json& /*fields*/, const Json& value) {
    const double level = number(value).value_or(0);
    return level >= 1 && level <= kLast;
}
bool hasFilesystemError(const Json& fields, const Json& /*value*/) {
    return numberAt(fields, "errorCount") > 0;
}
bool toldAtAll(const Json& /*fields*/, const Json& value) {
    return value != "undefined";
}

// How a reported value reads.
using Words = std::string (*)(const Json& fields, const Json& value);

std::string percent(const Json& /*fields*/, const Json& value) {
    return value.dump() + " %";
}
std::string percentOfLife(const Json& fields, const Json& value) {
    return percent(fields, value) + (value > 100 ? ", beyond its expected life" : "");
}
std::string share(const Json& /*fields*/, const Json& value) {
    return format("%.3g %% of the disk", value.get<double>() * 100);
}
std::string size(const Json& /*fields*/, const Json& value) {
    const auto bytes = value.get<double>();
    return inThousands(bytes) + " (" +
           scaled(bytes, 1024, {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"}) + ")";
}
// A data unit is 1000 blocks of 512 bytes.
std::string dataUnits(const Json& /*fields*/, const Json& value) {
    return inThousands(value.get<double>() * 512'000);
}
std::string nvmeVersion(const Json& fields, const Json& value) {
    return value.dump() + format(".%.0f.%.0f", numberAt(fields, "versionMinor"),
                                 numberAt(fields, "versionTertiary"));
}
// 0xJJMS in decimal digits: 0x0310 is 3.1.
std::string ufsVersion(const Json& /*fields*/, const Json& value) {
    const auto digits = value.get<unsigned>();
    const std::string suffix = (digits & 0xF) != 0 ? format(".%u", digits & 0xF) : "";
    return format("%u.%u", (digits >> 12) * 10 + (digits >> 8 & 0xF), digits >> 4 & 0xF) + suffix;
}
std::string lifeTime(const Json& /*fields*/, const Json& value) {
    const double level = *number(value);
    if (level > 10) return "beyond its expected life";
    return format("%.0f %% to %.0f %% used", level * 10 - 10, level * 10);
}
std::string criticalWarning(const Json& /*fields*/, const Json& value) {
    const auto bits = value.get<unsigned>();
    std::string all;
    for (size_t bit = 0; bit < 8; ++bit) {
        if ((bits >> bit & 1) == 0) continue;
        all += (all.empty() ? "" : "; ") + (bit < kCriticalWarnings.size()
                                                ? std::string(kCriticalWarnings[bit].words)
                                                : "bit " + std::to_string(bit));
    }
    return all.empty() ? "none" : all;
}

// Values that have a name each. The UFS ones: JEDEC UFS, Health, Unit and Geometry Descriptors;
// the error codes: Linux, fs/ext4/ext4.h, EXT4_ERR_*.
const struct {
    const char* field;
    const char* value;
    const char* words;
} kNamedValues[] = {
    {"preEndOfLifeInfo", "1", "normal"},
    {"preEndOfLifeInfo", "2", "warning, 80 % of the reserved blocks are used"},
    {"preEndOfLifeInfo", "3", "urgent"},
    {"provisioningType", "0", "no thin provisioning reported"},
    {"provisioningType", "2", "thin, discarded blocks may read as anything"},
    {"provisioningType", "3", "thin, discarded blocks read as zeros"},
    {"writeBoosterBufferType", "0", "dedicated to a logical unit"},
    {"writeBoosterBufferType", "1", "shared by all logical units"},
    {"writeBoosterBufferType", "2", "dedicated or shared"},
    {"writeBoosterSupport", "0", "no"},
    {"writeBoosterSupport", "1", "yes"},
    {"discardReadValue", "0", "all bytes 0x00"},
    {"discardReadValue", "1", "all bytes 0xFF"},
    {"discardReadValue", "any", "anything"},
    {"lastErrorCode", "1", "unknown"},
    {"lastErrorCode", "2", "I/O error"},
    {"lastErrorCode", "3", "out of memory"},
    {"lastErrorCode", "4", "bad checksum"},
    {"lastErrorCode", "5", "corrupted"},
    {"lastErrorCode", "6", "no space"},
};

// Fields that need more than their value printed. A null label is made from the name, "" hides.
// `missing` stands where the value is not known: "-" where there cannot be one.
const struct Rule {
    const char* field;
    const char* label;
    Known known;
    Words words;
    const char* missing = "not reported";
} kRules[] = {
    {"versionMajor", "NVMe version", anyVersion, nvmeVersion},
    {"versionMinor", "", anyVersion, nullptr},
    {"versionTertiary", "", anyVersion, nullptr},
    {"ffuSupport", "Firmware update in the field", hasFeatures, nullptr},
    {"size", nullptr, notZero, size},
    {"availableSpare", nullptr, hasSpare, percent},
    {"availableSpareThreshold", nullptr, hasSpare, percent},
    {"percentageUsed", "Expected life used", nullptr, percentOfLife},
    {"criticalWarning", nullptr, isByte, criticalWarning},
    {"dataUnitsWritten", "Data written", notZero, dataUnits},  // NVMe: 0 is "not reported"
    {"numberOfMediaErrors", "Media errors", nullptr, nullptr},
    {"numberOfErrorLogEntries", "Error log entries", nullptr, nullptr},
    {"discardReadValue", "Discarded blocks read as", toldAtAll, nullptr},
    {"currentPowerState", nullptr, hasPowerState, nullptr},
    {"isOperational", "Operational", hasPowerState, nullptr},
    {"specVersion", "UFS version", notZero, ufsVersion},
    {"provisioningType", "Provisioning", identified, nullptr},
    {"writeBoosterSupport", "Write Booster", hasFeatures, nullptr},
    {"writeBoosterEnabled", "Write Booster is on", hasWriteBooster, nullptr, "-"},
    {"writeBoosterBufferPreserveUserSpaceEn", "Write Booster spares user space", hasWriteBooster,
     nullptr, "-"},
    {"writeBoosterBufferType", "Write Booster buffer", hasWriteBooster, nullptr, "-"},
    {"writeBoosterFraction", "Write Booster size", notZero, share, "-"},
    {"writeBoosterCurrentAllocUnits", "Write Booster units", notZero, nullptr, "-"},
    {"writeBoosterMaxAllocUnits", "Write Booster units at most", notZero, nullptr, "-"},
    {"ufsFeatures", "UFS features", nullptr, nullptr},
    {"extendedFeatureSupport", "UFS extended features", nullptr, nullptr},
    {"preEndOfLifeInfo", "Reserved blocks", hasLevel<3>, nullptr},
    {"deviceLifeTimeEstimationA", "Life time estimation A", hasLevel<11>, lifeTime},
    {"deviceLifeTimeEstimationB", "Life time estimation B", hasLevel<11>, lifeTime},
    {"totalNumberOfErrors", "I/O errors", nullptr, nullptr},
    {"isActive", "Active", hasLinkState, nullptr},
    {"lastErrorFunction", nullptr, hasFilesystemError, nullptr, "-"},
    {"lastErrorCode", "Last error", hasFilesystemError, nullptr, "-"},
};

const Rule& ruleOf(const std::string& field) {
    static constexpr Rule plain{"", nullptr, nullptr, nullptr};
    const auto* const rule = std::find_if(std::begin(kRules), std::end(kRules),
                                          [&](const Rule& one) { return one.field == field; });
    return rule != std::end(kRules) ? *rule : plain;
}

std::string namedValue(const std::string& field, const Json& value) {
    const std::optional<double> of_text = number(value);
    const std::string text = of_text             ? format("%.0f", *of_text)
                             : value.is_string() ? value.get<std::string>()
                                                 : "";
    for (const auto& named : kNamedValues) {
        if (named.field == field && named.value == text) return named.words;
    }
    return "";
}

}  // namespace

const Json* fieldsOf(const Json& answer) {
    if (!answer.is_object() || answer.contains("error")) return nullptr;
    return answer.contains("nvme") || answer.contains("ufs") ? &answer.front() : &answer;
}

bool reported(const Json& fields, const std::string& field) {
    if (!fields.contains(field)) return false;
    const Json& value = fields[field];
    if (value.is_string() && printable(value.get<std::string>()).empty()) return false;
    const Rule& rule = ruleOf(field);
    return rule.known == nullptr || rule.known(fields, value);
}

std::optional<double> reading(const Json& fields, const std::string& field) {
    return reported(fields, field) ? number(fields[field]) : std::nullopt;
}

// "linkState" is "Link state".
std::string label(const std::string& field) {
    if (const Rule& rule = ruleOf(field); rule.label != nullptr) return rule.label;
    std::string text;
    for (const char c : field) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isupper(byte) != 0) text += ' ';
        text += static_cast<char>(text.empty() ? std::toupper(byte) : std::tolower(byte));
    }
    return text;
}

std::string words(const Json& fields, const std::string& field) {
    const Rule& rule = ruleOf(field);
    if (!reported(fields, field)) return rule.missing;
    const Json& value = fields[field];
    if (rule.words != nullptr) return rule.words(fields, value);
    if (std::string named = namedValue(field, value); !named.empty()) return named;
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    return value.is_string() ? printable(value.get<std::string>()) : value.dump();
}

std::string printable(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    const std::string quoted =
        Json(text).dump(-1, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2);
}

}  // namespace disk_info::client
