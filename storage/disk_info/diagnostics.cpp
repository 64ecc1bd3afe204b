#include <base/escape.h>
#include <base/standard_error.h>
#include <disk_info/diagnostics.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace orvane::tavisk::disk_info {
namespace {

bool (*admit_diagnostic)() = nullptr;

}  // namespace

void PrintDiagnostic(std::initializer_list<std::string_view> pieces) {
    if (admit_diagnostic != nullptr && !admit_diagnostic()) return;
    std::string message;
    for (const std::string_view piece : pieces) message += piece;
    base::CutTo(base::kLargestRecord - 1, &message);
    message += '\n';
    base::WriteToStandardError(message);
}

void PrintError(const char* prefix) {
    const int error = errno;
    PrintDiagnostic({prefix, ": ", strerror(error)});
    errno = error;
}

void LimitDiagnostics(bool (*admit)()) {
    admit_diagnostic = admit;
}

}  // namespace orvane::tavisk::disk_info
