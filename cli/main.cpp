// disk_info, the command: queries the service once or repeatedly and prints the answers.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

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
    ExitStatus status = kAllAnswered;
};

std::string TextOf(const Document& document, const Options& options) {
    if (options.request.command == Command::kMetrics) return MetricsText(document);
    if (!options.as_json)
        return PlainText(document, OutputIsDecorated(options.decoration), OutputSize().columns);
    return ToJson(document).dump(2, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace) +
           "\n";
}

Outcome QueryOnce(const Options& options) {
    Outcome outcome;
    try {
        const std::chrono::seconds limit(options.timeout_seconds);
        const Document document = QueryWithin(limit, options.request);
        outcome.text = TextOf(document, options);
        outcome.messages = FailureLines(document);
        if (!outcome.messages.empty()) outcome.status = kServiceError;
        if (!document.warning.empty()) {
            outcome.messages.insert(outcome.messages.begin(), document.warning);
        }
    } catch (const ConnectionError& error) {
        outcome.messages.emplace_back(error.what());
        outcome.status = kNotAnswered;
        // A collector reads the text and not the exit status.
        if (options.request.command == Command::kMetrics) {
            outcome.text = TextOf(UnansweredDocument(options.request), options);
        }
    }
    return outcome;
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

ExitStatus Run(const Options& options) {
    Outcome outcome;
    if (options.watch_seconds > 0) {
        Watch(options.watch_seconds, [&] { return Frame(options); });
        outcome.status = kOutputFailed;
    } else {
        outcome = QueryOnce(options);
        if (!WriteOutput(outcome.text)) outcome = {"", {}, kOutputFailed};
    }
    if (outcome.status == kOutputFailed) outcome.messages = {"cannot write the output"};
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
    const ExitStatus status = Run(*options);
    // An abandoned query may still use static objects, so they must not be destroyed.
    if (status == kNotAnswered || status == kOutputFailed) std::_Exit(status);
    return status;
}
