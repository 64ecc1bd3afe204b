#include <base/escape.h>
#include <base/standard_error.h>
#include <base/unique_fd.h>
#include <logging/logging.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace logging {
namespace {

std::atomic<LogSeverity> minimum_severity{INFO};

std::string PlaceOf(const char* file, unsigned int line) {
    return std::string(file) + ':' + std::to_string(line) + ": ";
}

// A NUL would end the text in a LogFunction.
std::string WithoutNuls(std::string text) {
    for (size_t nul; (nul = text.find('\0')) != text.npos;) text.replace(nul, 1, "\\x00");
    return text;
}

// Writes "SEVERITY tag file:line: text".
void WriteToStderr(LogSeverity severity, const char* tag, const char* file, unsigned int line,
                   const char* message) {
    constexpr const char* kNames[] = {"VERBOSE", "DEBUG", "INFO", "WARNING", "ERROR", "FATAL"};
    std::string record = base::EscapedControls(std::string(kNames[severity]) + ' ' + tag + ' ' +
                                               PlaceOf(file, line) + message);
    base::CutTo(base::kLargestRecord - 1, &record);
    base::WriteToStandardError(record + '\n');
}

int SyslogPriority(LogSeverity severity) {
    switch (severity) {
        case VERBOSE:
        case DEBUG:
            return LOG_DEBUG;
        case INFO:
            return LOG_INFO;
        case WARNING:
            return LOG_WARNING;
        case ERROR:
            return LOG_ERR;
        case FATAL:
            break;
    }
    return LOG_CRIT;
}

void StderrLogger(LogId, LogSeverity severity, const char* tag, const char* file, unsigned int line,
                  const char* message) {
    WriteToStderr(severity, tag, file, line, message);
}

struct Setup {
    LogFunction logger = StderrLogger;
    AbortFunction aborter = DefaultAborter;
    std::string tag;
};

// Never destroyed: the destructors of other static objects may log.
Setup& TheSetup() {
    static Setup& setup = *new Setup;
    return setup;
}

// Sends one datagram. False: no log daemon accepts it now. Each record uses a new socket: this
// reaches a daemon that started late or restarted, and no descriptor stays open. syslog(3) is not
// used: it blocks while the daemon does not read, and it adds a time stamp, which the daemon does
// not need, and with it the time zone code.
bool SendToLogDaemon(const std::string& record) {
    constexpr sockaddr_un kAddress{AF_UNIX, "/dev/log"};
    const base::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return fd && sendto(fd.get(), record.data(), record.size(), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&kAddress), sizeof(kAddress)) >= 0;
}

}  // namespace

LogdLogger::LogdLogger(LogId default_id) : default_id_(default_id), pid_(getpid()) {}

void LogdLogger::operator()(LogId id, LogSeverity severity, const char* tag, const char* file,
                            unsigned int line, const char* message) const {
    const LogId buffer = id == DEFAULT ? default_id_ : id;
    const int facility = buffer == MAIN ? LOG_DAEMON : LOG_USER;
    std::string record = base::EscapedControls(
        '<' + std::to_string(facility | SyslogPriority(severity)) + '>' + tag + '[' +
        std::to_string(pid_) + "]: " + PlaceOf(file, line) + message);
    base::CutTo(base::kLargestRecord, &record);
    if (!SendToLogDaemon(record)) WriteToStderr(severity, tag, file, line, message);
}

void DefaultAborter(const char*) {
    std::abort();
}

void InitLogging(char* argv[], LogFunction&& logger, AbortFunction&& aborter) {
    Setup& setup = TheSetup();
    if (logger) setup.logger = std::move(logger);
    if (aborter) setup.aborter = std::move(aborter);
    if (setup.tag.empty() && argv != nullptr && argv[0] != nullptr) {
        const std::string_view program = argv[0];
        setup.tag = program.substr(program.rfind('/') + 1);
    }
}

void SetDefaultTag(const std::string& tag) {
    TheSetup().tag = tag;
}

bool ShouldLog(LogSeverity severity, const char*) {
    return severity >= minimum_severity.load(std::memory_order_relaxed);
}

void SetMinimumLogSeverity(LogSeverity severity) {
    minimum_severity.store(severity, std::memory_order_relaxed);
}

LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
    : file_(file),
      line_(line),
      severity_(severity),
      tag_(tag),
      error_(error),
      saved_errno_(errno) {}

LogMessage::~LogMessage() {
    // glibc's strerror is thread-safe.
    if (error_ != -1) stream_ << ": " << std::strerror(error_);
    const Setup& setup = TheSetup();
    const char* const tag = tag_ != nullptr ? tag_ : setup.tag.c_str();
    const std::string message = WithoutNuls(stream_.text());
    setup.logger(DEFAULT, severity_, tag, file_, line_, message.c_str());
    if (severity_ == FATAL) setup.aborter(message.c_str());
    errno = saved_errno_;
}

}  // namespace logging
