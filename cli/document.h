// A document: the calls of one request, their answers, and the verdict on them. Every output
// form prints it. It is built once for a request, owns all of its data and holds no connection.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json.h"
#include "verdict.h"

namespace disk_info::cli {

// The sub-commands. kStatus, kCheck and kMetrics make all calls.
enum class Command { kStatus, kInfo, kHealth, kPower, kFilesystem, kCheck, kMetrics };
inline constexpr const char* kCommandNames[]{"status", "info",  "health", "power",
                                             "fs",     "check", "metrics"};
constexpr const char* NameOf(Command command) {
    return kCommandNames[static_cast<size_t>(command)];
}
std::optional<Command> CommandNamed(std::string_view name);

struct Request {
    Command command = Command::kStatus;
    std::string partition;  // for kFilesystem
};

enum class Call { kInfo, kHealth, kPower, kFilesystem };
// The call's name in the output: "info", "health", "power" or "fs".
const char* NameOf(Call call);

// kConnection: the service could not be reached; the code is 0. kService: a service-specific error.
// kException: the service rejected the request. kReply: a service with another interface sent a
// reply that could not be decoded.
enum class ErrorKind { kConnection, kService, kException, kReply };

struct CallError {
    ErrorKind kind;
    int32_t code;
};

enum class Arm { kNone, kNvme, kUfs };  // kNone: a filesystem, or no fields

struct Answer {
    // Null if the call failed or returned no result.
    const Json* Fields() const { return fields.is_object() ? &fields : nullptr; }

    std::optional<CallError> error;
    Arm arm = Arm::kNone;
    Json fields;  // an object, names and order as in the parcelables; otherwise null
};

struct Result {
    Call call;
    std::string partition;  // for kFilesystem; not yet printable
    Answer answer;
};

struct Document {
    // The first result of the call; null if the request does not include it.
    const Result* Find(Call call) const;

    std::vector<Result> results;           // in output order
    std::optional<Assessment> assessment;  // if it includes the health or a filesystem
    std::string warning;                   // one line for the user; "": none
};

// Calls `answer` once for each call of the request, in output order.
using Answerer = std::function<Answer(Call call, const std::string& partition)>;
Document MakeDocument(const Request& request, const Answerer& answer);

// The document of a request that did not reach the service: a connection error for every call.
Document UnansweredDocument(const Request& request);

// The published form; packaging/disk_info.schema.json describes it.
Json ToJson(Document document);
// The published form if the service did not answer.
Json ErrorToJson(const std::string& message);

}  // namespace disk_info::cli
