// The long-path prefix "\\?\" lets Windows take paths past MAX_PATH; the
// engine stores paths without it and adds it only where it asks the system.
#pragma once

#include <string>

namespace kz {

// "\\?\" + path, or "\\?\UNC\" + server path; a prefixed path stays as it is.
std::wstring ToLongPath(const wchar_t* path);
// Drops a "\\?\" (or turns "\\?\UNC\" into "\\") and turns "/" into "\".
// A null path gives the empty string.
std::wstring FromLongPath(const wchar_t* path);

}  // namespace kz
