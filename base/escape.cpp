#include <base/escape.h>

#include <algorithm>
#include <cstdint>

namespace base {
namespace {

// Size in bytes of the UTF-8 sequence at the start of `text`; 1 for ASCII and an invalid sequence.
size_t CharacterSize(std::string_view text) {
    const auto byte = [text](size_t i) {
        return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0};
    };
    const uint8_t lead = byte(0);
    if (lead < 0xc2 || lead > 0xf4) return 1;
    // The range of the second byte excludes overlong forms, surrogates and values above U+10FFFF.
    const uint8_t least = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    const uint8_t most = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    if (byte(1) < least || byte(1) > most) return 1;
    const size_t size = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    for (size_t i = 2; i < size; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 1;
    }
    return size;
}

bool IsControl(std::string_view character) {
    const auto byte = static_cast<uint8_t>(character.back());
    switch (character.size()) {
        case 1:
            return byte < 0x20 || (byte >= 0x7f && byte < 0xa0);
        case 2:
            return character.front() == '\xc2' && byte < 0xa0;
        default:
            return false;
    }
}

std::string Escape(std::string_view text, bool escape_backslashes) {
    constexpr char kHex[] = "0123456789abcdef";
    const auto plain = [](char c) { return c >= 0x20 && c < 0x7f && c != '\\'; };
    std::string result;
    while (!text.empty()) {
        const auto run = std::ranges::find_if_not(text, plain);
        result.append(text.begin(), run);
        text.remove_prefix(static_cast<size_t>(run - text.begin()));
        if (text.empty()) break;
        const std::string_view character = text.substr(0, CharacterSize(text));
        text.remove_prefix(character.size());
        if (character == "\n") {
            result += "\\n";
        } else if (character == "\\" && escape_backslashes) {
            result += "\\\\";
        } else if (IsControl(character)) {
            for (const char c : character) {
                const auto byte = static_cast<uint8_t>(c);
                result += {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
            }
        } else {
            result += character;
        }
    }
    return result;
}

// Size in bytes of the escape or the character at the start of `text`.
size_t UnitSize(std::string_view text) {
    if (text[0] != '\\') return CharacterSize(text);
    return text.substr(1, 1) == "x" ? 4 : 2;
}

}  // namespace

std::string Escaped(std::string_view text) {
    return Escape(text, true);
}

std::string EscapedControls(std::string_view text) {
    return Escape(text, false);
}

void CutTo(size_t size, std::string* text) {
    constexpr std::string_view kMark = "...";
    if (text->size() <= size) return;
    size_t end = 0;
    for (size_t next = 0; next <= size - kMark.size();) {
        end = next;
        next += UnitSize(std::string_view{*text}.substr(next));
    }
    text->replace(end, std::string::npos, kMark);
}

}  // namespace base
