// What the fields of an answer mean to people: one table, keyed by the field's name, says which
// value stands for "not reported" and how the others read in words. `fields` is always the object
// of one answer: the NVMe or UFS arm, or a filesystem's fields. Texts from disks are hostile: what
// comes out of here may stand on a terminal.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "json.h"

namespace disk_info::client {

// The bits of an NVMe disk's critical warning from bit 0 on: a name for machines and one for
// people. Source: NVM Express Base, SMART / Health Information log.
struct CriticalWarning {
    const char* key;
    const char* words;
};
inline constexpr std::array<CriticalWarning, 6> kCriticalWarnings{{
    {"spare", "the available spare is below its threshold"},
    {"temperature", "the temperature is beyond a threshold"},
    {"reliability", "reliability is degraded by media or internal errors"},
    {"read_only", "the media is read-only"},
    {"memory_backup", "the backup of the volatile memory failed"},
    {"persistent_memory", "the persistent memory region is read-only or unreliable"},
}};

// The fields of one answer; null where it is an error or no result.
const Json* fieldsOf(const Json& answer);

// Whether the disk reports the field. Empty texts are not reported, and zeros where 0 means so.
bool reported(const Json& fields, const std::string& field);

// The field as a number, of a text also one in sysfs form ("0x0A"), of a bool 0 or 1. Empty: it is
// not reported, or no number.
std::optional<double> reading(const Json& fields, const std::string& field);

// How the field is called; "" where another field's words tell it along.
std::string label(const std::string& field);

// The field in words; "not reported" or "-" where the disk does not report it.
std::string words(const Json& fields, const std::string& field);

// `text` as it may stand on a terminal: bytes that are no UTF-8 are replaced, everything beyond
// printable ASCII is escaped as in JSON, and the blanks that pad identity texts are gone.
std::string printable(std::string text);

}  // namespace disk_info::client
