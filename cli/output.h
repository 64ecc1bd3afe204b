// Standard output: writing to it, and the escape sequences for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace disk_info::cli {

inline constexpr std::string_view kHideCursor = "\x1b[?25l";
inline constexpr std::string_view kShowCursor = "\x1b[?25h\n";  // the prompt starts a new line
inline constexpr std::string_view kCursorHome = "\x1b[H";
inline constexpr std::string_view kClearScreen = "\x1b[2J";
inline constexpr std::string_view kClearToLineEnd = "\x1b[K";
inline constexpr std::string_view kClearToScreenEnd = "\x1b[J";

enum class Colour { kDefault, kRed, kGreen, kYellow };

// `text` in this colour; unchanged for kDefault and for an empty text.
std::string Coloured(Colour colour, const std::string& text);

bool OutputIsTerminal();

// Zeros if standard output is no terminal or the terminal does not report its size.
struct Size {
    size_t rows;
    size_t columns;
};
Size OutputSize();

// When the output has colour and bars.
enum class Decoration { kAuto, kAlways, kNever };
inline constexpr const char* kDecorationNames[]{"auto", "always", "never"};

// kAuto: whether standard output is a terminal other than "dumb", and NO_COLOR is unset or empty.
bool OutputIsDecorated(Decoration decoration);

// Writes and flushes; false if that failed.
[[nodiscard]] bool WriteOutput(std::string_view text);

}  // namespace disk_info::cli
