#include "watch.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace disk_info::client {

namespace {

constexpr std::string_view kHideCursor = "\x1b[?25l";
constexpr std::string_view kShowCursor = "\x1b[?25h\n";
constexpr std::string_view kHome = "\x1b[H";
constexpr std::string_view kClearLine = "\x1b[K\n";
constexpr std::string_view kClearRest = "\x1b[J";

bool on_terminal = false;

// Everything is written already but for this, and nothing else wants tidying up.
void leave(int /*signal*/) {
    if (on_terminal) (void)!write(STDOUT_FILENO, kShowCursor.data(), kShowCursor.size());
    _exit(0);
}

bool print(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
           std::fflush(stdout) == 0;
}

// Written over the frame before it, line by line, which flickers less than clearing first.
std::string inPlace(const std::string& frame) {
    std::string text(kHome);
    for (const char c : frame) {
        if (c == '\n') {
            text += kClearLine;
        } else {
            text += c;
        }
    }
    return text.append(kClearRest);
}

}  // namespace

void watch(unsigned seconds, const std::function<std::string()>& frame) {
    on_terminal = isatty(STDOUT_FILENO) != 0;
    struct sigaction action = {};
    action.sa_handler = leave;
    for (const int signal : {SIGINT, SIGTERM}) (void)sigaction(signal, &action, nullptr);
    if (on_terminal && !print(std::string(kHideCursor) + "\x1b[2J")) return;
    while (print(on_terminal ? inPlace(frame()) : frame() + "\n")) {
        const timespec pause{static_cast<time_t>(seconds), 0};
        (void)nanosleep(&pause, nullptr);
    }
    if (on_terminal) (void)print(kShowCursor);
}

}  // namespace disk_info::client
