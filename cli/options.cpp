#include "options.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include "check.h"
#include "format.h"

namespace disk_info::cli {

namespace {

// In the order of Command.
constexpr struct {
    const char* argument;
    const char* summary;
} kCommandHelp[] = {
    {"", "summary, disk and filesystems (the default)"},
    {"", "identity and size of the disk that holds the data partition"},
    {"", "wear, errors and a verdict"},
    {"", "current power state"},
    {" PARTITION", "error counters of an ext4 filesystem, userdata or metadata"},
    {"", "one line and an exit status for a monitoring system"},
    {"", "all values as Prometheus text for a collector"},
};
static_assert(std::size(kCommandHelp) == std::size(kCommandNames));

// Codes of the options without a letter are above all characters.
enum Code { kJson = 256, kWatch, kColor, kOpenMetrics, kTimeout, kHelp = 'h', kVersion = 'V' };

enum class Scope { kAll, kForPeople, kMetrics };

constexpr struct {
    const char* name;
    Code code;
    const char* argument;  // "": none
    const char* summary;
    Scope scope;  // the commands that the option has an effect on
} kOptions[] = {
    {"json", kJson, "", "print one JSON document", Scope::kForPeople},
    {"watch", kWatch, "SECONDS", "repeat every SECONDS until interrupted", Scope::kForPeople},
    {"color", kColor, "WHEN", "always, never, or auto, on a terminal only (the default)",
     Scope::kForPeople},
    {"openmetrics", kOpenMetrics, "", "print OpenMetrics text (metrics only)", Scope::kMetrics},
    {"timeout", kTimeout, "SECONDS", "wait at most SECONDS for the service (default: 10)",
     Scope::kAll},
    {"help", kHelp, "", "print this help, or that of the command, and exit", Scope::kAll},
    {"version", kVersion, "", "print the version and exit", Scope::kAll},
};

bool IsForPrograms(Command command) {
    return command == Command::kCheck || command == Command::kMetrics;
}

bool Applies(Scope scope, Command command) {
    return scope == Scope::kAll ||
           (scope == Scope::kMetrics ? command == Command::kMetrics : !IsForPrograms(command));
}

struct Parser {
    // A message for the user; "": the arguments are valid, or the help or version was requested.
    std::string Parse(int argc, char** argv);

    Options options;
    std::optional<Command> command;
    bool help = false;
    bool version = false;

  private:
    std::string Take(int code, const char* argument);
    std::string TakeWord(const std::string& word);
    std::string Conflict() const;
};

std::string Named(const std::string& argument) {
    return "'" + Printable(argument) + "'";
}

std::string TakeSeconds(const char* option, const char* argument, unsigned last, unsigned* value) {
    const char* const end = argument + std::strlen(argument);
    const auto parsed = std::from_chars(argument, end, *value);
    if (parsed.ec == std::errc() && parsed.ptr == end && *value >= 1 && *value <= last) return "";
    return option + std::string(": ") + Named(argument) + " is not a whole number from 1 to " +
           std::to_string(last);
}

std::string Parser::Take(int code, const char* argument) {
    switch (code) {
        case kJson:
            options.as_json = true;
            return "";
        case kOpenMetrics:
            options.metrics_format = MetricsFormat::kOpenMetrics;
            return "";
        case kWatch:
            return TakeSeconds("--watch", argument, 86400, &options.watch_seconds);
        case kTimeout:
            return TakeSeconds("--timeout", argument, 3600, &options.timeout_seconds);
        case kColor:
            for (size_t i = 0; i < std::size(kDecorationNames); ++i) {
                if (std::string_view(kDecorationNames[i]) != argument) continue;
                options.decoration = static_cast<Decoration>(i);
                return "";
            }
            return "--color: " + Named(argument) + " is not auto, always or never";
        case kHelp:
            help = true;
            return "";
        default:
            version = true;
            return "";
    }
}

std::string Parser::TakeWord(const std::string& word) {
    if (!command) {
        command = CommandNamed(word);
        return command ? "" : "unknown command " + Named(word);
    }
    if (*command != Command::kFilesystem || !options.request.partition.empty()) {
        return "unexpected argument " + Named(word);
    }
    options.request.partition = word;
    return "";
}

// The message about options that cannot be combined; "" if there is no conflict.
std::string Parser::Conflict() const {
    if (IsForPrograms(options.request.command)) {
        const std::string name = NameOf(options.request.command);
        if (options.as_json) return "--json and " + name + " cannot be combined";
        if (options.watch_seconds > 0) return "--watch and " + name + " cannot be combined";
    }
    if (options.metrics_format == MetricsFormat::kOpenMetrics &&
        options.request.command != Command::kMetrics) {
        return "--openmetrics needs the command metrics";
    }
    if (options.as_json && options.watch_seconds > 0) {
        return "--watch and --json cannot be combined";
    }
    if (options.request.command == Command::kFilesystem && options.request.partition.empty()) {
        return "fs: PARTITION is missing; it is userdata or metadata";
    }
    return "";
}

// The message after getopt_long rejected an option; `last` is the word that it read last.
std::string Invalid(const char* last) {
    for (const auto& option : kOptions) {
        if (option.code == optopt) return "--" + std::string(option.name) + " takes no value";
    }
    return "invalid option " +
           (optopt == 0 ? Named(last) : Named({'-', static_cast<char>(optopt)}));
}

std::string Parser::Parse(int argc, char** argv) {
    option longs[std::size(kOptions) + 1] = {};
    for (size_t i = 0; i < std::size(kOptions); ++i) {
        longs[i] = {kOptions[i].name, *kOptions[i].argument != '\0' ? required_argument : 0,
                    nullptr, kOptions[i].code};
    }
    opterr = 0;  // The messages have this program's form.
    for (int code = 0; (code = getopt_long(argc, argv, ":hV", longs, nullptr)) != -1;) {
        if (code == ':') return std::string(argv[optind - 1]) + ": a value is missing";
        if (code == '?') return Invalid(argv[optind - 1]);
        std::string message = Take(code, optarg);
        if (!message.empty()) return message;
    }
    for (; optind < argc; ++optind) {
        std::string message = TakeWord(argv[optind]);
        if (!message.empty()) return message;
    }
    options.request.command = command.value_or(Command::kStatus);
    return help || version ? "" : Conflict();
}

// Without a command: all options.
std::string OptionLines(std::optional<Command> command) {
    std::string text = "\nOptions:\n";
    for (const auto& option : kOptions) {
        if (command && !Applies(option.scope, *command)) continue;
        const std::string letter = option.code < kJson ? Format("-%c, ", option.code) : "    ";
        const std::string name =
            option.name + std::string(*option.argument != '\0' ? " " : "") + option.argument;
        text += "  " + letter + Format("--%-17s ", name.c_str()) + option.summary + "\n";
    }
    return text;
}

std::string HelpOf(Command command) {
    const auto& help = kCommandHelp[static_cast<size_t>(command)];
    return std::string("Usage: disk_info ") + NameOf(command) + " [OPTION]..." + help.argument +
           "\nPrints: " + help.summary + ".\n" + OptionLines(command) + "\nSee disk_info(1).\n";
}

std::string GeneralHelp() {
    std::string text =
        "Usage: disk_info [OPTION]... [COMMAND]\n"
        "Shows the identity, health and power state of this device's built-in storage.\n"
        "\nCommands:\n";
    for (size_t i = 0; i < std::size(kCommandHelp); ++i) {
        const std::string name = std::string(kCommandNames[i]) + kCommandHelp[i].argument;
        text += Format("  %-13s ", name.c_str()) + kCommandHelp[i].summary + "\n";
    }
    return text + OptionLines(std::nullopt) +
           "\n"
           "Exit status: 0 all calls succeeded; 1 the output could not be written; 2 wrong\n"
           "usage; 3 the service returned an error; 4 the service did not answer.\n"
           "See disk_info(1).\n";
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int* exit_status) {
    Parser parser;
    const std::string message = parser.Parse(argc, argv);
    if (!message.empty()) {
        (void)std::fprintf(stderr, "disk_info: %s\nTry 'disk_info --help' for more information.\n",
                           message.c_str());
        // For a monitoring system the status of wrong usage would mean "critical".
        const bool is_check =
            std::find(argv, argv + argc, std::string_view("check")) != argv + argc;
        *exit_status = is_check ? kCheckUnknown : kWrongUsage;
        return std::nullopt;
    }
    if (!parser.help && !parser.version) return parser.options;
    const bool written = WriteOutput(!parser.help     ? "disk_info " DISK_INFO_VERSION "\n"
                                     : parser.command ? HelpOf(*parser.command)
                                                      : GeneralHelp());
    *exit_status = written ? kAllAnswered : kOutputFailed;
    return std::nullopt;
}

}  // namespace disk_info::cli
