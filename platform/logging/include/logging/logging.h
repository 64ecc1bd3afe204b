// Log records with severity, tag, source file and line, and text.
//
// LOG(ERROR) << "text" << 42; joins its pieces without a separator. The pieces are evaluated only
// if the severity filter admits the record. PLOG appends ": " and the text of errno. Both preserve
// errno. Set logging up before starting a second thread; any thread may log afterwards.
#pragma once

#include <cerrno>
#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace logging {

enum LogSeverity { VERBOSE, DEBUG, INFO, WARNING, ERROR, FATAL };

enum LogId { DEFAULT, MAIN };  // DEFAULT: the logger's own; MAIN: main buffer of the system log

// Receives each admitted record. The strings are valid during the call only.
using LogFunction = std::function<void(LogId id, LogSeverity severity, const char* tag,
                                       const char* file, unsigned int line, const char* message)>;
using AbortFunction = std::function<void(const char* message)>;

// Sends each record to the system log, with its tag, as "file:line: text". If no log daemon accepts
// it at once, writes it to standard error as a line "SEVERITY tag file:line: text"; if standard
// error does not accept it at once either, drops it. Does not block, except as described in
// base/standard_error.h. Connects for each record, so the log daemon may start late or restart.
//
// A record is one line of at most 1 KiB including its prefix; a longer one is cut and ends in
// "...". Control characters are escaped: \n, \x1b.
class LogdLogger {
  public:
    explicit LogdLogger(LogId default_id = MAIN);
    void operator()(LogId id, LogSeverity severity, const char* tag, const char* file,
                    unsigned int line, const char* message) const;

  private:
    LogId default_id_;
    int pid_;
};

// Ends the process with SIGABRT. Runs after the logger has received the record.
void DefaultAborter(const char* message);

// Installs the logger and the handler that runs after a FATAL record; an empty function changes
// nothing. Before the first call, records go to standard error. The tag is the file name of argv[0]
// until SetDefaultTag; `argv` may be null and is not kept.
void InitLogging(char* argv[], LogFunction&& logger, AbortFunction&& aborter = DefaultAborter);
void SetDefaultTag(const std::string& tag);
// Whether the severity filter admits a record of this severity. It is the same for every tag.
bool ShouldLog(LogSeverity severity, const char* tag);
void SetMinimumLogSeverity(LogSeverity severity);  // INFO until the first call

// Collects the text of one record.
class LogStream {
  public:
    LogStream& operator<<(std::string_view text) {
        text_ += text;
        return *this;
    }
    LogStream& operator<<(const char* text) { return *this << std::string_view(text); }
    LogStream& operator<<(const std::string& text) { return *this << std::string_view(text); }
    LogStream& operator<<(char c) {
        text_ += c;
        return *this;
    }
    template <std::integral T>
    LogStream& operator<<(T number) {
        return *this << std::string_view(std::to_string(number));
    }
    const std::string& text() const { return text_; }

  private:
    std::string text_;
};

// One record; its destructor passes it to the logger, with a NUL in the text as \x00. `error` -1:
// no errno text. `file` and `tag` are borrowed; a null tag is the default tag.
class LogMessage {
  public:
    LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
               int error);
    ~LogMessage();
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;
    LogStream& stream() { return stream_; }

  private:
    const char* file_;
    unsigned int line_;
    LogSeverity severity_;
    const char* tag_;
    int error_;
    int saved_errno_;
    LogStream stream_;
};

}  // namespace logging

#define LOG_WITH_ERROR(severity, error)                                                       \
    if (const int log_error = (error); !::logging::ShouldLog(::logging::severity, nullptr)) { \
    } else                                                                                    \
        ::logging::LogMessage(__FILE__, __LINE__, ::logging::severity, nullptr, log_error).stream()

#define LOG(severity) LOG_WITH_ERROR(severity, -1)
#define PLOG(severity) LOG_WITH_ERROR(severity, errno)
