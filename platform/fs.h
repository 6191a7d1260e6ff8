// File-system calls of the library's generic operations (extraction and
// archive updates), written so that no call ever acts through a symbolic
// link it did not expect. Paths are the engine's wide, backslashed paths;
// the POSIX side converts them with kz::platform::ToSystemPath.
//
// Every function that can fail reports FALSE with the Win32 error in
// GetLastError(), so callers hand failures to KzArchiver::SetSystemError,
// and every such call passes through the fault-injection seam.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/win32_compat.h"

namespace kz::fs {

enum class EntryType : uint8_t { Missing, File, Directory, Link, Other };

struct EntryInfo {
  EntryType Type = EntryType::Missing;
  uint64_t Size = 0;
  int64_t ModTime = 0;       // Unix seconds
  uint32_t Permissions = 0;  // POSIX mode bits 07777 (Windows: 0444 or 0644)
  uint64_t Volume = 0;       // with FileIndex: the file's identity (device, inode)
  uint64_t FileIndex = 0;
};

// What is at path itself: a final link is reported as Link, never followed.
// A missing path is a success with Type Missing. (kOpen)
KZLIB_API BOOL QueryEntry(const wchar_t* path, EntryInfo& info);
// As QueryEntry, but follows links: what a source path names. (kOpen)
KZLIB_API BOOL QueryTarget(const wchar_t* path, EntryInfo& info);

// Creates one directory (0755 before the umask); an existing entry of any
// kind is ERROR_FILE_EXISTS. (kCreate)
KZLIB_API BOOL MakeDirectory(const wchar_t* path);
// Creates path and its missing parents, following links in parts that
// exist: only for a directory the caller named (the destination). (kCreate)
KZLIB_API BOOL MakeDirectories(const wchar_t* path);

// Replaces `to` by `from` in one step: on POSIX rename(2), which replaces a
// link at `to` rather than following it; on Windows MoveFileExW with
// MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH. (kRename)
KZLIB_API BOOL ReplaceFile(const wchar_t* from, const wchar_t* to);
// Removes a file or a link (not what it points to). (kRename)
KZLIB_API BOOL RemoveFile(const wchar_t* path);

// Modification (and access) time of the entry itself, never through a
// final link. (kWrite)
KZLIB_API BOOL SetModTime(const wchar_t* path, int64_t unixTime);
// Permission bits of a file or directory, refusing a final link. (kWrite)
KZLIB_API BOOL SetPermissions(const wchar_t* path, uint32_t permissions);

// Forces a file's data, or a directory's entries, to the disk; both refuse
// a final link. (kWrite)
KZLIB_API BOOL SyncFile(const wchar_t* path);
KZLIB_API BOOL SyncDirectory(const wchar_t* path);

struct DirEntry {
  std::wstring Name;  // the entry's name alone
  EntryType Type = EntryType::Missing;
};
// The entries of a directory, without "." and "..", sorted by name (code
// point order) so that walks are deterministic. Types are lstat types.
// (kOpen)
KZLIB_API BOOL ListDirectory(const wchar_t* path, std::vector<DirEntry>& entries);

// The path with every link in it resolved (realpath); path itself when
// that fails. (no seam: a failure only keeps the path as given)
KZLIB_API std::wstring ResolveLinks(const wchar_t* path);

// The parent directory of path in engine form ("" for a bare name, "\" for
// a file in the root), and the last component.
KZLIB_API std::wstring ParentOf(const wchar_t* path);
KZLIB_API const wchar_t* LastComponent(const wchar_t* path);

// A name for a temporary file, unique enough to be created exclusively:
// ".kz" + random letters + ".tmp". Callers retry on ERROR_FILE_EXISTS.
KZLIB_API std::wstring TempFileName();

}  // namespace kz::fs
