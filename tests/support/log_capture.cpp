#include "log_capture.h"

#include <mutex>
#include <utility>

namespace {

std::mutex mutex;
std::vector<LogRecord> records;

}  // namespace

LogCapture::LogCapture() {
    static char name[] = "test";
    static char* arguments[] = {name, nullptr};
    records.clear();
    logging::InitLogging(arguments,
                         [](logging::LogId, logging::LogSeverity severity, const char* tag,
                            const char* file, unsigned int line, const char* message) {
                             const std::scoped_lock lock(mutex);
                             records.push_back({severity, tag, file, line, message});
                         });
}

LogCapture::~LogCapture() {
    logging::InitLogging(nullptr, [](logging::LogId, logging::LogSeverity, const char*, const char*,
                                     unsigned int, const char*) {});
}

std::vector<LogRecord> LogCapture::TakeRecords() {
    const std::scoped_lock lock(mutex);
    return std::exchange(records, {});
}

std::vector<std::string> LogCapture::Take() {
    std::vector<std::string> texts;
    for (const LogRecord& record : TakeRecords()) {
        texts.push_back(std::string{"VDIWEF"[record.severity], ' '} + record.message);
    }
    return texts;
}
