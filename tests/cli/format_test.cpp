// The pure parts of the command line: text, messages, listing, progress,
// module lookup and the attribution of a failure to a member.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "cli/engine.h"
#include "cli/listing.h"
#include "cli/member_run.h"
#include "cli/messages.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "support/test_support.h"

namespace kzcli {
namespace {

TEST(Native, Utf8RoundTripsAndBadBytesSurvive) {
  const std::string cases[] = {
      "plain.txt", "\xE6\x97\xA5\xE6\x9C\xAC.txt", "bad\xFF\xFE" "byte", "\xC3", "over\xC0\xAFlong",
      "surrogate\xED\xA0\x80", "\xF0\x9F\x98\x80 emoji"};
  for (const std::string& s : cases) EXPECT_EQ(ToNative(FromNative(s)), s) << s;
  EXPECT_EQ(FromNative("\xFF"), std::wstring(1, static_cast<wchar_t>(0xDCFF)));
  EXPECT_EQ(FromNative("\xE6\x97\xA5"), std::wstring(1, static_cast<wchar_t>(0x65E5)));
}

struct DisplayCase { std::wstring name; std::string shown; };

class Display : public ::testing::TestWithParam<DisplayCase> {};

TEST_P(Display, EscapesWhatATerminalWouldObey) {
  EXPECT_EQ(DisplayName(GetParam().name), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Names, Display,
    ::testing::Values(DisplayCase{L"dir\\sub\\file.txt", "dir/sub/file.txt"},
                      DisplayCase{L"\x65E5\x672C.txt", "\xE6\x97\xA5\xE6\x9C\xAC.txt"},
                      DisplayCase{L"raw\xDC81\xDCFF", "raw\\x81\\xFF"},
                      DisplayCase{L"esc\x1B]2;x\x07", "esc\\x1B]2;x\\x07"},
                      DisplayCase{L"nl\nand\tdel\x7F", "nl\\x0Aand\\x09del\\x7F"},
                      DisplayCase{L"c1\x9B" L"31m", "c1\\u009B31m"},
                      DisplayCase{L"rtl\x202E" L"txt.exe", "rtl\\u202Etxt.exe"},
                      DisplayCase{L"", ""}));

TEST(DisplayText, NullTextBackslashesAndJson) {
  EXPECT_EQ(DisplayName(static_cast<const wchar_t*>(nullptr)), "");
  EXPECT_EQ(DisplayText(L"C:\\dir\x1B"), "C:\\dir\\x1B");
  EXPECT_EQ(JsonEscape("a\"b\\c"), "a\\\"b\\\\c");
  EXPECT_EQ(JsonEscape(std::string("x\x01y")), "x\\u0001y");
  EXPECT_EQ(JsonEscape("\xE6\x97\xA5"), "\xE6\x97\xA5");
}

// Readable text for the codes a user meets; every code of the header has its own.
TEST(Status, HasReadableText) {
  const std::pair<HRESULT, const char*> cases[] = {
      {KZ_E_CRC, "CRC error"},
      {KZ_HRESULT_FROM_WIN32(2), "no such file or directory"},
      {KZ_HRESULT_FROM_WIN32(5), "permission denied"},
      {KZ_HRESULT_FROM_WIN32(112), "disk full"},
      {KZ_HRESULT_FROM_WIN32(39), "disk full"},
      {KZ_HRESULT_FROM_WIN32(9999), "system error 9999"},
      {KZ_ARC_E_NOARCHIVE, "not an LHA archive"},
      {static_cast<HRESULT>(0x80041234), "error 0x80041234"}};
  for (const auto& [hr, text] : cases) EXPECT_EQ(StatusText(hr), text) << std::hex << hr;
  for (HRESULT hr : {KZ_E_NOTIMPL, KZ_E_ABORT, KZ_E_FAIL, KZ_E_HANDLE, KZ_E_OUTOFMEMORY, KZ_E_CRC, KZ_E_INVALIDARG,
                     KZ_ARC_E_NOTSUPPORTED, KZ_ARC_E_PARTIAL, KZ_ARC_E_EMPTYARCHIVE, KZ_ARC_E_NOARCHIVE,
                     KZ_ARC_E_UNKNOWNMETHOD, KZ_ARC_E_BADTABLE, KZ_ARC_E_UNSAFEPATH, KZ_ARC_E_TOOLARGE,
                     KZ_ARC_E_BADHEADER}) {
    const std::string text = StatusText(hr);
    EXPECT_TRUE(text.find("error 0x") == std::string::npos && text.find("system error") == std::string::npos)
        << std::hex << hr << ": " << text;
  }
}

Member MakeMember(const std::wstring& name, uint64_t packed, uint64_t original, uint32_t method) {
  Member m;
  m.name = name;
  m.header.PackedSize = packed;
  m.header.OriginalSize = original;
  m.header.Method = method;
  m.header.Crc = 0x3F2A;
  m.header.Attributes = 0x20;
  m.header.HostOs = 3;
  m.header.LibHeaderLevel = 1;
  m.header.LibModTime = 1041476645;  // 2003-01-02T03:04:05Z
  return m;
}

#ifdef _WIN32  // the C runtime's spellings
int setenv(const char* name, const char* value, int) { return _putenv((std::string(name) + "=" + value).c_str()); }
int unsetenv(const char* name) { return _putenv((std::string(name) + "=").c_str()); }
void tzset() { _tzset(); }
#endif

class UtcZone : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* tz = std::getenv("TZ");
    saved_ = tz != nullptr ? tz : "";
    had_ = tz != nullptr;
    setenv("TZ", "UTC0", 1);
    tzset();
  }
  void TearDown() override {
    if (had_) setenv("TZ", saved_.c_str(), 1);
    else unsetenv("TZ");
    tzset();
  }
  std::string saved_;
  bool had_ = false;
};

TEST(Columns, SmallFieldsRead) {
  LhaHeader h{};
  h.Method = 'd' - '0';
  EXPECT_EQ(MethodText(h), "-lhd-");
  h.Method = 0;
  h.Attributes = 0x10;
  EXPECT_EQ(MethodText(h), "-lhd-");
  h.Attributes = 0x20;
  EXPECT_EQ(MethodText(h), "-lh0-");
  h.Method = 0xFFFFFFF0u;
  EXPECT_EQ(MethodText(h), "-lh?-");
  EXPECT_EQ(AttributeText(0x10 | 0x01 | 0x02 | 0x04), "drhs-");
  EXPECT_EQ(RatioText(201, 200), "100.5%");
  EXPECT_EQ(RatioText(0, 0), "  ----");
  EXPECT_EQ(RatioText(20000, 1), " >999%");
}

TEST(Columns, NamesShowLinksAndDirectories) {
  Member link = MakeMember(L"sub\\foo.txt|bar.txt", 0, 0, 0);
  link.header.LibFlags = 1;
  EXPECT_EQ(ListedName(link), "sub/foo.txt -> bar.txt");
  Member dir = MakeMember(L"dir", 0, 0, 'd' - '0');
  dir.header.Attributes = 0x10;
  EXPECT_EQ(ListedName(dir), "dir/");
  dir.name.clear();  // a header whose name did not survive
  EXPECT_EQ(ListedName(dir), "(no name)");
  // A bar in an ordinary name is part of the name.
  EXPECT_EQ(ListedName(MakeMember(L"a|b", 1, 1, 0)), "a|b");
}

TEST_F(UtcZone, TableLinesUpAndTotals) {
  std::vector<Member> members = {MakeMember(L"dir\\a.txt", 3442, 6745, 5),
                                 MakeMember(L"b.bin", 100, 100, 0)};
  const Totals totals = TotalsFromMembers(members);
  EXPECT_EQ(totals.members, 2u);
  EXPECT_EQ(totals.packed, 3542u);
  EXPECT_EQ(totals.original, 6845u);
  EXPECT_EQ(totals.ratioPercent, 51u);
  const std::string table = FormatTable(members, totals, false);
  EXPECT_NE(table.find("----a Win32         3442       6745  51.0% -lh5-  3f2a 2003-01-02 03:04:05 dir/a.txt\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("Total               3542       6845  51.7%"), std::string::npos) << table;
  // The count sits in the NAME column: the same offset as a member's name.
  const size_t nameColumn = table.find("NAME") - table.rfind('\n', table.find("NAME")) - 1;
  const size_t totalLine = table.rfind("Total");
  EXPECT_EQ(table.find("2 members", totalLine) - totalLine, nameColumn) << table;
  const std::string verbose = FormatTable(members, totals, true);
  EXPECT_NE(verbose.find("-lh5-   1 3f2a"), std::string::npos) << verbose;
  const size_t vName = verbose.find("NAME") - verbose.rfind('\n', verbose.find("NAME")) - 1;
  EXPECT_EQ(verbose.find("2 members", verbose.rfind("Total")) - verbose.rfind("Total"), vName) << verbose;
}

TEST(Columns, ExtendedHeadersAreNotCountedAsPackedData) {
  std::vector<Member> members = {MakeMember(L"a", 38, 12, 0), MakeMember(L"b", 100, 200, 5)};
  members[0].header.ExtendedLength = 26;
  EXPECT_EQ(PackedDataSize(members[0].header), 12u);
  members[1].header.ExtendedLength = 500;  // damaged: never below zero
  EXPECT_EQ(PackedDataSize(members[1].header), 0u);
  members[1].header.ExtendedLength = 0;
  ArchiveInfo info{};
  info.MemberCount = 2;
  info.TotalPacked = 138;
  info.TotalOriginal = 212;
  info.RatioPercent = 65;
  const Totals fromInfo = TotalsFromInfo(info, members);
  EXPECT_EQ(fromInfo.packed, 112u);
  EXPECT_EQ(fromInfo.original, 212u);
  EXPECT_EQ(fromInfo.ratioPercent, 52u);
  const Totals summed = TotalsFromMembers(members);
  EXPECT_EQ(summed.packed, fromInfo.packed);
  EXPECT_EQ(summed.ratioPercent, fromInfo.ratioPercent);
  members[0].header.ExtendedLength = 0;
  EXPECT_EQ(TotalsFromInfo(info, members).ratioPercent, 65u);  // the engine's own figure
}

TEST(JsonLines, MemberObjectHasEveryField) {
  Member m = MakeMember(L"dir\\\x65E5\"q\".txt", 10, 20, 6);
  const std::string line = FormatJsonMember(m);
  EXPECT_EQ(line,
            "{\"kind\":\"member\",\"name\":\"dir/\xE6\x97\xA5\\\"q\\\".txt\",\"packed\":10,\"original\":20,"
            "\"method\":\"-lh6-\",\"crc\":\"3f2a\",\"mtime\":\"2003-01-02T03:04:05Z\","
            "\"mtime_unix\":1041476645,\"attributes\":32,\"directory\":false,\"level\":1,"
            "\"os\":3,\"os_name\":\"Win32\"}\n");
  Totals t;
  t.members = 1;
  t.packed = 10;
  t.original = 20;
  t.ratioPercent = 50;
  EXPECT_EQ(FormatJsonTotals(t, "a.lzh"),
            "{\"kind\":\"totals\",\"archive\":\"a.lzh\",\"members\":1,\"packed\":10,\"original\":20,"
            "\"ratio_percent\":50}\n");
}

TEST(Progress, LineShowsShareRateTimeLeftAndItem) {
  EXPECT_EQ(FormatBytes(0), "0 B");
  EXPECT_EQ(FormatBytes(1023), "1023 B");
  EXPECT_EQ(FormatBytes(1536), "1.50 KiB");
  EXPECT_EQ(FormatBytes(300ull << 30), "300 GiB");
  EXPECT_EQ(FormatProgressLine("dir/file.txt", 1 << 20, 4 << 20, 2.0, 120),
            "[#####...............]  25% 1.00 MiB / 4.00 MiB  512 KiB/s  0:06 left  dir/file.txt");
  // Before there is history, no rate is guessed.
  EXPECT_EQ(FormatProgressLine("f", 10, 100, 0.1, 80), "[#.........]  10% 10 B / 100 B  f");
  // On 80 columns the name still fits beside rate and time left.
  EXPECT_EQ(FormatProgressLine("big/data.txt", 8 << 20, 40 << 20, 0.5, 80),
            "[##........]  20% 8.00 MiB / 40.0 MiB  16.0 MiB/s  0:02 left  big/data.txt");
}

TEST(Progress, LineNeverReachesTheLastColumn) {
  const std::string longName(300, 'n');
  for (int width : {20, 40, 80, 200}) {
    const std::string line = FormatProgressLine(longName, 5, 10, 3.0, width);
    EXPECT_LT(line.size(), static_cast<size_t>(width)) << width;
  }
  const std::string cut = FormatProgressLine("a/" + longName + "/tail.txt", 5, 10, 3.0, 100);
  EXPECT_NE(cut.find("...n"), std::string::npos) << cut;
  EXPECT_EQ(cut.substr(cut.size() - 8), "tail.txt");
}

TEST(ModuleLookup, ExplicitPathWinsThenBesideThenLibThenEnvironment) {
  kztest::TempDir dir;
  std::filesystem::create_directories(dir / "bin");
  std::filesystem::create_directories(dir / "lib");
  const std::string bin = (dir / "bin").string();
  EXPECT_EQ(ModuleCandidates("/x/m.so", bin, "/env/m.so"), std::vector<std::string>{"/x/m.so"});
  EXPECT_EQ(ModuleCandidates("", bin, "/env/m.so"), std::vector<std::string>{"/env/m.so"});
  EXPECT_TRUE(ModuleCandidates("", bin, nullptr).empty());
  kztest::WriteFile(dir / "lib" / EngineModuleFileName(), "x");
  EXPECT_EQ(ModuleCandidates("", bin, "/env/m.so"),
            (std::vector<std::string>{bin + "/../lib/" + EngineModuleFileName(), "/env/m.so"}));
  kztest::WriteFile(dir / "bin" / EngineModuleFileName(), "x");
  EXPECT_EQ(ModuleCandidates("", bin, "").front(), bin + "/" + EngineModuleFileName());
}

TEST(FailedMember, FoundByNameOrByOutputPathNeverByTheArchive) {
  std::vector<Member> members = {MakeMember(L"a.txt", 1, 1, 0), MakeMember(L"dir\\b.txt", 1, 1, 0),
                                 MakeMember(L"c.txt", 1, 1, 0)};
  const std::wstring archive = L"/t/x.lzh";
  EXPECT_EQ(FindMemberByFile(members, 0, L"dir\\b.txt", archive), 1u);
  EXPECT_EQ(FindMemberByFile(members, 0, L"dir/b.txt", archive), 1u);
  EXPECT_EQ(FindMemberByFile(members, 0, L"/dest/dir/b.txt", archive), 1u);
  EXPECT_EQ(FindMemberByFile(members, 0, L"\\dest\\c.txt", archive), 2u);
  // Members before `start` are done and never blamed again.
  EXPECT_EQ(FindMemberByFile(members, 1, L"a.txt", archive), std::wstring::npos);
  EXPECT_EQ(FindMemberByFile(members, 0, L"/t/x.lzh", archive), std::wstring::npos);
  EXPECT_EQ(FindMemberByFile(members, 0, L"/elsewhere/t/x.lzh", L"t/x.lzh"), std::wstring::npos);
  EXPECT_EQ(FindMemberByFile(members, 0, L"unrelated", archive), std::wstring::npos);
  EXPECT_EQ(FindMemberByFile(members, 0, L"", archive), std::wstring::npos);
}

TEST(FailedMember, ProgressTraceTellsHowFarARunGot) {
  std::vector<Member> members = {MakeMember(L"a", 1, 100, 0), MakeMember(L"d\\b", 1, 50, 0),
                                 MakeMember(L"c", 1, 0, 0), MakeMember(L"e", 1, 10, 0)};
  EXPECT_EQ(LastReachedMember(members, 0, {}) + 1, 0u);
  EXPECT_EQ(LastReachedMember(members, 0, {L"a", L"d/b"}), 1u);
  EXPECT_EQ(LastReachedMember(members, 2, {L"c"}), 2u);
  // Items of members before `start`, or unknown ones, do not count.
  EXPECT_EQ(LastReachedMember(members, 2, {L"a", L"zzz"}) + 1, 2u);
  // a and b reached; bytes say whether b was finished.
  EXPECT_EQ(MemberInProgress(members, 0, 1, 120), 1u);
  EXPECT_EQ(MemberInProgress(members, 0, 1, 150), 2u);
  // Nothing reached: the first member was in progress.
  EXPECT_EQ(MemberInProgress(members, 0, static_cast<size_t>(-1), 0), 0u);
  EXPECT_EQ(MemberInProgress(members, 3, 2, 0), 3u);
  // The last member finished: the failure came after every member.
  EXPECT_EQ(MemberInProgress(members, 0, 3, 160), std::wstring::npos);
}

}  // namespace
}  // namespace kzcli
