#include <base/escape.h>
#include <base/standard_error.h>
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

std::string Place(const char* file, unsigned int line) {
    return std::string(file) + ':' + std::to_string(line) + ": ";
}

// SEVERITY tag file:line: text
void WriteToStderr(LogSeverity severity, const char* tag, const char* file, unsigned int line,
                   const char* message) {
    constexpr const char* kNames[] = {"VERBOSE", "DEBUG", "INFO", "WARNING", "ERROR", "FATAL"};
    std::string record = base::EscapedControls(std::string(kNames[severity]) + ' ' + tag + ' ' +
                                               Place(file, line) + message);
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

// Never destroyed: records may come from the destructors of other statics.
Setup& TheSetup() {
    static Setup& setup = *new Setup;
    return setup;
}

// One datagram. Not syslog(3): it puts the time in front, which the daemon does too, at the price
// of the C library's time zones and scanning, and it waits for a daemon that does not read. A
// socket for each record finds a daemon that started late or again, and holds no descriptor. False:
// no daemon takes the record now.
bool SendToLogDaemon(const std::string& record) {
    constexpr sockaddr_un kAddress{AF_UNIX, "/dev/log"};
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return false;
    const bool sent = sendto(fd, record.data(), record.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress) >= 0;
    close(fd);
    return sent;
}

}  // namespace

LogdLogger::LogdLogger(LogId default_id) : default_id_(default_id), pid_(getpid()) {}

void LogdLogger::operator()(LogId id, LogSeverity severity, const char* tag, const char* file,
                            unsigned int line, const char* message) const {
    const LogId buffer = id == DEFAULT ? default_id_ : id;
    const int facility = buffer == MAIN ? LOG_DAEMON : LOG_USER;
    std::string record = base::EscapedControls(
        '<' + std::to_string(facility | SyslogPriority(severity)) + '>' + tag + '[' +
        std::to_string(pid_) + "]: " + Place(file, line) + message);
    base::CutTo(base::kLargestRecord, &record);
    if (!SendToLogDaemon(record)) WriteToStderr(severity, tag, file, line, message);
}

void DefaultAborter(const char*) {
    std::abort();  // The record has told why.
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
    // strerror: glibc's answer is the calling thread's own.
    if (error_ != -1) stream_ << ": " << std::strerror(error_);
    const Setup& setup = TheSetup();
    const char* const tag = tag_ != nullptr ? tag_ : setup.tag.c_str();
    const char* const message = stream_.text().c_str();
    setup.logger(DEFAULT, severity_, tag, file_, line_, message);
    if (severity_ == FATAL) setup.aborter(message);
    errno = saved_errno_;
}

}  // namespace logging
