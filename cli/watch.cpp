#include "watch.h"

#include <unistd.h>

#include <csignal>
#include <ctime>

#include "output.h"

namespace disk_info::cli {

namespace {

bool cursor_is_hidden = false;

// Calls only async-signal-safe functions. It flushes nothing, because WriteOutput flushes each
// frame; it only restores the cursor.
void Exit(int /*signal*/) {
    if (cursor_is_hidden) (void)!write(STDOUT_FILENO, kShowCursor.data(), kShowCursor.size());
    _exit(0);
}

// Overwrites the previous frame line by line; clearing the screen first would flicker.
std::string InPlace(const std::string& frame) {
    std::string text(kCursorHome);
    for (const char c : frame) {
        if (c == '\n') text += kClearToLineEnd;
        text += c;
    }
    return text.append(kClearToScreenEnd);
}

}  // namespace

void Watch(unsigned seconds, const std::function<std::string()>& frame) {
    const bool on_terminal = OutputIsTerminal();
    cursor_is_hidden = on_terminal;
    struct sigaction action = {};
    action.sa_handler = Exit;
    for (const int signal : {SIGINT, SIGTERM}) (void)sigaction(signal, &action, nullptr);
    if (on_terminal && !WriteOutput(std::string(kHideCursor).append(kClearScreen))) return;
    while (WriteOutput(on_terminal ? InPlace(frame()) : frame() + "\n")) {
        const timespec pause{static_cast<time_t>(seconds), 0};
        (void)nanosleep(&pause, nullptr);
    }
    if (on_terminal) (void)WriteOutput(kShowCursor);
}

}  // namespace disk_info::cli
