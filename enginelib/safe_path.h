// Member names made safe to use as paths. A name from an archive is data
// from whoever made the archive: before it becomes a path it loses every
// way of reaching outside the destination (roots, drives, device and UNC
// prefixes, "." and ".."), and names of files being added lose the same
// parts before they go into an archive.
#pragma once

#include <cstdint>
#include <string>

#include "platform/win32_compat.h"

namespace kz {

struct SanitizeResult {
  std::wstring Path;     // relative, backslash-separated; empty = nothing usable
  bool Dropped = false;  // a root, drive, prefix, "." or ".." component was removed
};

// The relative output path for a member name: separators '/' and '\' alike;
// leading "\\?\", "\\.\" (and a following "UNC"), separators and a drive
// "X:" removed; empty components and those made only of dots and spaces
// dropped; control characters replaced by '_'. pathMode KZ_PATHS_NONE
// keeps only the last component.
KZLIB_API SanitizeResult SanitizeMemberPath(const wchar_t* name, uint32_t pathMode);

// The archive name for a path being added: the same removal of roots,
// drives, prefixes, "." and "..", without any character replacement.
KZLIB_API std::wstring MakeRelativeName(const wchar_t* path);

// True for a path that names a place on its own (a root, a drive with a
// root, a UNC or device prefix), not one relative to a base directory.
KZLIB_API bool IsAbsolutePath(const wchar_t* path);

// Member names compare with '/' and '\' alike and ASCII case ignored: LHA
// archives come from systems whose names are case-insensitive.
KZLIB_API std::wstring MemberNameKey(const wchar_t* name);
KZLIB_API bool SameMemberName(const wchar_t* a, const wchar_t* b);

}  // namespace kz
