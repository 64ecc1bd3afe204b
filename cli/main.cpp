// disk_info, the command: queries the service once or repeatedly and prints the answers.
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "check.h"
#include "connection.h"
#include "failures.h"
#include "metrics.h"
#include "options.h"
#include "output.h"
#include "plain_text.h"
#include "time_limit.h"
#include "watch.h"

namespace disk_info::cli {
namespace {

// Of plain text. It is that of the terminal, also if the text goes through a pipe to it.
struct Style {
    bool is_decorated;
    Size size;
};

struct Outcome {
    std::string text;                   // for standard output
    std::vector<std::string> messages;  // for standard error, one line each
    int status = kAllAnswered;
};

std::string JsonText(const Json& json) {
    return json.dump(2, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace) + "\n";
}

Outcome Answered(Document document, const Options& options, const Style& style) {
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
        outcome.text = MetricsText(document, options.metrics_format);
    } else if (options.as_json) {
        outcome.text = JsonText(ToJson(std::move(document)));
    } else {
        outcome.text = PlainText(document, style.is_decorated, style.size.columns);
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
        outcome.text = MetricsText(UnansweredDocument(options.request), options.metrics_format);
    }
    if (options.as_json) outcome.text = JsonText(ErrorToJson(message));
    return outcome;
}

std::string LinesOf(const std::vector<std::string>& messages) {
    std::string text;
    for (const std::string& message : messages) text.append("disk_info: ").append(message) += '\n';
    return text;
}

int OutputFailedStatus(const Options& options) {
    return options.request.command == Command::kCheck ? kCheckUnknown : kOutputFailed;
}

Outcome QueryOnce(const Options& options, const Style& style) {
    const std::string late = "the service did not answer within " +
                             std::to_string(options.timeout_seconds) +
                             " s; check systemctl status disk-info.service and journalctl -u "
                             "disk-info.service, or set a longer limit with --timeout";
    Outcome at_limit = NotAnswered(late, options);
    const TimeLimit limit(options.timeout_seconds, std::move(at_limit.text),
                          LinesOf(at_limit.messages), at_limit.status, OutputFailedStatus(options));
    try {
        return Answered(Query(options.request), options, style);
    } catch (const ConnectionError& error) {
        return NotAnswered(error.what(), options);
    }
}

int PrintOnce(const Options& options, const Style& style) {
    Outcome outcome = QueryOnce(options, style);
    if (!WriteOutput(outcome.text)) {
        outcome = {"", {"cannot write the output"}, OutputFailedStatus(options)};
    }
    (void)WriteAll(STDERR_FILENO, LinesOf(outcome.messages));
    return outcome.status;
}

// A title with the local time, an empty line, then the output and the messages.
void PrintFrame(const Options& options, const Style& style) {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    char time[32] = "";
    if (localtime_r(&now, &local) != nullptr) {
        (void)std::strftime(time, sizeof(time), "%T", &local);
    }
    (void)WriteOutput(std::string("disk_info ") + NameOf(options.request.command) + ", every " +
                      std::to_string(options.watch_seconds) + " s, " + time + "\n\n");
    (void)PrintOnce(options, style);
}

int Run(const Options& options) {
    const bool is_decorated = OutputIsDecorated(options.decoration);
    if (options.watch_seconds == 0) return PrintOnce(options, {is_decorated, OutputSize()});
    const auto print = [&](const Size& size) { PrintFrame(options, {is_decorated, size}); };
    Watch(options.watch_seconds, print);
    (void)WriteAll(STDERR_FILENO, LinesOf({"cannot write the output"}));
    return kOutputFailed;
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
    OccupyStandardStreams();
    int exit_status = kAllAnswered;
    const std::optional<Options> options = ParseOptions(argc, argv, &exit_status);
    if (!options) return exit_status;
    return Run(*options);
}
