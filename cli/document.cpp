#include "document.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "readings.h"

namespace disk_info::cli {

namespace {

// Many JSON readers store numbers as double, which is exact up to this value.
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

constexpr int kSchemaVersion = 1;

constexpr const char* kPartitions[] = {"userdata", "metadata"};

const char* NameOf(ErrorKind kind) {
    static constexpr const char* kNames[]{"connection", "service", "exception", "reply"};
    return kNames[static_cast<size_t>(kind)];
}

// The calls of the request, not answered yet.
std::vector<Result> CallsOf(const Request& request) {
    switch (request.command) {
        case Command::kInfo:
            return {{Call::kInfo, "", {}}};
        case Command::kHealth:
            return {{Call::kHealth, "", {}}};
        case Command::kPower:
            return {{Call::kPower, "", {}}};
        case Command::kFilesystem:
            return {{Call::kFilesystem, request.partition, {}}};
        case Command::kStatus:
        case Command::kCheck:
        case Command::kMetrics:
            break;
    }
    std::vector<Result> all{{Call::kInfo, "", {}}, {Call::kHealth, "", {}}, {Call::kPower, "", {}}};
    for (const char* partition : kPartitions) all.push_back({Call::kFilesystem, partition, {}});
    return all;
}

// Adds the exact text of a large number under its key with "_s" appended.
Json WithExactTexts(Json fields) {
    Json::object_t all;
    all.reserve(fields.size());
    for (auto& [name, value] : fields.get_ref<Json::object_t&>()) {
        const bool is_exact = !value.is_number_unsigned() || value.get<uint64_t>() <= kLargestExact;
        const Json& added = all.emplace_back(name, std::move(value)).second;
        if (!is_exact) all.emplace_back(name + "_s", added.dump());
    }
    return all;
}

Json ToJson(Answer answer) {
    if (answer.error) {
        return {{"error", {{"kind", NameOf(answer.error->kind)}, {"code", answer.error->code}}}};
    }
    if (answer.Fields() == nullptr) return nullptr;
    Json fields = WithExactTexts(std::move(answer.fields));
    if (answer.arm == Arm::kNone) return fields;
    Json json;
    json[answer.arm == Arm::kNvme ? "nvme" : "ufs"] = std::move(fields);
    return json;
}

Json ToJson(const Assessment& assessment) {
    Json reasons = Json::array();
    Json findings = Json::array();
    for (const Finding& finding : assessment.findings) {
        reasons.push_back(finding.reason);
        if (finding.field.empty()) continue;
        const Json partition = finding.partition.empty() ? Json() : Json(finding.partition);
        findings.push_back({{"field", finding.field},
                            {"partition", partition},
                            {"verdict", NameOf(finding.verdict)},
                            {"reason", finding.reason}});
    }
    Json json;
    json["verdict"] = NameOf(assessment.verdict);
    json["reasons"] = std::move(reasons);
    json["findings"] = std::move(findings);
    return json;
}

}  // namespace

std::optional<Command> CommandNamed(std::string_view name) {
    const auto* const found = std::ranges::find(kCommandNames, name);
    if (found == std::end(kCommandNames)) return std::nullopt;
    return static_cast<Command>(found - kCommandNames);
}

const char* NameOf(Call call) {
    static constexpr const char* kNames[]{"info", "health", "power", "fs"};
    return kNames[static_cast<size_t>(call)];
}

const Result* Document::Find(Call call) const {
    const auto found = std::ranges::find(results, call, &Result::call);
    return found != results.end() ? &*found : nullptr;
}

Document MakeDocument(const Request& request, const Answerer& answer) {
    Document document;
    document.results = CallsOf(request);
    for (Result& result : document.results) result.answer = answer(result.call, result.partition);
    std::vector<Subject> subjects;
    for (const Result& result : document.results) {
        if (result.call != Call::kHealth && result.call != Call::kFilesystem) continue;
        subjects.push_back({result.partition, result.answer.Fields()});
    }
    if (!subjects.empty()) document.assessment = Assess(subjects);
    return document;
}

Document UnansweredDocument(const Request& request) {
    return MakeDocument(request, [](Call /*call*/, const std::string& /*partition*/) {
        Answer answer;
        answer.error = {ErrorKind::kConnection, 0};
        return answer;
    });
}

Json ToJson(Document document) {
    Json readings = Readings(document);
    Json json;
    json["schemaVersion"] = kSchemaVersion;
    for (Result& result : document.results) {
        if (result.call == Call::kFilesystem) {
            json["filesystems"][result.partition] = ToJson(std::move(result.answer));
        } else {
            json[NameOf(result.call)] = ToJson(std::move(result.answer));
        }
    }
    if (document.assessment) json["assessment"] = ToJson(*document.assessment);
    json["readings"] = std::move(readings);
    return json;
}

Json ErrorToJson(const std::string& message) {
    Json json;
    json["schemaVersion"] = kSchemaVersion;
    json["error"]["kind"] = NameOf(ErrorKind::kConnection);
    json["error"]["message"] = message;
    return json;
}

}  // namespace disk_info::cli
