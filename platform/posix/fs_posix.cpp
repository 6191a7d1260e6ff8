// POSIX side of platform/fs.h. Calls that must not act through a link use
// the no-follow variants (lstat, O_NOFOLLOW, AT_SYMLINK_NOFOLLOW); rename(2)
// replaces a link at its target name instead of following it.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "enginelib/file_stream.h"
#include "platform/fs.h"

namespace kz::fs {
namespace {

using kz::fault::IoKind;

constexpr BOOL kTrue = 1;
constexpr BOOL kFalse = 0;

BOOL FailWithErrno() {
  SetLastError(kz::platform::Win32ErrorFromErrno(errno));
  return kFalse;
}

// True when the seam wants this call to fail; the seam has set the error.
bool Injected(IoKind kind) { return kz::fault::ShouldFail(kind); }

EntryType TypeOf(mode_t mode) {
  if (S_ISLNK(mode)) return EntryType::Link;
  if (S_ISDIR(mode)) return EntryType::Directory;
  if (S_ISREG(mode)) return EntryType::File;
  return EntryType::Other;
}

void FillInfo(const struct stat& st, EntryInfo& info) {
  info.Type = TypeOf(st.st_mode);
  info.Size = static_cast<uint64_t>(st.st_size);
  info.ModTime = static_cast<int64_t>(st.st_mtime);
  info.Permissions = static_cast<uint32_t>(st.st_mode & 07777);
  info.Volume = static_cast<uint64_t>(st.st_dev);
  info.FileIndex = static_cast<uint64_t>(st.st_ino);
}

BOOL Query(const wchar_t* path, EntryInfo& info, bool followLinks) {
  info = EntryInfo{};
  if (Injected(kz::fault::kOpen)) return kFalse;
  std::string sys = kz::platform::ToSystemPath(path);
  struct stat st;
  int rc = followLinks ? stat(sys.c_str(), &st) : lstat(sys.c_str(), &st);
  if (rc == 0) {
    FillInfo(st, info);
    return kTrue;
  }
  // A missing entry, or a parent that is not a directory: nothing is there.
  if (errno == ENOENT || errno == ENOTDIR) return kTrue;
  return FailWithErrno();
}

// Opens path itself for fsync or fchmod; a final link fails with ELOOP.
int OpenNoFollow(const std::string& sys, bool directory) {
  int flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
  if (directory) flags |= O_DIRECTORY;
  return open(sys.c_str(), flags);
}

BOOL Sync(const wchar_t* path, bool directory) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  int fd = OpenNoFollow(kz::platform::ToSystemPath(path), directory);
  if (fd < 0) return FailWithErrno();
  int rc = fsync(fd);
  int err = errno;
  close(fd);
  if (rc != 0) {
    errno = err;
    return FailWithErrno();
  }
  return kTrue;
}

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

}  // namespace

BOOL QueryEntry(const wchar_t* path, EntryInfo& info) { return Query(path, info, false); }
BOOL QueryTarget(const wchar_t* path, EntryInfo& info) { return Query(path, info, true); }

BOOL MakeDirectory(const wchar_t* path) {
  if (Injected(kz::fault::kCreate)) return kFalse;
  if (mkdir(kz::platform::ToSystemPath(path).c_str(), 0755) != 0) return FailWithErrno();
  return kTrue;
}

BOOL MakeDirectories(const wchar_t* path) {
  std::string sys = kz::platform::ToSystemPath(path);
  while (sys.size() > 1 && sys.back() == '/') sys.pop_back();
  if (sys.empty()) return kTrue;
  // Each prefix ending before a separator, then the whole path.
  for (size_t i = 1; i <= sys.size(); ++i) {
    if (i < sys.size() && sys[i] != '/') continue;
    std::string prefix = sys.substr(0, i);
    struct stat st;
    if (stat(prefix.c_str(), &st) == 0) {
      if (S_ISDIR(st.st_mode)) continue;
      errno = ENOTDIR;
      return FailWithErrno();
    }
    if (Injected(kz::fault::kCreate)) return kFalse;
    if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return FailWithErrno();
  }
  return kTrue;
}

BOOL ReplaceFile(const wchar_t* from, const wchar_t* to) {
  if (Injected(kz::fault::kRename)) return kFalse;
  std::string src = kz::platform::ToSystemPath(from);
  std::string dst = kz::platform::ToSystemPath(to);
  if (rename(src.c_str(), dst.c_str()) != 0) return FailWithErrno();
  return kTrue;
}

BOOL RemoveFile(const wchar_t* path) {
  if (Injected(kz::fault::kRename)) return kFalse;
  if (unlink(kz::platform::ToSystemPath(path).c_str()) != 0) return FailWithErrno();
  return kTrue;
}

BOOL SetModTime(const wchar_t* path, int64_t unixTime) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  struct timespec times[2];
  times[0].tv_sec = static_cast<time_t>(unixTime);
  times[0].tv_nsec = 0;
  times[1] = times[0];
  std::string sys = kz::platform::ToSystemPath(path);
  if (utimensat(AT_FDCWD, sys.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) return FailWithErrno();
  return kTrue;
}

BOOL SetPermissions(const wchar_t* path, uint32_t permissions) {
  if (Injected(kz::fault::kWrite)) return kFalse;
  std::string sys = kz::platform::ToSystemPath(path);
  // fchmodat cannot refuse a link on Linux; go through a no-follow open.
  int fd = open(sys.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return FailWithErrno();
  int rc = fchmod(fd, static_cast<mode_t>(permissions & 07777));
  int err = errno;
  close(fd);
  if (rc != 0) {
    errno = err;
    return FailWithErrno();
  }
  return kTrue;
}

BOOL SyncFile(const wchar_t* path) { return Sync(path, false); }
BOOL SyncDirectory(const wchar_t* path) { return Sync(path, true); }

BOOL ListDirectory(const wchar_t* path, std::vector<DirEntry>& entries) {
  entries.clear();
  if (Injected(kz::fault::kOpen)) return kFalse;
  int fd = OpenNoFollow(kz::platform::ToSystemPath(path), true);
  if (fd < 0) return FailWithErrno();
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    int err = errno;
    close(fd);
    errno = err;
    return FailWithErrno();
  }
  errno = 0;
  while (struct dirent* e = readdir(dir)) {
    std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    struct stat st;
    EntryType type = EntryType::Other;
    if (fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) type = TypeOf(st.st_mode);
    entries.push_back({kz::platform::FromSystemPath(name), type});
    errno = 0;
  }
  int err = errno;
  closedir(dir);
  if (err != 0) {
    errno = err;
    return FailWithErrno();
  }
  std::sort(entries.begin(), entries.end(),
            [](const DirEntry& a, const DirEntry& b) { return a.Name < b.Name; });
  return kTrue;
}

std::wstring ResolveLinks(const wchar_t* path) {
  char* real = realpath(kz::platform::ToSystemPath(path).c_str(), nullptr);
  if (real == nullptr) return path;
  std::wstring out = kz::platform::FromSystemPath(real);
  free(real);
  for (wchar_t& c : out) {
    if (c == L'/') c = L'\\';
  }
  return out;
}

std::wstring ParentOf(const wchar_t* path) {
  std::wstring p = path ? path : L"";
  size_t end = p.size();
  while (end > 1 && IsSeparator(p[end - 1])) --end;  // "a\b\" names "a\b"
  size_t cut = end;
  while (cut > 0 && !IsSeparator(p[cut - 1])) --cut;
  if (cut == 0) return L"";
  size_t keep = cut - 1;
  while (keep > 0 && IsSeparator(p[keep - 1])) --keep;
  if (keep == 0) return L"\\";
  return p.substr(0, keep);
}

const wchar_t* LastComponent(const wchar_t* path) {
  const wchar_t* last = path;
  for (const wchar_t* p = path; *p; ++p) {
    if (IsSeparator(*p) && p[1] != 0) last = p + 1;
  }
  return last;
}

}  // namespace kz::fs
