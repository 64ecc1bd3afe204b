// disk_info, the command: queries the service once or repeatedly and prints the answers.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "check.h"
#include "failures.h"
#include "metrics.h"
#include "options.h"
#include "output.h"
#include "plain_text.h"
#include "time_limit.h"
#include "watch.h"

namespace disk_info::cli {
namespace {

struct Outcome {
    std::string text;                   // for standard output
    std::vector<std::string> messages;  // for standard error, one line each
    int status = kAllAnswered;
};

std::string JsonText(const Json& json) {
    return json.dump(2, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace) + "\n";
}

Outcome Answered(const Document& document, const Options& options) {
    Outcome outcome;
    if (options.request.command == Command::kCheck) {
        CheckResult result = Check(document);
        return {std::move(result.text), {}, result.status};
    }
    outcome.messages = FailureLines(document);
    if (!outcome.messages.empty()) outcome.status = kServiceError;
    if (!document.warning.empty()) {
        outcome.messages.insert(outcome.messages.begin(), document.warning);
    }
    if (options.request.command == Command::kMetrics) {
        outcome.text = MetricsText(document);
    } else if (options.as_json) {
        outcome.text = JsonText(ToJson(document));
    } else {
        outcome.text =
            PlainText(document, OutputIsDecorated(options.decoration), OutputSize().columns);
    }
    return outcome;
}

// Programs get an answer on standard output too: they may not read the exit status.
Outcome NotAnswered(const std::string& message, const Options& options) {
    Outcome outcome{"", {message}, kNotAnswered};
    if (options.request.command == Command::kCheck) {
        CheckResult result = FailedCheck(message);
        return {std::move(result.text), {}, result.status};
    }
    if (options.request.command == Command::kMetrics) {
        outcome.text = MetricsText(UnansweredDocument(options.request));
    }
    if (options.as_json) outcome.text = JsonText(ErrorToJson(message));
    return outcome;
}

Outcome QueryOnce(const Options& options) {
    try {
        const std::chrono::seconds limit(options.timeout_seconds);
        return Answered(QueryWithin(limit, options.request), options);
    } catch (const ConnectionError& error) {
        return NotAnswered(error.what(), options);
    }
}

std::string WithPrefix(const std::string& message) {
    return "disk_info: " + message + "\n";
}

void PrintMessage(const std::string& message) {
    (void)std::fputs(WithPrefix(message).c_str(), stderr);
}

// A title with the local time, the text, then the messages.
std::string Frame(const Options& options) {
    const Outcome outcome = QueryOnce(options);
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    char time[32] = "";
    if (localtime_r(&now, &local) != nullptr) {
        (void)std::strftime(time, sizeof(time), "%F %T", &local);
    }
    std::string text = std::string("disk_info ") + NameOf(options.request.command) + ", every " +
                       std::to_string(options.watch_seconds) + " s: " + time + "\n\n" +
                       outcome.text;
    for (const std::string& message : outcome.messages) text += WithPrefix(message);
    return text;
}

int Run(const Options& options) {
    const bool is_check = options.request.command == Command::kCheck;
    Outcome outcome{"", {"cannot write the output"}, is_check ? kCheckUnknown : kOutputFailed};
    if (options.watch_seconds > 0) {
        Watch(options.watch_seconds, [&] { return Frame(options); });
    } else if (Outcome answer = QueryOnce(options); WriteOutput(answer.text)) {
        outcome = std::move(answer);
    }
    for (const std::string& message : outcome.messages) PrintMessage(message);
    return outcome.status;
}

}  // namespace
}  // namespace disk_info::cli

// Replaces the C++ library's terminate handler, which would add its demangler to the file.
namespace __gnu_cxx {
void __verbose_terminate_handler() {
    std::abort();
}
}  // namespace __gnu_cxx

int main(int argc, char** argv) {
    using namespace disk_info::cli;
    int exit_status = kAllAnswered;
    const std::optional<Options> options = ParseOptions(argc, argv, &exit_status);
    if (!options) return exit_status;
    // An abandoned query may still use static objects, so they must not be destroyed.
    std::_Exit(Run(*options));
}
