// Standard output: writing to it, and the escape sequences for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace disk_info::cli {

// The alternate screen, without a cursor. Leaving it shows what was there before.
inline constexpr std::string_view kEnterScreen = "\x1b[?1049h\x1b[?25l\x1b[2J";
inline constexpr std::string_view kLeaveScreen = "\x1b[?25h\x1b[?1049l";

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

// `frame` as one text that overwrites the screen line by line; clearing it first would flicker.
// Lines and columns that do not fit are left out; a size of 0 has no limit. Of escape sequences
// the frame has only colours.
std::string OnScreen(std::string_view frame, const Size& size);

// When the output has colour and bars.
enum class Decoration { kAuto, kAlways, kNever };
inline constexpr const char* kDecorationNames[]{"auto", "always", "never"};

// kAuto: whether standard output is a terminal other than "dumb", and NO_COLOR is unset or empty.
bool OutputIsDecorated(Decoration decoration);

// Opens /dev/null for reading on each standard stream that is closed, so that no other descriptor
// gets its number. Writes to it fail, as to a closed one.
void OccupyStandardStreams();

// Write all of the text; false if that failed. Async-signal-safe.
[[nodiscard]] bool WriteAll(int fd, std::string_view text);
[[nodiscard]] bool WriteOutput(std::string_view text);  // to standard output

}  // namespace disk_info::cli
