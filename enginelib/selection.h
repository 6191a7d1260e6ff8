// Matching member names against the host's selection.
#pragma once

#include <cstdint>

#include "platform/win32_compat.h"

namespace kz {

// '*' matches any run of characters (separators included), '?' one
// character; '/' and '\' are the same character; noCase folds ASCII.
KZLIB_API bool WildcardMatch(const wchar_t* pattern, const wchar_t* name, bool noCase);

// One selection pattern against a member name under KzSelectFlags.
KZLIB_API bool NameSelected(const wchar_t* pattern, const wchar_t* name, uint32_t flags);

}  // namespace kz
