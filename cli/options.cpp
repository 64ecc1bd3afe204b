#include "options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "format.h"

namespace disk_info::cli {

namespace {

void Describe(CLI::App& app, Options* options) {
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "disk_info " DISK_INFO_VERSION, "Print the version and exit");
    app.footer(
        "Exit status: 0 all calls succeeded; 1 the output could not be written; 2 wrong usage;\n"
        "3 the service returned an error; 4 no service, no permission, no answer within the time\n"
        "limit, or the connection broke.\n"
        "See disk_info(1).");
    app.add_flag("--json", options->as_json, "Print one JSON document");
    app.add_option("--watch", options->watch_seconds, "Repeat every SECONDS until interrupted")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 86400));
    app.add_option("--timeout", options->timeout_seconds,
                   "Wait at most SECONDS for the service (default: 10)")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 3600));
    app.fallthrough();  // Options are accepted after the sub-command too.
    app.add_subcommand("status",
                       "Identity, health, power state and filesystem errors (the default)");
    app.add_subcommand("info", "Identity and size of the disk that holds the data partition");
    app.add_subcommand("health", "Wear, errors and a verdict");
    app.add_subcommand("power", "Current power state");
    app.add_subcommand("fs", "Error counters of an ext4 filesystem")
        ->add_option("PARTITION", options->request.partition, "userdata or metadata")
        ->type_name("")
        ->required();
    app.add_subcommand("metrics", "The values of status as OpenMetrics text for a collector");
    app.require_subcommand(0, 1);
}

// The message about options that cannot be combined; "" if there is no conflict.
std::string ConflictIn(const Options& options) {
    const bool is_metrics = options.request.command == Command::kMetrics;
    if (options.as_json && is_metrics) return "--json and metrics cannot be combined";
    if (options.watch_seconds == 0) return "";
    if (options.as_json) return "--watch and --json cannot be combined";
    return is_metrics ? "--watch and metrics cannot be combined" : "";
}

int WrongUsage(const CLI::App& app, const std::string& message) {
    (void)std::fprintf(stderr, "disk_info: %s\n%s", message.c_str(), app.help().c_str());
    return kWrongUsage;
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int* exit_status) {
    CLI::App app("Shows the identity, health and power state of this device's built-in storage.",
                 "disk_info");
    Options options;
    Describe(app, &options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        *exit_status = app.exit(success);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        *exit_status = WrongUsage(app, Printable(error.what()));
        return std::nullopt;
    }
    const auto selected = app.get_subcommands();
    if (!selected.empty()) {
        options.request.command =
            CommandNamed(selected.front()->get_name()).value_or(Command::kStatus);
    }
    if (const std::string conflict = ConflictIn(options); !conflict.empty()) {
        *exit_status = WrongUsage(app, conflict);
        return std::nullopt;
    }
    return options;
}

}  // namespace disk_info::cli
