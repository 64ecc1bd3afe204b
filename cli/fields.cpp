#include "fields.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdint>
#include <iterator>

#include "format.h"

namespace disk_info::cli {

namespace {

// Null for a missing field.
const Json* ValueAt(const Json& fields, std::string_view name) {
    const auto field = fields.find(name);
    return field != fields.end() ? &*field : nullptr;
}

// 0 for a field that is missing or not a number.
double NumberAt(const Json& fields, std::string_view name) {
    const Json* const value = ValueAt(fields, name);
    return value != nullptr ? NumberOf(*value).value_or(0) : 0;
}

bool IsEmptyText(const Json& fields, const char* name) {
    return fields.value(name, "-").empty();
}

// Whether the disk reports a field. Often another field decides: drives that do not implement a
// feature return 0 for all of its fields.
using Condition = bool (*)(const Json& fields, const Json& value);

// The type is empty if the identity could not be read.
bool HasIdentity(const Json& fields, const Json& /*value*/) {
    return !IsEmptyText(fields, "type");
}
bool IsPositive(const Json& /*fields*/, const Json& value) {
    return NumberOf(value).value_or(0) > 0;
}
bool IsByte(const Json& /*fields*/, const Json& value) {
    const double bits = NumberOf(value).value_or(-1);
    return bits >= 0 && bits <= 0xFF;
}
bool HasVersion(const Json& fields, const Json& /*value*/) {
    return NumberAt(fields, "versionMajor") > 0;  // VER is 0 before NVMe 1.2
}
// Drives that do not track spare report 0 for both and leave the warning bit clear.
bool HasSpare(const Json& fields, const Json& /*value*/) {
    return NumberAt(fields, "availableSpare") > 0 ||
           NumberAt(fields, "availableSpareThreshold") > 0 ||
           (static_cast<int>(NumberAt(fields, "criticalWarning")) & 1) != 0;
}
bool HasPowerState(const Json& fields, const Json& /*value*/) {
    return NumberAt(fields, "currentPowerState") >= 0;
}
bool HasLinkState(const Json& fields, const Json& /*value*/) {
    return !IsEmptyText(fields, "linkState");
}
// The UFS features are bits of extendedFeatureSupport. NVMe answers do not have this field; for
// them only the identity decides.
bool HasFeatures(const Json& fields, const Json& value) {
    return HasIdentity(fields, value) && !IsEmptyText(fields, "extendedFeatureSupport");
}
bool HasWriteBooster(const Json& fields, const Json& value) {
    return NumberAt(fields, "writeBoosterSupport") > 0 || NumberOf(value).value_or(0) > 0;
}
// Bytes of the UFS Health Descriptor: 0 is undefined, values above kLast are reserved.
template <int kLast>
bool HasLevel(const Json& /*fields*/, const Json& value) {
    const double level = NumberOf(value).value_or(0);
    return level >= 1 && level <= kLast;
}
bool HasFilesystemError(const Json& fields, const Json& /*value*/) {
    return NumberAt(fields, "errorCount") > 0;
}
bool IsDefined(const Json& /*fields*/, const Json& value) {
    return value != "undefined";
}

// The words for a reported value.
using Formatter = std::string (*)(const Json& fields, const Json& value);

std::string Checked(bool is_possible, const std::string& words) {
    return is_possible ? words : words + ", an impossible value";
}
std::string Count(const Json& /*fields*/, const Json& value) {
    return Checked(value.get<double>() < 0x1p63, value.dump());
}
std::string Share(const Json& /*fields*/, const Json& value) {
    return Checked(value <= 100, value.dump() + " %");
}
std::string LifeUsed(const Json& /*fields*/, const Json& value) {
    return value.dump() + (value > 100 ? " %, beyond the expected life" : " %");
}
std::string ShareOfDisk(const Json& /*fields*/, const Json& value) {
    const double percent = value.get<double>() * 100;
    return Checked(percent <= 100, Format("%.3g %% of the disk", percent));
}
std::string Size(const Json& /*fields*/, const Json& value) {
    const auto bytes = value.get<double>();
    return Checked(bytes < 1e18, DecimalSize(bytes) + " (" + BinarySize(bytes) + ")");
}
// A data unit is 1000 blocks of 512 bytes. An amount of 1000 EB takes a fast disk thousands of
// years.
std::string DataUnits(const Json& /*fields*/, const Json& value) {
    const double bytes = value.get<double>() * 512'000;
    return bytes < 1e21 ? DecimalSize(bytes) : Checked(false, value.dump() + " data units");
}
// The bits of a text that holds a number; other texts are returned as they are. Source: the Device
// Descriptor of JEDEC UFS, bUFSFeaturesSupport and dExtendedUFSFeaturesSupport.
std::string Features(const Json& /*fields*/, const Json& value) {
    static constexpr const char* kNames[]{"field firmware update",
                                          "production state awareness",
                                          "device life span",
                                          "refresh",
                                          "temperature events",
                                          "temperature events",
                                          "extended temperature range",
                                          "host performance booster",
                                          "Write Booster",
                                          "performance throttling",
                                          "advanced RPMB"};
    const std::optional<double> number = NumberOf(value);
    if (!number) return Printable(value.get<std::string>());
    std::string text;
    for (auto bits = static_cast<uint32_t>(*number); bits != 0; bits &= bits - 1) {
        const auto bit = static_cast<size_t>(std::countr_zero(bits));
        const std::string name = bit < std::size(kNames) ? kNames[bit] : Format("bit %zu", bit);
        if (text.ends_with(name)) continue;
        text += (text.empty() ? "" : ", ") + name;
    }
    return text.empty() ? "none" : text;
}
std::string NvmeVersion(const Json& fields, const Json& value) {
    return value.dump() + Format(".%.0f.%.0f", NumberAt(fields, "versionMinor"),
                                 NumberAt(fields, "versionTertiary"));
}
// The version is BCD: two digits major, one minor, one suffix. 0x0310 is 3.1.
std::string UfsVersion(const Json& /*fields*/, const Json& value) {
    const auto digits = value.get<unsigned>();
    const std::string suffix = (digits & 0xF) != 0 ? Format(".%u", digits & 0xF) : "";
    return Format("%u.%u", (digits >> 12) * 10 + (digits >> 8 & 0xF), digits >> 4 & 0xF) + suffix;
}
// Levels 1 to 10 are steps of 10 %, level 11 is above 100 %.
std::string LifeTimeLevel(const Json& /*fields*/, const Json& value) {
    const double level = NumberOf(value).value_or(0);
    if (level > 10) return "beyond the expected life";
    return Format("%.0f %% to %.0f %% used", level * 10 - 10, level * 10);
}
std::string RaisedWarnings(const Json& /*fields*/, const Json& value) {
    return WarningWords(value.get<unsigned>());
}

// Values with a name. Sources: the Health, Unit and Geometry Descriptors of JEDEC UFS; for
// lastErrorCode, the constants EXT4_ERR_* in fs/ext4/ext4.h of Linux.
const struct {
    const char* field;
    const char* value;
    const char* words;
} kNamedValues[] = {
    {"preEndOfLifeInfo", "1", "normal"},
    {"preEndOfLifeInfo", "2", "warning, 80 % of the reserved blocks are used"},
    {"preEndOfLifeInfo", "3", "urgent"},
    {"provisioningType", "0", "no thin provisioning reported"},
    {"provisioningType", "2", "thin, discarded blocks read as any value"},
    {"provisioningType", "3", "thin, discarded blocks read as zeros"},
    {"writeBoosterBufferType", "0", "dedicated to a logical unit"},
    {"writeBoosterBufferType", "1", "shared by all logical units"},
    {"writeBoosterBufferType", "2", "dedicated or shared"},
    {"writeBoosterSupport", "0", "no"},
    {"writeBoosterSupport", "1", "yes"},
    {"discardReadValue", "0", "all bytes 0x00"},
    {"discardReadValue", "1", "all bytes 0xFF"},
    {"discardReadValue", "any", "any value"},
    {"lastErrorCode", "1", "unknown"},
    {"lastErrorCode", "2", "I/O error"},
    {"lastErrorCode", "3", "out of memory"},
    {"lastErrorCode", "4", "bad checksum"},
    {"lastErrorCode", "5", "corrupted"},
    {"lastErrorCode", "6", "no space"},
};

// Rules for fields whose label, condition or words differ from the default. A null label is derived
// from the field's name; the label "" hides the field. `missing` is the text for a field that is
// not reported; it is "" if the field then does not apply.
const struct Rule {
    std::string_view field;
    const char* label;
    Condition is_reported;
    Formatter words;
    const char* missing = "not reported";
} kRules[] = {
    {"versionMajor", "NVMe version", HasVersion, NvmeVersion},
    {"versionMinor", "", HasVersion, nullptr},
    {"versionTertiary", "", HasVersion, nullptr},
    {"ffuSupport", "Firmware update in the field", HasFeatures, nullptr},
    {"size", nullptr, IsPositive, Size},
    {"availableSpare", nullptr, HasSpare, Share},
    {"availableSpareThreshold", nullptr, HasSpare, Share},
    {"percentageUsed", "Expected life used", nullptr, LifeUsed},
    {"criticalWarning", nullptr, IsByte, RaisedWarnings},
    {"dataUnitsWritten", "Data written", IsPositive, DataUnits},  // NVMe: 0 is "not reported"
    {"numberOfMediaErrors", "Media errors", nullptr, Count},
    {"numberOfErrorLogEntries", "Error log entries", nullptr, Count},
    {"discardReadValue", "Discarded blocks read as", IsDefined, nullptr},
    {"currentPowerState", nullptr, HasPowerState, nullptr},
    {"isOperational", "Operational", HasPowerState, nullptr},
    {"specVersion", "UFS version", IsPositive, UfsVersion},
    {"provisioningType", "Provisioning", HasIdentity, nullptr},
    {"writeBoosterSupport", "Write Booster", HasFeatures, nullptr},
    {"writeBoosterEnabled", "Write Booster enabled", HasWriteBooster, nullptr, ""},
    {"writeBoosterBufferPreserveUserSpaceEn", "Write Booster preserves user space", HasWriteBooster,
     nullptr, ""},
    {"writeBoosterBufferType", "Write Booster buffer", HasWriteBooster, nullptr, ""},
    {"writeBoosterFraction", "Write Booster size", IsPositive, ShareOfDisk, ""},
    {"writeBoosterCurrentAllocUnits", "Write Booster units", IsPositive, nullptr, ""},
    {"writeBoosterMaxAllocUnits", "Write Booster units, maximum", IsPositive, nullptr, ""},
    {"ufsFeatures", "UFS features", nullptr, Features},
    {"extendedFeatureSupport", "UFS extended features", nullptr, Features},
    {"preEndOfLifeInfo", "Reserved blocks", HasLevel<3>, nullptr},
    {"deviceLifeTimeEstimationA", "Life time estimation A", HasLevel<11>, LifeTimeLevel},
    {"deviceLifeTimeEstimationB", "Life time estimation B", HasLevel<11>, LifeTimeLevel},
    {"totalNumberOfErrors", "I/O errors", nullptr, Count},
    {"isActive", "Active", HasLinkState, nullptr},
    {"lastErrorFunction", nullptr, HasFilesystemError, nullptr, ""},
    {"lastErrorCode", "Last error", HasFilesystemError, nullptr, ""},
};

const Rule& RuleFor(std::string_view name) {
    static constexpr Rule kDefault{"", nullptr, nullptr, nullptr};
    const auto* const rule = std::find_if(std::begin(kRules), std::end(kRules),
                                          [&](const Rule& one) { return one.field == name; });
    return rule != std::end(kRules) ? *rule : kDefault;
}

// The value's name in kNamedValues; "" if it has none.
std::string NamedValue(std::string_view field, const Json& value) {
    const std::optional<double> number = NumberOf(value);
    const std::string text = number              ? Format("%.0f", *number)
                             : value.is_string() ? value.get<std::string>()
                                                 : "";
    for (const auto& named : kNamedValues) {
        if (named.field == field && named.value == text) return named.words;
    }
    return "";
}

}  // namespace

const Json* Reported(const Json& fields, std::string_view name) {
    const Json* const value = ValueAt(fields, name);
    if (value == nullptr) return nullptr;
    if (value->is_string() && Printable(value->get<std::string>()).empty()) return nullptr;
    const Rule& rule = RuleFor(name);
    return rule.is_reported == nullptr || rule.is_reported(fields, *value) ? value : nullptr;
}

std::string WarningWords(unsigned bits) {
    std::string raised;
    for (const CriticalWarning& warning : kCriticalWarnings) {
        if ((bits & 1) != 0) raised.append(raised.empty() ? "" : "; ").append(warning.words);
        bits >>= 1;
    }
    return raised.empty() ? "none" : raised;
}

std::string ModelWords(const Json& fields) {
    std::string text;
    for (const char* name : {"vendor", "modelNumber"}) {
        if (Reported(fields, name) == nullptr) continue;
        text.append(text.empty() ? "" : " ").append(Words(fields, name));
    }
    return text;
}

std::optional<double> Reading(const Json& fields, std::string_view name) {
    const Json* const value = Reported(fields, name);
    return value != nullptr ? NumberOf(*value) : std::nullopt;
}

std::string Label(std::string_view name) {
    if (const Rule& rule = RuleFor(name); rule.label != nullptr) return rule.label;
    std::string text;  // "linkState" is "Link state".
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isupper(byte) != 0) text += ' ';
        text += static_cast<char>(text.empty() ? std::toupper(byte) : std::tolower(byte));
    }
    return text;
}

std::string Words(const Json& fields, std::string_view name) {
    const Rule& rule = RuleFor(name);
    const Json* const value = Reported(fields, name);
    if (value == nullptr) return rule.missing;
    if (rule.words != nullptr) return rule.words(fields, *value);
    if (std::string named = NamedValue(name, *value); !named.empty()) return named;
    if (value->is_boolean()) return value->get<bool>() ? "yes" : "no";
    return value->is_string() ? Printable(value->get<std::string>()) : value->dump();
}

}  // namespace disk_info::cli
