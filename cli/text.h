// Text between the engine (wide strings, backslash separators, U+DC80..
// U+DCFF for bytes that did not decode) and the terminal (UTF-8).
#pragma once

#include <string>

namespace kzcli {

// Bytes from the command line or the file system to a wide string. Bytes
// that are not valid UTF-8 become U+DC80..U+DCFF so they survive the trip
// back to a file name unchanged.
std::wstring FromNative(const std::string& bytes);
// The reverse: U+DC80..U+DCFF turn back into their raw bytes.
std::string ToNative(const std::wstring& text);
// Member names use backslashes, paths on this system may use slashes:
// the text with every slash made a backslash, for comparing the two.
std::wstring BackslashSeparators(std::wstring text);

// A member name or path made safe to print: backslash separators shown as
// '/', raw bytes as \xHH, control characters as \xHH or \uXXXX, invisible
// direction overrides as \uXXXX. Since the separator is never printed as a
// backslash, every backslash in the result starts an escape.
std::string DisplayName(const wchar_t* name);
std::string DisplayName(const std::wstring& name);
// Engine text (log messages): escaped like names, backslashes kept.
std::string DisplayText(const wchar_t* text);

// A UTF-8 string as the body of a JSON string literal (without quotes).
std::string JsonEscape(const std::string& utf8);

}  // namespace kzcli
