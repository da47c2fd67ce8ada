// Canonical composition and decomposition of UTF-8 as the Apple file systems
// practise them, for hosts whose iconv does not know "UTF-8-MAC".
//
// Three ranges never take part: U+2000-U+2FFF, U+F900-U+FAFF and
// U+2F800-U+2FAFF. They are not decomposed, and nothing is composed into or out
// of them.
#pragma once

#include <string>
#include <string_view>

// Composes only: a character that is composed already stays as it is, also
// where the usual normal form would take it apart (U+0958). The result is never
// longer than the input. False for text that is no valid UTF-8.
bool composeUtf8(std::string_view text, std::string &out);

// Takes composed characters apart, in canonical order. The result may be longer
// than the input. False for text that is no valid UTF-8.
bool decomposeUtf8(std::string_view text, std::string &out);
