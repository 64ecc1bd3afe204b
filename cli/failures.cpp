#include "failures.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "format.h"

namespace disk_info::cli {

namespace {

constexpr int32_t kIllegalArgument = -3;

// The links that the service follows. The command does not link its storage library.
struct Link {
    const char* path;
    const char* requirement;
};
constexpr Link kDataPartition{"/dev/block/by-name/userdata",
                              "a partition of the built-in disk must have the label userdata"};
constexpr Link kDataMapping{"/dev/block/mapper/userdata",
                            "the filesystem must be on a device-mapper device named userdata"};
constexpr Link kMetadataPartition{"/dev/block/by-name/metadata",
                                  "a partition of the built-in disk must have the label metadata"};

const Link& LinkFor(const Result& result) {
    if (result.call != Call::kFilesystem) return kDataPartition;
    return result.partition == "userdata" ? kDataMapping : kMetadataPartition;
}

std::string ServiceReason(const Result& result, int32_t error) {
    const std::string code = "service error " + std::to_string(error) + ": ";
    const Link& link = LinkFor(result);
    struct stat status;
    if (stat(link.path, &status) == 0 || errno != ENOENT) {
        return code +
               "the data cannot be read, or this disk or filesystem is not supported; see "
               "journalctl -u disk-info.service";
    }
    const bool is_dangling = lstat(link.path, &status) == 0;
    return code + link.path + (is_dangling ? " leads to a missing device; " : " is missing; ") +
           link.requirement;
}

std::string ReasonFor(const Result& result, const CallError& error) {
    switch (error.kind) {
        case ErrorKind::kService:
            return ServiceReason(result, error.code);
        case ErrorKind::kException:
            if (result.call == Call::kFilesystem && error.code == kIllegalArgument) {
                return "partition '" + Printable(result.partition) +
                       "' is not served; served are userdata and metadata";
            }
            return "the service rejected the request with exception " + std::to_string(error.code);
        case ErrorKind::kReply:
            return "the reply could not be decoded (status " + std::to_string(error.code) +
                   "); update the package disk-info";
        case ErrorKind::kConnection:
            break;
    }
    return "";
}

}  // namespace

std::vector<std::string> FailureLines(const Document& document) {
    struct Failure {
        std::string calls;
        std::string reason;
    };
    std::vector<Failure> failures;
    for (const Result& result : document.results) {
        if (!result.answer.error) continue;
        const std::string reason = ReasonFor(result, *result.answer.error);
        if (reason.empty()) continue;
        std::string call = NameOf(result.call);
        if (result.call == Call::kFilesystem) call += " " + Printable(result.partition);
        const auto same = std::ranges::find(failures, reason, &Failure::reason);
        if (same != failures.end()) {
            same->calls += ", " + call;
        } else {
            failures.push_back({call, reason});
        }
    }
    std::vector<std::string> lines;
    lines.reserve(failures.size());
    for (Failure& failure : failures) {
        lines.push_back(failure.calls.append(": ").append(failure.reason));
    }
    return lines;
}

}  // namespace disk_info::cli
