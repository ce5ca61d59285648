// Text that people and programs read line by line: which names are fit for it, and others escaped.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Quill {

// The first character of `text` that no name may have, with its number from 1: "character 3 is U+001B", or
// "character 3 is the byte 0xff, which is not UTF-8". Nothing if `text` is valid UTF-8 without control
// characters (C0, DEL, C1), separators of lines and paragraphs (U+2028, U+2029), and characters that change the
// direction of what follows (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069).
std::optional< std::string > unprintableIn( std::string_view text );

// `text` with each byte of such a character as "\x1b". The rest, "\" included, is unchanged.
std::string printable( std::string_view text );

} // namespace Quill
