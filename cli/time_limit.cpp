#include "time_limit.h"

#include <unistd.h>

#include <csignal>
#include <utility>

#include "output.h"

namespace disk_info::cli {

namespace {

std::string out_text;
std::string err_text;
int status_if_written = 0;
int status_if_unwritten = 0;

// Calls only async-signal-safe functions; the texts do not change while the alarm is set.
void Exit(int /*signal*/) {
    const bool written = WriteOutput(out_text);
    (void)WriteAll(STDERR_FILENO, err_text);
    _exit(written ? status_if_written : status_if_unwritten);
}

}  // namespace

TimeLimit::TimeLimit(unsigned seconds, std::string out, std::string err, int status,
                     int status_unwritten) {
    out_text = std::move(out);
    err_text = std::move(err);
    status_if_written = status;
    status_if_unwritten = status_unwritten;
    struct sigaction action = {};
    action.sa_handler = Exit;
    (void)sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm_only;
    (void)sigemptyset(&alarm_only);
    (void)sigaddset(&alarm_only, SIGALRM);
    (void)sigprocmask(SIG_UNBLOCK, &alarm_only, nullptr);  // The parent may have blocked it.
    (void)alarm(seconds);
}

TimeLimit::~TimeLimit() {
    (void)alarm(0);
}

}  // namespace disk_info::cli
