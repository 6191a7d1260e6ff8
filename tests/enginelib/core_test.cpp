// The engine library's core: file stream errors, path strings, names, selection, the log.
#include <gtest/gtest.h>
#ifndef _WIN32
#include <unistd.h>
#endif

#include <string>

#include "enginelib/kz_archiver.h"
#include "enginelib/names.h"
#include "enginelib/selection.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using kztest::TempDir;
using kztest::Wide;

// KzArchiver is abstract in spirit only: the base is enough to record errors.
class Archiver : public KzArchiver {};

TEST(FileStreamTest, FailuresRecordTheSystemErrorAndTheStreamName) {
  TempDir dir;
  kztest::WriteFile(dir / "short.bin", std::string("abc"));
  kztest::WriteFile(dir / "readonly.bin", std::string("x"));
  fs::permissions(dir / "readonly.bin", fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                  fs::perm_options::remove);
  fs::create_directory(dir / "sub");
#ifdef _WIN32
  // Windows tells a missing directory from a missing file; Wine leaves
  // read-only files to their Unix permissions, which root passes.
  const DWORD missingDir = ERROR_PATH_NOT_FOUND;
  const bool root = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
#else
  const DWORD missingDir = ERROR_FILE_NOT_FOUND;
  const bool root = geteuid() == 0;
#endif
  struct Case { const char* name; DWORD access, disposition, error; } cases[] = {
      {"missing.bin", GENERIC_READ, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
      {"sub", GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
      {"nodir\\x.bin", GENERIC_READ, OPEN_EXISTING, missingDir},
      {"short.bin", GENERIC_READ, CREATE_NEW, ERROR_FILE_EXISTS},
      {"nodir\\x.bin", GENERIC_READ, CREATE_NEW, missingDir},
      {"readonly.bin", GENERIC_WRITE, OPEN_EXISTING, root ? 0u : DWORD{ERROR_ACCESS_DENIED}},
  };
  for (const auto& c : cases) {
    if (c.error == 0) continue;
    SCOPED_TRACE(c.name);
    Archiver a;
    ASSERT_EQ(a.Init(), 0);
    FileStream& s = c.access == GENERIC_WRITE ? a.OutputStream : a.ArchiveStream;
    const std::wstring path = kztest::EnginePath(dir.path()) + L"\\" + Wide(c.name);
    SetLastError(0);
    EXPECT_FALSE(s.Open(path.c_str(), c.access, 3, c.disposition, 0, 0));
    EXPECT_EQ(GetLastError(), c.error);
    EXPECT_FALSE(s.IsOpen());
    EXPECT_EQ(a.SetSystemError(s.GetName()), kz::HresultFromWin32(c.error));
    EXPECT_EQ(a.Status, kz::HresultFromWin32(c.error));
    ASSERT_NE(a.ErrorFileName, nullptr);
    EXPECT_EQ(std::wstring(a.ErrorFileName), path);
  }

  Archiver a;
  ASSERT_EQ(a.Init(), 0);
  uint8_t buf[8];
  uint32_t got = 99;
  EXPECT_FALSE(a.ArchiveStream.Read(buf, 1, &got, 0));  // not open yet
  EXPECT_FALSE(a.ArchiveStream.Seek(0, 0, 0));
  // A read past the end delivers what there is; recording the short read still gives a failure.
  ASSERT_TRUE(a.ArchiveStream.Open(Wide((dir / "short.bin").string()).c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0));
  ASSERT_TRUE(a.ArchiveStream.Read(buf, sizeof buf, &got, 0));
  EXPECT_EQ(got, 3u);
  SetLastError(0);
  EXPECT_EQ(a.SetSystemError(a.ArchiveStream.GetName()), kz::HresultFromWin32(ERROR_HANDLE_EOF));
  uint32_t written = 7;
  EXPECT_FALSE(a.ArchiveStream.Write("z", 1, &written, 0));  // opened for reading
  EXPECT_EQ(written, 0u);
}

TEST(PathStringTest, AssignmentDropsLongPathPrefixesAndTurnsSlashes) {
  struct Case { const wchar_t* in; const wchar_t* out; };
  const Case cases[] = {
      {L"\\\\?\\C:\\dir\\a.lzh", L"C:\\dir\\a.lzh"},
      {L"\\\\?\\UNC\\server\\share\\a.lzh", L"\\\\server\\share\\a.lzh"},
      {L"\\\\?\\unc\\server\\a.lzh", L"unc\\server\\a.lzh"},  // the case of UNC matters
      {L"dir/sub/a.lzh", L"dir\\sub\\a.lzh"},
      {L"/tmp/x", L"\\tmp\\x"},
      {L"", L""},
  };
  for (const auto& c : cases) {
    PathString p;
    p = c.in;
    EXPECT_STREQ(p.c_str(), c.out) << c.in;
  }
}

TEST(PathStringTest, GrowsPastItsInlineRoomAndAppendsComponents) {
  PathString p;
  std::wstring longName(1000, L'a');
  p = longName.c_str();
  EXPECT_EQ(p.size(), 1000u);
  p.AppendComponent(L"\\\\b");
  EXPECT_EQ(std::wstring(p.c_str()), longName + L"\\b");
  PathString copy = p;
  p.Truncate(2);
  EXPECT_STREQ(p.c_str(), L"aa");
  EXPECT_EQ(copy.size(), 1002u);
  p = p.c_str() + 1;  // self-assignment from inside the buffer
  EXPECT_STREQ(p.c_str(), L"a");
}

TEST(NamesTest, NormalizeNameLeavesNoControlCharacters) {
  Archiver a;
  wchar_t name[64] = L"dir/\x1b]2;evil\x07\x9b\x202Etxt.exe";
  a.NormalizeName(name, 64);
  EXPECT_STREQ(name, L"dir\\_]2;evil___txt.exe");
}

TEST(SelectionTest, PatternsTable) {
  struct Case { const wchar_t* pattern; const wchar_t* name; uint32_t flags; bool selected; };
  const uint32_t W = KZ_SELECT_WILDCARD, N = KZ_SELECT_NOCASE, S = KZ_SELECT_SUBTREE;
  const Case cases[] = {
      {L"a.txt", L"a.txt", 0, true},          {L"a.txt", L"A.TXT", 0, false},
      {L"a.txt", L"A.TXT", N, true},          {L"dir/a.txt", L"dir\\a.txt", 0, true},
      {L"/dir/a.txt", L"dir\\a.txt", 0, true}, {L"./a.txt", L"a.txt", 0, true},
      {L"*.txt", L"a.txt", 0, false} /* no wildcards unless asked */, {L"*.txt", L"a.txt", W, true},
      {L"*.txt", L"dir\\a.txt", W, true} /* '*' crosses separators */, {L"file2-?.txt", L"file2-1.txt", W, true},
      {L"file2-?.txt", L"file2-10.txt", W, false}, {L"dir", L"dir\\sub\\a.txt", 0, false},
      {L"dir", L"dir\\sub\\a.txt", S, true},    {L"dir\\sub", L"dir\\sub\\a.txt", S, true},
      {L"di", L"dir\\a.txt", S, false} /* whole components only */, {L"d*", L"dir\\a.txt", W | S, true},
      {L"*", L"anything\\at\\all", W, true},  {L"a*b*c", L"aXbYbZc", W, true},
      {L"a*b*c", L"aXbYbZ", W, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(kz::NameSelected(c.pattern, c.name, c.flags), c.selected)
        << kztest::Narrow(c.pattern) << " vs " << kztest::Narrow(c.name) << " flags " << c.flags;
  }
}

TEST(LogTest, ErrorsGoToTheLogAndTheMessageCallback) {
  Archiver a;
  ASSERT_EQ(a.Init(), 0);
  std::vector<std::wstring> seen;  // "status file" of each message
  KzCallbacks cb{};
  cb.Size = sizeof cb;
  cb.Message = [](void* ctx, uint32_t, HRESULT status, const wchar_t*, const wchar_t* file) {
    static_cast<std::vector<std::wstring>*>(ctx)->push_back(std::to_wstring(status) + L" " + (file ? file : L""));
  };
  ASSERT_EQ(a.SetCallbacks(&cb, &seen), 0);
  EXPECT_EQ(a.SetError(KZ_E_CRC, L"member.txt"), KZ_E_CRC);
  EXPECT_EQ(seen, std::vector<std::wstring>{std::to_wstring(KZ_E_CRC) + L" member.txt"});
  KzList* log = a.GetLogList();
  ASSERT_EQ(log->Count, 1u);
  auto* entry = static_cast<KzLogEntry*>(log->First->Item);
  EXPECT_EQ(entry->Status, KZ_E_CRC);
  EXPECT_STREQ(entry->FileName, L"member.txt");
  EXPECT_EQ(entry->Level, uint32_t(KZ_LOG_ERROR));
  // A new operation starts with a clean slate.
  a.ResetStatus();
  EXPECT_EQ(a.Status, 0);
  EXPECT_EQ(a.ErrorFileName, nullptr);
  EXPECT_EQ(a.GetLogList()->Count, 0u);
}

}  // namespace
