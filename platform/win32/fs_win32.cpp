// Windows side of platform/fs.h. Links here are symbolic links and
// junctions; calls that must not act through one open the entry itself
// with FILE_FLAG_OPEN_REPARSE_POINT and check what they got. Where POSIX
// and Windows differ in what a call may do (replacing or removing a
// read-only file, flushing a directory), the POSIX behaviour is kept so
// that both builds leave the same files behind.
#include "platform/fs.h"

#include <algorithm>

#include "enginelib/file_stream.h"
#include "platform/win32/win32_util.h"

namespace kz::fs {
namespace {

using kz::platform::ToSystemPath;
using kz::platform::win32::FileTimeFromUnix;
using kz::platform::win32::Handle;
using kz::platform::win32::IsLinkHandle;
using kz::platform::win32::OpenForMetadata;
using kz::platform::win32::UnixFromFileTime;

constexpr BOOL kTrue = 1;
constexpr BOOL kFalse = 0;

BOOL Fail(DWORD error) {
  SetLastError(error);
  return kFalse;
}

// True when the seam wants this call to fail; the seam has set the error.
bool Injected(kz::fault::IoKind kind) { return kz::fault::ShouldFail(kind); }

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsMissingError(DWORD error) { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

BOOL Query(const wchar_t* path, EntryInfo& info, bool followLinks) {
  info = EntryInfo{};
  if (Injected(kz::fault::kOpen)) return kFalse;
  Handle h(OpenForMetadata(path, FILE_READ_ATTRIBUTES, !followLinks));
  if (!h.valid()) return IsMissingError(GetLastError()) ? kTrue : kFalse;
  BY_HANDLE_FILE_INFORMATION fi;
  if (!GetFileInformationByHandle(h.get(), &fi)) return kFalse;
  bool directory = (fi.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!followLinks && IsLinkHandle(h.get())) {
    info.Type = EntryType::Link;
  } else {
    info.Type = directory ? EntryType::Directory : EntryType::File;
  }
  info.Size = directory ? 0 : (uint64_t{fi.nFileSizeHigh} << 32) | fi.nFileSizeLow;
  info.ModTime = UnixFromFileTime(fi.ftLastWriteTime);
  bool readOnly = (fi.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  info.Permissions = directory ? 0755 : readOnly ? 0444 : 0644;
  info.Volume = fi.dwVolumeSerialNumber;
  info.FileIndex = (uint64_t{fi.nFileIndexHigh} << 32) | fi.nFileIndexLow;
  return kTrue;
}

// Opens path itself (never through a final link) for metadata; a link is
// refused with the error POSIX gives for O_NOFOLLOW.
bool OpenNoFollow(const wchar_t* path, DWORD access, Handle& out) {
  HANDLE h = OpenForMetadata(path, access, true);
  if (h == INVALID_HANDLE_VALUE) return false;
  if (IsLinkHandle(h)) {
    CloseHandle(h);
    SetLastError(ERROR_CANT_RESOLVE_FILENAME);
    return false;
  }
  out.reset(h);
  return true;
}

// Clears a file's read-only attribute so it can be replaced or removed, as
// POSIX allows for any file in a writable directory. Returns the attributes
// to restore, or INVALID_FILE_ATTRIBUTES when nothing was changed.
DWORD MakeWritable(const std::wstring& sys) {
  DWORD attrs = GetFileAttributesW(sys.c_str());
  if (attrs == INVALID_FILE_ATTRIBUTES || (attrs & FILE_ATTRIBUTE_READONLY) == 0) {
    return INVALID_FILE_ATTRIBUTES;
  }
  if (!SetFileAttributesW(sys.c_str(), attrs & ~DWORD{FILE_ATTRIBUTE_READONLY})) return INVALID_FILE_ATTRIBUTES;
  return attrs;
}

void RestoreAttributes(const std::wstring& sys, DWORD attrs) {
  if (attrs != INVALID_FILE_ATTRIBUTES) SetFileAttributesW(sys.c_str(), attrs);
}

// Length of the part of path that names a root: "\", "X:", "X:\",
// "\\server\share\", and the same behind "\\?\" or "\\?\UNC\".
size_t RootLength(const std::wstring& p) {
  size_t i = 0;
  bool unc = false;
  if (p.compare(0, 4, L"\\\\?\\") == 0) {
    i = 4;
    if (p.compare(4, 4, L"UNC\\") == 0) {
      i = 8;
      unc = true;
    }
  } else if (p.size() >= 2 && IsSeparator(p[0]) && IsSeparator(p[1])) {
    i = 2;
    unc = true;
  }
  if (unc) {
    for (int part = 0; part < 2; ++part) {  // server, then share
      while (i < p.size() && !IsSeparator(p[i])) ++i;
      if (i < p.size()) ++i;
    }
    return i;
  }
  if (p.size() >= i + 2 && p[i + 1] == L':') {
    i += 2;
    if (i < p.size() && IsSeparator(p[i])) ++i;
    return i;
  }
  if (i == 0 && !p.empty() && IsSeparator(p[0])) return 1;
  return i;
}

}  // namespace

BOOL QueryEntry(const wchar_t* path, EntryInfo& info) { return Query(path, info, false); }
BOOL QueryTarget(const wchar_t* path, EntryInfo& info) { return Query(path, info, true); }

BOOL MakeDirectory(const wchar_t* path) {
  if (Injected(kz::fault::kCreate)) return kFalse;
  if (CreateDirectoryW(ToSystemPath(path).c_str(), nullptr)) return kTrue;
  // The library treats an existing entry as EEXIST is treated on POSIX.
  return GetLastError() == ERROR_ALREADY_EXISTS ? Fail(ERROR_FILE_EXISTS) : kFalse;
}

BOOL MakeDirectories(const wchar_t* path) {
  std::wstring p = path != nullptr ? path : L"";
  for (wchar_t& c : p) {
    if (c == L'/') c = L'\\';
  }
  size_t root = RootLength(p);
  while (p.size() > root && p.back() == L'\\') p.pop_back();
  // Each prefix that ends before a separator past the root, then the whole.
  for (size_t i = root + 1; i <= p.size(); ++i) {
    if (i < p.size() && p[i] != L'\\') continue;
    std::wstring prefix = ToSystemPath(p.substr(0, i).c_str());
    DWORD attrs = GetFileAttributesW(prefix.c_str());
    if (attrs != INVALID_FILE_ATTRIBUTES) {
      if (attrs & FILE_ATTRIBUTE_DIRECTORY) continue;
      return Fail(ERROR_PATH_NOT_FOUND);  // a file where a directory goes
    }
    if (Injected(kz::fault::kCreate)) return kFalse;
    if (!CreateDirectoryW(prefix.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) return kFalse;
  }
  return kTrue;
}

BOOL ReplaceFile(const wchar_t* from, const wchar_t* to) {
  if (Injected(kz::fault::kRename)) return kFalse;
  std::wstring src = ToSystemPath(from);
  std::wstring dst = ToSystemPath(to);
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (MoveFileExW(src.c_str(), dst.c_str(), kFlags)) return kTrue;
  if (GetLastError() != ERROR_ACCESS_DENIED) return kFalse;
  DWORD saved = MakeWritable(dst);
  if (saved == INVALID_FILE_ATTRIBUTES) return Fail(ERROR_ACCESS_DENIED);
  if (MoveFileExW(src.c_str(), dst.c_str(), kFlags)) return kTrue;
  DWORD error = GetLastError();
  RestoreAttributes(dst, saved);
  return Fail(error);
}

BOOL RemoveFile(const wchar_t* path) {
  if (Injected(kz::fault::kRename)) return kFalse;
  std::wstring sys = ToSystemPath(path);
  DWORD attrs = GetFileAttributesW(sys.c_str());
  // A link to a directory is removed as a directory entry.
  if (attrs != INVALID_FILE_ATTRIBUTES && (attrs & FILE_ATTRIBUTE_REPARSE_POINT) &&
      (attrs & FILE_ATTRIBUTE_DIRECTORY)) {
    return RemoveDirectoryW(sys.c_str()) ? kTrue : kFalse;
  }
  if (DeleteFileW(sys.c_str())) return kTrue;
  if (GetLastError() != ERROR_ACCESS_DENIED) return kFalse;
  DWORD saved = MakeWritable(sys);
  if (saved == INVALID_FILE_ATTRIBUTES) return Fail(ERROR_ACCESS_DENIED);
  if (DeleteFileW(sys.c_str())) return kTrue;
  DWORD error = GetLastError();
  RestoreAttributes(sys, saved);
  return Fail(error);
}

BOOL SetModTime(const wchar_t* path, int64_t unixTime) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  FILETIME ft;
  if (!FileTimeFromUnix(unixTime, ft)) return Fail(ERROR_INVALID_PARAMETER);
  Handle h(OpenForMetadata(path, FILE_WRITE_ATTRIBUTES, true));
  if (!h.valid()) return kFalse;
  return SetFileTime(h.get(), nullptr, &ft, &ft) ? kTrue : kFalse;
}

BOOL SetPermissions(const wchar_t* path, uint32_t permissions) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  Handle h;
  if (!OpenNoFollow(path, FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, h)) return kFalse;
  BY_HANDLE_FILE_INFORMATION fi;
  if (!GetFileInformationByHandle(h.get(), &fi)) return kFalse;
  // Only "not writable" has a Windows form, and only for files: the
  // read-only bit on a directory means something else to the shell.
  if (fi.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return kTrue;
  DWORD attrs = fi.dwFileAttributes & ~DWORD{FILE_ATTRIBUTE_READONLY};
  if ((permissions & 0222) == 0) attrs |= FILE_ATTRIBUTE_READONLY;
  if (attrs == fi.dwFileAttributes) return kTrue;
  FILE_BASIC_INFO basic{};  // zero times: left as they are
  basic.FileAttributes = attrs != 0 ? attrs : FILE_ATTRIBUTE_NORMAL;
  return SetFileInformationByHandle(h.get(), FileBasicInfo, &basic, sizeof basic) ? kTrue : kFalse;
}

BOOL SyncFile(const wchar_t* path) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  Handle h;
  if (!OpenNoFollow(path, GENERIC_WRITE, h)) {
    if (GetLastError() != ERROR_ACCESS_DENIED) return kFalse;
    // A read-only file cannot be opened for writing, so nothing of ours is
    // waiting in its buffers; it only has to be there and not be a link.
    return OpenNoFollow(path, FILE_READ_ATTRIBUTES, h) ? kTrue : kFalse;
  }
  return FlushFileBuffers(h.get()) ? kTrue : kFalse;
}

BOOL SyncDirectory(const wchar_t* path) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  Handle h;
  if (!OpenNoFollow(path, FILE_READ_ATTRIBUTES, h)) return kFalse;
  BY_HANDLE_FILE_INFORMATION fi;
  if (!GetFileInformationByHandle(h.get(), &fi)) return kFalse;
  if ((fi.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return Fail(ERROR_DIRECTORY);
  // Windows has no call that flushes a directory's entries; the file
  // system journals them itself.
  return kTrue;
}

BOOL ListDirectory(const wchar_t* path, std::vector<DirEntry>& entries) {
  entries.clear();
  if (Injected(kz::fault::kOpen)) return kFalse;
  {
    Handle h;
    if (!OpenNoFollow(path, FILE_READ_ATTRIBUTES, h)) return kFalse;
  }
  std::wstring pattern = ToSystemPath(path);
  if (!pattern.empty() && pattern.back() != L'\\') pattern.push_back(L'\\');
  pattern.push_back(L'*');
  WIN32_FIND_DATAW fd;
  HANDLE find = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &fd, FindExSearchNameMatch, nullptr, 0);
  if (find == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND ? kTrue : kFalse;
  do {
    std::wstring name = fd.cFileName;
    if (name == L"." || name == L"..") continue;
    EntryType type = (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? EntryType::Directory : EntryType::File;
    if ((fd.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
        (fd.dwReserved0 == IO_REPARSE_TAG_SYMLINK || fd.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT)) {
      type = EntryType::Link;
    }
    entries.push_back({std::move(name), type});
  } while (FindNextFileW(find, &fd));
  DWORD error = GetLastError();
  FindClose(find);
  if (error != ERROR_NO_MORE_FILES) return Fail(error);
  std::sort(entries.begin(), entries.end(),
            [](const DirEntry& a, const DirEntry& b) { return a.Name < b.Name; });
  return kTrue;
}

std::wstring ResolveLinks(const wchar_t* path) {
  Handle h(OpenForMetadata(path, FILE_READ_ATTRIBUTES, false));
  if (!h.valid()) return path;
  DWORD need = GetFinalPathNameByHandleW(h.get(), nullptr, 0, FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
  if (need == 0) return path;
  std::wstring out(need, L'\0');
  DWORD got = GetFinalPathNameByHandleW(h.get(), out.data(), need, FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
  if (got == 0 || got >= need) return path;
  out.resize(got);
  if (out.compare(0, 8, L"\\\\?\\UNC\\") == 0) return L"\\\\" + out.substr(8);
  if (out.compare(0, 4, L"\\\\?\\") == 0) return out.substr(4);
  return out;
}

std::wstring ParentOf(const wchar_t* path) {
  std::wstring p = path ? path : L"";
  size_t root = RootLength(p);
  size_t end = p.size();
  while (end > root && IsSeparator(p[end - 1])) --end;  // "a\b\" names "a\b"
  size_t cut = end;
  while (cut > root && !IsSeparator(p[cut - 1])) --cut;
  if (cut <= root) return p.substr(0, root);  // "" for a bare name, else the root
  size_t keep = cut - 1;
  while (keep > root && IsSeparator(p[keep - 1])) --keep;
  return p.substr(0, keep > root ? keep : root);
}

const wchar_t* LastComponent(const wchar_t* path) {
  const wchar_t* last = path;
  if (path[0] != 0 && path[1] == L':' && path[2] != 0) last = path + 2;  // "X:name"
  for (const wchar_t* p = path; *p; ++p) {
    if (IsSeparator(*p) && p[1] != 0) last = p + 1;
  }
  return last;
}

}  // namespace kz::fs
