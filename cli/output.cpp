#include "output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace disk_info::cli {

std::string Coloured(Colour colour, const std::string& text) {
    static constexpr std::array<const char*, 4> kSequences{"", "\x1b[31m", "\x1b[32m", "\x1b[33m"};
    if (colour == Colour::kDefault || text.empty()) return text;
    return kSequences[static_cast<size_t>(colour)] + text + "\x1b[0m";
}

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) != 0;
}

Size OutputSize() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {0, 0};
    return {size.ws_row, size.ws_col};
}

bool OutputIsDecorated(Decoration decoration) {
    if (decoration != Decoration::kAuto) return decoration == Decoration::kAlways;
    const char* const no_color = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return OutputIsTerminal() && (no_color == nullptr || *no_color == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

bool WriteOutput(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
           std::fflush(stdout) == 0;
}

}  // namespace disk_info::cli
