// The records that the code under test logs, taken instead of the system log. One at a time;
// records of any thread are taken; after its end they are dropped.
#pragma once

#include <logging/logging.h>

#include <string>
#include <vector>

struct LogRecord {
    logging::LogSeverity severity;
    std::string tag, file;
    unsigned int line;
    std::string message;
};

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The records since the last call of either, oldest first; as texts: the severity's initial,
    // a blank and the message.
    std::vector<LogRecord> TakeRecords();
    std::vector<std::string> Take();
};
