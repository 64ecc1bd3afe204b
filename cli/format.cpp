#include "format.h"

#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <initializer_list>

namespace disk_info::cli {

namespace {

// The limits are those at which a number is rounded to one digit more.
std::string Scaled(double bytes, double step, std::initializer_list<const char*> units) {
    const char* const* unit = units.begin();
    for (; bytes >= step - 0.5 && unit + 1 != units.end(); ++unit) bytes /= step;
    const bool is_exact = unit == units.begin();
    return Format("%.*f %s", is_exact || bytes >= 99.95 ? 0 : bytes >= 9.995 ? 1 : 2, bytes, *unit);
}

}  // namespace

std::string Format(const char* pattern, ...) {
    char text[64];
    va_list values;
    va_start(values, pattern);
    (void)std::vsnprintf(text, sizeof(text), pattern, values);
    va_end(values);
    return text;
}

std::optional<double> NumberOf(const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
    if (value.is_number()) return value.get<double>();
    if (!value.is_string()) return std::nullopt;
    const auto& text = value.get_ref<const std::string&>();
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const end = text.data() + text.size();
    uint32_t number = 0;
    const auto parsed =
        std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, number, hexadecimal ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return number;
}

std::string DecimalSize(double bytes) {
    return Scaled(bytes, 1000, {"B", "kB", "MB", "GB", "TB", "PB", "EB"});
}

std::string BinarySize(double bytes) {
    return Scaled(bytes, 1024, {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"});
}

std::string Printable(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    const std::string json =
        Json(text).dump(-1, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace);
    return json.substr(1, json.size() - 2);
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace disk_info::cli
