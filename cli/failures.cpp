#include "failures.h"

#include "explanation.h"

namespace disk_info::client {

namespace {

// The kinds but "connection", which no document is printed for.
const struct {
    const char* kind;
    const char* advice;
} kAdvice[] = {
    {"service", "the data cannot be read, or it is a kind of disk that is not served"},
    {"exception", "the partitions served are userdata and metadata"},
    {"reply", "the reply is not understood; the package disk-info wants an update"},
};

void addFailure(std::string subject, const Json& answer, std::vector<std::string>* lines) {
    const std::string error = errorText(answer);
    for (const auto& [kind, advice] : kAdvice) {
        if (error.empty() || answer["error"]["kind"] != kind) continue;
        lines->push_back(subject.append(": ").append(error).append("; ").append(advice));
    }
}

}  // namespace

std::string errorText(const Json& answer) {
    if (!answer.is_object() || !answer.contains("error")) return "";
    const Json& error = answer["error"];
    return error["kind"].get<std::string>() + " error " + error["code"].dump();
}

std::vector<std::string> failures(const Json& document) {
    std::vector<std::string> lines;
    for (const auto& [key, answer] : document.items()) {
        if (key != "filesystems") {
            addFailure(key, answer, &lines);
            continue;
        }
        for (const auto& [partition, filesystem] : answer.items()) {
            addFailure("fs " + printable(partition), filesystem, &lines);
        }
    }
    return lines;
}

}  // namespace disk_info::client
