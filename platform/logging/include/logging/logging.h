// Log records: severity, tag, source file and line, text.
//
// LOG(ERROR) << "text" << 42; streams its pieces one after the other with no separator; they are
// evaluated only when the severity filter admits the record. PLOG appends ": " and the text of
// errno. Both leave errno as it was. Set up once, before other threads exist; records may then
// come from any thread.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

namespace logging {

enum LogSeverity { VERBOSE, DEBUG, INFO, WARNING, ERROR, FATAL };

enum LogId { DEFAULT, MAIN };  // MAIN is the system log's main buffer

using LogFunction = std::function<void(LogId id, LogSeverity severity, const char* tag,
                                       const char* file, unsigned int line, const char* message)>;
using AbortFunction = std::function<void(const char* message)>;

// Hands records to the system log under the tag, as "file:line: text"; what no log daemon takes at
// once, or no daemon listens for, goes to standard error as a line "SEVERITY tag file:line: text".
// Never waits: a record that standard error does not take at once either is dropped. A daemon that
// starts later, or again, gets the records from then on.
//
// A record is one line of at most 1 KiB, prefix included: a longer one is cut and ends in "...".
// Control characters in the text are written as \n or \x1b.
class LogdLogger {
  public:
    explicit LogdLogger(LogId default_id = MAIN);
    void operator()(LogId id, LogSeverity severity, const char* tag, const char* file,
                    unsigned int line, const char* message) const;

  private:
    LogId default_id_;
    int pid_;
};

// Ends the process with SIGABRT; the record itself has gone to the logger before.
void DefaultAborter(const char* message);

// Installs the logger and the handler that runs after a FATAL record. Until then records go to
// standard error. The program's name is the tag until SetDefaultTag.
void InitLogging(char* argv[], LogFunction&& logger, AbortFunction&& aborter = DefaultAborter);
void SetDefaultTag(const std::string& tag);
// Whether a record of this severity is written. A null tag is the default tag.
bool ShouldLog(LogSeverity severity, const char* tag);
void SetMinimumLogSeverity(LogSeverity severity);  // INFO at the start

// The text of a record under construction.
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
    template <typename T>
    requires std::is_integral_v<T> LogStream& operator<<(T number) {
        return *this << std::string_view(std::to_string(number));
    }
    const std::string& text() const { return text_; }

  private:
    std::string text_;
};

// One record; written when it goes out of scope. `error` -1: no errno text.
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
