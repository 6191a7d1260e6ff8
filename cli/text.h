// Text between the engine (wide strings, backslash separators, U+DC80..
// U+DCFF for bytes that did not decode) and the terminal (UTF-8).
#pragma once

#include <filesystem>
#include <string>

namespace kzcli {

// Bytes from the command line or the file system to a wide string. Bytes
// that are not valid UTF-8 become U+DC80..U+DCFF so they survive the trip
// back to a file name unchanged.
std::wstring FromNative(const std::string& bytes);
// The reverse: U+DC80..U+DCFF turn back into their raw bytes.
std::string ToNative(const std::wstring& text);
// A path from the command line for std::filesystem. Windows would read the
// narrow string in the ANSI code page, so it gets the wide text instead.
std::filesystem::path NativePath(const std::string& bytes);
// The archive path as a host hands it to the engine. Windows hosts pass a
// full path: the engine tests for the file through the "\\?\" form, which
// takes no relative path. Elsewhere the path as given.
std::wstring EngineArchivePath(const std::string& bytes);
// The base directory a host hands over with the files to add: on Windows
// the current directory, so that relative names reach the engine as full
// paths (it reads a source's attributes through the "\\?\" form too) and
// are stored as given. Elsewhere none (empty).
std::wstring EngineSourceBase();
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
