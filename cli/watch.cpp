#include "watch.h"

#include <base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>

namespace disk_info::cli {

namespace {

using Clock = std::chrono::steady_clock;

bool screen_is_taken = false;

// Calls only async-signal-safe functions.
void Exit(int /*signal*/) {
    if (screen_is_taken) (void)WriteOutput(kLeaveScreen);
    _exit(0);
}

// Stops the process with the shell's screen. Runs in AwaitDrawing alone, which then draws the frame
// again.
void Suspend(int /*signal*/) {
    if (screen_is_taken) (void)WriteOutput(kLeaveScreen);
    (void)raise(SIGSTOP);
    if (screen_is_taken) (void)WriteOutput(kEnterScreen);
}

void Ignore(int /*signal*/) {}

void Handle(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    (void)sigaction(signal, &action, nullptr);
}

bool Draw(const std::string& frame) {
    return WriteOutput(screen_is_taken ? OnScreen(frame, OutputSize()) : frame + "\n");
}

// Waits until `fd` is readable or the time has come; -1 is no descriptor. SIGWINCH and SIGTSTP,
// which are otherwise blocked, draw `frame` again. False: the output cannot be written.
bool AwaitDrawing(int fd, Clock::time_point end, const std::string& frame) {
    sigset_t none;
    (void)sigemptyset(&none);
    for (;;) {
        const auto left = std::max(end - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout{seconds.count(), (left - seconds).count()};
        pollfd readable{fd, POLLIN, 0};
        if (ppoll(&readable, 1, &timeout, &none) != -1 || errno != EINTR) return true;
        if (screen_is_taken && !Draw(frame)) return false;
    }
}

// Does not return.
void PrintInChild(int output, const std::function<void(const Size&)>& print) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) Handle(signal, SIG_DFL);
    const Size size = OutputSize();
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(output, STDERR_FILENO);
    print(size);
    _exit(0);
}

// Replaces `frame` with what a child prints. False: the output cannot be written.
bool Renew(std::string* frame, const std::function<void(const Size&)>& print) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        *frame = std::string("disk_info: cannot create a pipe: ") + std::strerror(errno) + "\n";
        return true;
    }
    const base::UniqueFd reader(ends[0]);
    base::UniqueFd writer(ends[1]);
    const pid_t child = fork();
    if (child == 0) PrintInChild(writer.get(), print);
    if (child < 0) {
        *frame = std::string("disk_info: cannot start a process: ") + std::strerror(errno) + "\n";
        return true;
    }
    writer = base::UniqueFd();
    std::string text;
    char part[4096];
    for (ssize_t length = 1; length > 0;) {
        if (!AwaitDrawing(reader.get(), Clock::now() + std::chrono::hours(24), *frame)) {
            return false;
        }
        length = read(reader.get(), part, sizeof(part));
        if (length > 0) text.append(part, static_cast<size_t>(length));
    }
    (void)waitpid(child, nullptr, 0);
    *frame = std::move(text);
    return true;
}

}  // namespace

void Watch(unsigned seconds, const std::function<void(const Size&)>& print) {
    screen_is_taken = OutputIsTerminal();
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) Handle(signal, Exit);
    Handle(SIGWINCH, Ignore);
    Handle(SIGTSTP, Suspend);
    sigset_t deferred;
    (void)sigemptyset(&deferred);
    (void)sigaddset(&deferred, SIGWINCH);
    (void)sigaddset(&deferred, SIGTSTP);
    (void)sigprocmask(SIG_BLOCK, &deferred, nullptr);
    if (screen_is_taken && !WriteOutput(kEnterScreen)) return;
    std::string frame;
    while (Renew(&frame, print) && Draw(frame) &&
           AwaitDrawing(-1, Clock::now() + std::chrono::seconds(seconds), frame)) {
    }
    if (screen_is_taken) (void)WriteOutput(kLeaveScreen);
}

}  // namespace disk_info::cli
