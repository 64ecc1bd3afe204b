#include "output.h"

#include <base/retry.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace disk_info::cli {

std::string Coloured(Colour colour, const std::string& text) {
    static constexpr std::array<const char*, 4> kSequences{"", "\x1b[31m", "\x1b[32m", "\x1b[33m"};
    if (colour == Colour::kDefault || text.empty()) return text;
    return kSequences[static_cast<size_t>(colour)] + text + "\x1b[0m";
}

namespace {

// Cuts the line at the last column. Escape sequences take no column; all of them are kept, so that
// no colour continues beyond the line.
std::string Cropped(std::string_view line, size_t columns) {
    std::string text;
    bool in_sequence = false;
    for (const char c : line) {
        if (c == '\x1b') in_sequence = true;
        if (in_sequence || columns > 0) text += c;
        if (!in_sequence) columns -= columns > 0 ? 1 : 0;
        if (c == 'm') in_sequence = false;
    }
    return text;
}

}  // namespace

std::string OnScreen(std::string_view frame, const Size& size) {
    static constexpr std::string_view kHome = "\x1b[H";
    static constexpr std::string_view kClearLine = "\x1b[K";
    static constexpr std::string_view kClearBelow = "\x1b[J";
    std::string text(kHome);
    const auto lines = static_cast<size_t>(std::ranges::count(frame, '\n'));
    const bool fits = size.rows == 0 || lines < size.rows;
    // A line end in the last row would scroll.
    const size_t shown = fits ? lines : size.rows - 1;
    for (size_t i = 0; i < shown; ++i) {
        const size_t end = frame.find('\n');
        const std::string_view line = frame.substr(0, end);
        frame.remove_prefix(end + 1);
        text.append(kClearLine).append(size.columns == 0 ? line : Cropped(line, size.columns));
        text += '\n';
    }
    text += kClearBelow;
    if (!fits) text += Cropped(std::to_string(lines - shown) + " more lines", size.columns);
    return text;
}

bool OutputIsTerminal() {
    const char* const terminal = std::getenv("TERM");
    const bool is_dumb = terminal != nullptr && std::string_view(terminal) == "dumb";
    return !is_dumb && isatty(STDOUT_FILENO) != 0;
}

Size OutputSize() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {0, 0};
    return {size.ws_row, size.ws_col};
}

bool OutputIsDecorated(Decoration decoration) {
    if (decoration != Decoration::kAuto) return decoration == Decoration::kAlways;
    const char* const no_color = std::getenv("NO_COLOR");
    return OutputIsTerminal() && (no_color == nullptr || *no_color == '\0');
}

void OccupyStandardStreams() {
    // open returns the lowest free number.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", O_RDONLY);
    }
}

bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const auto write_rest = [&] { return write(fd, text.data(), text.size()); };
        const ssize_t written = base::RetryOnInterrupt(write_rest);
        if (written <= 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

bool WriteOutput(std::string_view text) {
    return WriteAll(STDOUT_FILENO, text);
}

}  // namespace disk_info::cli
