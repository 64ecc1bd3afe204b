// disk_info, the command: asks the service and prints what it says.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "plain_text.h"
#include "query.h"

namespace disk_info::client {
namespace {

enum ExitStatus { kAnswered = 0, kOutputFailed = 1, kUsage = 2, kServiceError = 3, kNoService = 4 };

void complain(const std::string& message) {
    std::fprintf(stderr, "disk_info: %s\n", message.c_str());
}

// The document of one sub-command.
Json query(Service& service, const std::string& command, const std::string& partition) {
    const bool all = command == "status";
    Json document{{"schemaVersion", 1}};
    if (all || command == "info") document["info"] = askInfo(service);
    if (all || command == "health") document["health"] = askHealth(service);
    if (all || command == "power") document["power"] = askPower(service);
    if (command == "fs") document["filesystems"][partition] = askFilesystem(service, partition);
    if (all) {
        for (const char* name : {"userdata", "metadata"}) {
            document["filesystems"][name] = askFilesystem(service, name);
        }
    }
    return document;
}

bool complainOfError(const std::string& subject, const Json& answer) {
    const std::string error = errorText(answer);
    if (error.empty()) return false;
    const bool refused = answer["error"]["kind"] == "exception";
    complain(subject + ": " + error +
             (refused ? "; the partitions served are userdata and metadata"
                      : "; the data cannot be read, or it is a kind of disk that is not served"));
    return true;
}

// One line on standard error for each call that failed; whether there was one.
bool complainOfErrors(const Json& document) {
    bool failed = false;
    for (const auto& [key, answer] : document.items()) {
        if (key != "filesystems") {
            failed |= complainOfError(key, answer);
            continue;
        }
        for (const auto& [partition, filesystem] : answer.items()) {
            failed |= complainOfError("fs " + printable(partition), filesystem);
        }
    }
    return failed;
}

int run(const std::string& command, const std::string& partition, bool as_json) {
    Json document;
    try {
        document = query(*connect(), command, partition);
    } catch (const NoService& error) {
        complain(error.what());
        return kNoService;
    }
    const std::string text =
        as_json
            ? document.dump(2, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace) + "\n"
            : plainText(document);
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        complain("cannot write the output");
        return kOutputFailed;
    }
    return complainOfErrors(document) ? kServiceError : kAnswered;
}

int main(int argc, char** argv) {
    CLI::App app("Shows what the storage built into this device says of itself.", "disk_info");
    app.set_version_flag("--version", "disk_info " DISK_INFO_VERSION);
    app.footer(
        "Exit status: 0 all answered; 2 wrong usage; 3 the service answered with an error;\n"
        "4 no service, or the connection broke.");
    bool as_json = false;
    std::string partition;
    app.add_flag("--json", as_json, "Print one JSON document");
    app.fallthrough();  // --json may also follow the sub-command
    app.add_subcommand("status", "All of the following (the default)");
    app.add_subcommand("info", "Identity of the disk that holds the data partition");
    app.add_subcommand("health", "Its wear and errors");
    app.add_subcommand("power", "Its current power state");
    app.add_subcommand("fs", "Error counters of an ext4 filesystem")
        ->add_option("PARTITION", partition, "userdata or metadata")
        ->required();
    app.require_subcommand(0, 1);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        complain(printable(error.what()));
        std::fputs(app.help().c_str(), stderr);
        return kUsage;
    }
    const auto chosen = app.get_subcommands();
    return run(chosen.empty() ? "status" : chosen.front()->get_name(), partition, as_json);
}

}  // namespace
}  // namespace disk_info::client

int main(int argc, char** argv) {
    return disk_info::client::main(argc, argv);
}
