#include <logging/logging.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace logging {
namespace {

std::atomic<LogSeverity> minimum_severity{INFO};

// A record is one line: a text that came from elsewhere must not end it early or drive a terminal.
std::string Escaped(std::string_view text) {
    constexpr char kHex[] = "0123456789abcdef";
    const auto is_control = [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; };
    std::string result;
    while (!text.empty()) {
        const auto control = std::ranges::find_if(text, is_control);
        result.append(text.begin(), control);
        text.remove_prefix(size_t(control - text.begin()));
        if (text.empty()) break;
        const char c = text.front();
        text.remove_prefix(1);
        if (c == '\n') {
            result += "\\n";
        } else {
            result += {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
        }
    }
    return result;
}

std::string Place(const char* file, unsigned int line) {
    return std::string(file) + ':' + std::to_string(line) + ": ";
}

// SEVERITY tag file:line: text
void WriteToStderr(LogSeverity severity, const char* tag, const char* file, unsigned int line,
                   const char* message) {
    constexpr const char* kNames[] = {"VERBOSE", "DEBUG", "INFO", "WARNING", "ERROR", "FATAL"};
    std::string record = std::string(kNames[severity]) + ' ' + tag + ' ' + Place(file, line);
    record += Escaped(message) + '\n';
    std::string_view rest = record;
    while (!rest.empty()) {
        const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;  // Nobody is left to be told.
        rest.remove_prefix(size_t(written));
    }
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

}  // namespace

// The way to the log daemon, for one datagram a record. Not syslog(3): it puts the time in front,
// which the daemon knows too, at the price of the C library's time zones and scanning, and it waits
// for a daemon that does not read.
class LogdLogger::Socket {
  public:
    Socket() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    ~Socket() {
        if (fd_ >= 0) close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // False: no daemon listens.
    bool Connect() const {
        constexpr sockaddr_un kAddress{AF_UNIX, "/dev/log"};
        return connect(fd_, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress) == 0;
    }
    // Reaches a daemon that was started anew, too. False: none takes the record now.
    bool Send(const std::string& record) const {
        const auto send_once = [&] {
            return send(fd_, record.data(), record.size(), MSG_NOSIGNAL) >= 0;
        };
        return send_once() || (errno != EAGAIN && Connect() && send_once());
    }

  private:
    const int fd_;
};

LogdLogger::LogdLogger(LogId default_id) : default_id_(default_id), pid_(getpid()) {
    auto log = std::make_shared<const Socket>();
    if (log->Connect()) log_ = std::move(log);
}

void LogdLogger::operator()(LogId id, LogSeverity severity, const char* tag, const char* file,
                            unsigned int line, const char* message) const {
    const LogId buffer = id == DEFAULT ? default_id_ : id;
    const int facility = buffer == MAIN ? LOG_DAEMON : LOG_USER;
    if (log_ != nullptr &&
        log_->Send('<' + std::to_string(facility | SyslogPriority(severity)) + '>' + tag + '[' +
                   std::to_string(pid_) + "]: " + Place(file, line) + Escaped(message))) {
        return;
    }
    // Behind a service's standard error there is the log daemon again, most likely.
    pollfd rest{STDERR_FILENO, POLLOUT, 0};
    if (log_ != nullptr && poll(&rest, 1, 0) != 1) return;
    WriteToStderr(severity, tag, file, line, message);
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
