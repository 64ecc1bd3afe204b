// disk_info, the command: asks the service and prints what it says.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "explanation.h"
#include "failures.h"
#include "limit.h"
#include "metrics.h"
#include "plain_text.h"
#include "query.h"
#include "watch.h"

namespace disk_info::client {
namespace {

enum ExitStatus { kAnswered = 0, kOutputFailed = 1, kUsage = 2, kServiceError = 3, kNoService = 4 };

struct Options {
    Question question{"status", ""};
    bool as_json = false;
    unsigned timeout_seconds = 10;
    unsigned watch_seconds = 0;  // 0: once
};

// What one asking comes to: for standard output, for standard error line by line, and the status.
struct Outcome {
    std::string text;
    std::vector<std::string> complaints;
    ExitStatus status = kAnswered;
};

std::string textOf(const Json& document, const Options& options) {
    if (options.question.command == "metrics") return metricsText(document);
    if (!options.as_json) return plainText(document, wantsDecoration());
    return document.dump(2, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace) + "\n";
}

Outcome askOnce(const Options& options) {
    Outcome outcome;
    try {
        const std::chrono::seconds limit(options.timeout_seconds);
        const Json document = askWithin(limit, options.question, &outcome.complaints);
        outcome.text = textOf(document, options);
        for (const std::string& line : failures(document)) {
            outcome.complaints.push_back(line);
            outcome.status = kServiceError;
        }
    } catch (const NoService& error) {
        outcome.complaints.emplace_back(error.what());
        outcome.status = kNoService;
        // A collector is to see that nothing was answered; people and programs read the status.
        if (options.question.command == "metrics") {
            outcome.text = textOf(unanswered(options.question), options);
        }
    }
    return outcome;
}

void complain(const std::string& message) {
    (void)std::fprintf(stderr, "disk_info: %s\n", message.c_str());
}

// One redrawing: the time, then everything there is to say.
std::string frame(const Options& options) {
    const Outcome outcome = askOnce(options);
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    char time[32] = "";
    if (localtime_r(&now, &local) != nullptr) {
        (void)std::strftime(time, sizeof time, "%F %T", &local);
    }
    std::string text = "disk_info " + options.question.command + ", every " +
                       std::to_string(options.watch_seconds) + " s: " + time + "\n\n" +
                       outcome.text;
    for (const std::string& line : outcome.complaints) text += "disk_info: " + line + "\n";
    return text;
}

int run(const Options& options) {
    if (options.watch_seconds > 0) {
        watch(options.watch_seconds, [&] { return frame(options); });
        complain("cannot write the output");
        return kOutputFailed;
    }
    const Outcome outcome = askOnce(options);
    if (std::fwrite(outcome.text.data(), 1, outcome.text.size(), stdout) != outcome.text.size() ||
        std::fflush(stdout) != 0) {
        complain("cannot write the output");
        return kOutputFailed;
    }
    for (const std::string& line : outcome.complaints) complain(line);
    return outcome.status;
}

void describe(CLI::App& app, Options* options) {
    app.set_version_flag("--version", "disk_info " DISK_INFO_VERSION);
    app.footer(
        "Exit status: 0 all answered; 1 the output cannot be written; 2 wrong usage; 3 the "
        "service\n"
        "answered with an error; 4 no service, no answer in time, no rights, or the connection\n"
        "broke.\n"
        "disk_info(1) tells more.");
    app.add_flag("--json", options->as_json, "Print one JSON document");
    app.add_option("--watch", options->watch_seconds, "Ask again every SECONDS, until interrupted")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 86400));
    app.add_option("--timeout", options->timeout_seconds,
                   "Wait at most SECONDS for the service, by default 10")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 3600));
    app.fallthrough();  // options may also follow the sub-command
    app.add_subcommand("status", "All of the following (the default)");
    app.add_subcommand("info", "Identity of the disk that holds the data partition");
    app.add_subcommand("health", "Its wear and errors, and the verdict on them");
    app.add_subcommand("power", "Its current power state");
    app.add_subcommand("fs", "Error counters of an ext4 filesystem")
        ->add_option("PARTITION", options->question.partition, "userdata or metadata")
        ->required();
    app.add_subcommand("metrics", "All of it as OpenMetrics text, for a collector");
    app.require_subcommand(0, 1);
}

int wrongUsage(const CLI::App& app, const std::string& message) {
    complain(message);
    (void)std::fputs(app.help().c_str(), stderr);
    return kUsage;
}

int main(int argc, char** argv) {
    CLI::App app("Shows what the storage built into this device says of itself.", "disk_info");
    Options options;
    describe(app, &options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return wrongUsage(app, printable(error.what()));
    }
    const auto chosen = app.get_subcommands();
    if (!chosen.empty()) options.question.command = chosen.front()->get_name();
    const bool is_metrics = options.question.command == "metrics";
    if (options.as_json && is_metrics) return wrongUsage(app, "--json: metrics have one form");
    if (options.watch_seconds > 0 && (options.as_json || is_metrics)) {
        return wrongUsage(app, "--watch: for plain output alone");
    }
    const int status = run(options);
    // A thread may still wait for the service then: no static object is destroyed under it.
    if (status == kNoService || status == kOutputFailed) std::_Exit(status);
    return status;
}

}  // namespace
}  // namespace disk_info::client

int main(int argc, char** argv) {
    return disk_info::client::main(argc, argv);
}
