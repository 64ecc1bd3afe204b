// The fields of one answer, for people: label, whether the disk reports the field, and its value in
// words or as a number. One table, keyed by the field's name, holds the rules. `fields` is always
// the object of one answer: an NVMe or UFS arm, or a filesystem. Texts from disks are untrusted;
// every text that is returned is safe on a terminal.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "json.h"

namespace disk_info::cli {

// The bits of an NVMe disk's critical warning, from bit 0: a key for programs and words for people.
// Source: NVM Express Base, SMART / Health Information log.
struct CriticalWarning {
    const char* key;
    const char* words;
};
inline constexpr std::array<CriticalWarning, 8> kCriticalWarnings{{
    {"spare", "the available spare is below its threshold"},
    {"temperature", "the temperature is beyond a threshold"},
    {"reliability", "reliability is degraded by media or internal errors"},
    {"read_only", "the media is read-only"},
    {"memory_backup", "the backup of the volatile memory failed"},
    {"persistent_memory", "the persistent memory region is read-only or unreliable"},
    {"bit_6", "bit 6"},  // reserved
    {"bit_7", "bit 7"},
}};

// The field. Null if it is missing, an empty text, or a value that means "not reported".
const Json* Reported(const Json& fields, std::string_view name);

// The words of the bits that are set in a critical warning; "none" if no bit is.
std::string WarningWords(unsigned bits);

// Vendor, if there is one, and model in words; "" if the disk reports neither.
std::string ModelWords(const Json& fields);

// The field as a number. Empty: it is not reported or not a number.
std::optional<double> Reading(const Json& fields, std::string_view name);

// The field's label; "" if the field is shown as part of another one.
std::string Label(std::string_view name);

// The value in words; "not reported" if the disk does not report it, "" if it does not apply.
std::string Words(const Json& fields, std::string_view name);

}  // namespace disk_info::cli
