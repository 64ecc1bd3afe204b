// Captures the records that the code under test logs, from all threads. One object at a time; after
// its end records are dropped.
#pragma once

#include <logging/logging.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

class LogCapture {
  public:
    LogCapture() {
        logging::InitLogging(
            nullptr, [this](logging::LogId, logging::LogSeverity severity, const char*, const char*,
                            unsigned int, const char* message) {
                const std::scoped_lock lock(mutex_);
                records_.push_back(std::string{"VDIWEF"[severity], ' '} + message);
            });
    }
    ~LogCapture() {
        logging::InitLogging(nullptr, [](auto...) {});
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The records since the last call, oldest first: initial of the severity, space, message.
    std::vector<std::string> Take() {
        const std::scoped_lock lock(mutex_);
        return std::exchange(records_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> records_;
};
