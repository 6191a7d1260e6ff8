// The extraction and test driver: the order of its library calls against a
// recording host, then the real archiver over archives that jlha makes.
#include "container/extract_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "archiver/lha_archiver.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using kztest::Bytes;

// One scripted member and the replies the host gives for it.
struct ScriptedMember {
  std::wstring Name;
  uint64_t OriginalSize = 0;
  uint32_t Attributes = 0x20;
  bool Selected = true;
  HRESULT Prepare = 0;
  HRESULT Begin = 0;
  int Overwrite = 0;
  HRESULT Create = 0;
  HRESULT DecodeStatus = 0;  // what DecodeMember leaves in the status
  HRESULT Done = 0;
};

struct RecordingHost {
  struct Stream {
    RecordingHost* Host;
    bool OpenFails = false;
    BOOL Open(const wchar_t*, DWORD access, DWORD share, DWORD disposition, DWORD flags, intptr_t) {
      Host->Log("Open " + std::to_string(access == GENERIC_READ) + std::to_string(share) +
                std::to_string(disposition) + std::to_string(flags));
      return OpenFails ? 0 : 1;
    }
    void Close() { Host->Log("Close"); }
    const wchar_t* GetName() const { return L"archive.lzh"; }
  };
  struct Path {
    std::wstring Name;  // the member whose name was made into this path
  };

  std::vector<ScriptedMember> Members;
  HRESULT HeaderFailureAt = 0;  // a negative ReadMemberHeader result at this index + 1
  size_t HeaderFailureIndex = SIZE_MAX;
  std::vector<std::string> Calls;
  Stream ArchiveStream{this};
  std::wstring ArchivePath = L"archive.lzh";
  uint64_t FirstHeaderPos = 100, NextHeaderPos = 0;
  HRESULT Status = 0;
  std::vector<uint64_t> Totals;
  bool RecordWasClean = true;

  void Log(const std::string& s) { Calls.push_back(s); }
  static std::string N(const LhaHeader* r) { return kztest::Narrow(r->Name); }
  const ScriptedMember& M(const LhaHeader* r) const { return Members[r->HeaderPos]; }

  HRESULT SetSystemError(const wchar_t*) { Log("SetSystemError"); return Status = kz::E_Fail; }
  int32_t ReadMemberHeader(LhaHeader& record) {
    // The driver hands over a cleared record whose name buffer is empty.
    LhaHeader blank{};
    blank.Name = record.Name;
    RecordWasClean &= std::memcmp(&blank, &record, sizeof record) == 0 && record.Name[0] == 0 &&
                      record.Name[1023] == 0;
    size_t index = NextHeaderPos - FirstHeaderPos;
    Log("ReadMemberHeader");
    if (index == HeaderFailureIndex) return Status = HeaderFailureAt;
    if (index >= Members.size()) return 1;
    const ScriptedMember& m = Members[index];
    std::wcsncpy(record.Name, m.Name.c_str(), 1023);
    record.OriginalSize = m.OriginalSize;
    record.Attributes = m.Attributes;
    record.HeaderPos = index;
    ++NextHeaderPos;
    return 0;
  }
  int IsItemSelected(LhaHeader* r, const KzList*, intptr_t) {
    Log("IsItemSelected " + N(r));
    return M(r).Selected;
  }
  void SetTotalSize(uint64_t total) {
    Log("SetTotalSize " + std::to_string(total));
    Totals.push_back(total);
  }
  void ResetItemProgress() { Log("ResetItemProgress"); }
  void MakeOutputPath(const wchar_t* name, Path& path) {
    Log("MakeOutputPath " + kztest::Narrow(name));
    path.Name = name;
  }
  HRESULT PrepareOutputPath(Path& path) { Log("PrepareOutputPath"); return ByPath(path).Prepare; }
  HRESULT BeginExtractItem(LhaHeader* r, Path&) { Log("BeginExtractItem " + N(r)); return M(r).Begin; }
  HRESULT CreateItemDirectory(LhaHeader* r, Path&, intptr_t arg) {
    Log("CreateItemDirectory " + N(r) + " " + std::to_string(arg));
    return -1;  // not examined
  }
  int QueryOverwrite(LhaHeader* r, Path&) { Log("QueryOverwrite " + N(r)); return M(r).Overwrite; }
  HRESULT CreateOutputFile(Path& path) { Log("CreateOutputFile"); return ByPath(path).Create; }
  void BeginItemData(LhaHeader* r) { Log("BeginItemData " + N(r)); }
  HRESULT DecodeMember(LhaHeader& r) {
    Log("DecodeMember " + N(&r));
    if (M(&r).DecodeStatus < 0) Status = M(&r).DecodeStatus;
    return Status;
  }
  void EndItemData() { Log("EndItemData"); }
  HRESULT FinishOutputFile(LhaHeader* r, Path&, uint32_t arg) {
    Log("FinishOutputFile " + N(r) + " " + std::to_string(arg));
    return 0;
  }
  void EndExtractItem(LhaHeader* r, Path&) { Log("EndExtractItem " + N(r)); }
  HRESULT ItemDone(LhaHeader* r, Path&) { Log("ItemDone " + N(r)); return M(r).Done; }

  HRESULT Run() {
    Calls.clear();
    return kz::RunExtractDriver<RecordingHost, Path>(*this, nullptr, 0, 77, 9);
  }

  // The calls between the first pass and Close, for the per-item checks.
  std::vector<std::string> SecondPass() const {
    auto total = std::find_if(Calls.begin(), Calls.end(),
                              [](const std::string& s) { return s.rfind("SetTotalSize", 0) == 0; });
    return std::vector<std::string>(total + 1, Calls.end() - 1);
  }

 private:
  const ScriptedMember& ByPath(const Path& path) const {
    return *std::find_if(Members.begin(), Members.end(), [&](const ScriptedMember& m) { return m.Name == path.Name; });
  }
};

using Calls = std::vector<std::string>;

TEST(ExtractDriver, OneFileGoesThroughEveryStepInOrder) {
  RecordingHost host;
  host.Members = {{.Name = L"a.txt", .OriginalSize = 10}};
  EXPECT_EQ(host.Run(), 0);
  // "Open 1330": GENERIC_READ, share mode 3, OPEN_EXISTING, flags 0.
  EXPECT_EQ(host.Calls, (Calls{"Open 1330",
                               "ReadMemberHeader", "IsItemSelected a.txt", "ReadMemberHeader",
                               "SetTotalSize 10", "ReadMemberHeader", "IsItemSelected a.txt",
                               "ResetItemProgress", "MakeOutputPath a.txt", "PrepareOutputPath",
                               "BeginExtractItem a.txt", "QueryOverwrite a.txt", "CreateOutputFile",
                               "BeginItemData a.txt", "DecodeMember a.txt", "EndItemData",
                               "FinishOutputFile a.txt 9", "EndExtractItem a.txt", "ItemDone a.txt",
                               "ReadMemberHeader", "Close"}));
  EXPECT_TRUE(host.RecordWasClean);
}

TEST(ExtractDriver, DirectoryGetsCreatedAndNeverDecoded) {
  RecordingHost host;
  host.Members = {{.Name = L"d", .Attributes = 0x10}};
  EXPECT_EQ(host.Run(), 0);
  EXPECT_EQ(host.SecondPass(), (Calls{"ReadMemberHeader", "IsItemSelected d", "ResetItemProgress",
                                      "MakeOutputPath d", "PrepareOutputPath", "BeginExtractItem d",
                                      "CreateItemDirectory d 77", "EndExtractItem d", "ItemDone d",
                                      "ReadMemberHeader"}));
}

// Replies 1 (skip) and negative (cancel) skip the member without its end
// calls; any other reply extracts it.
TEST(ExtractDriver, OverwriteRepliesSkipOrExtract) {
  for (int reply : {1, -5, 2}) {
    RecordingHost host;
    host.Members = {{.Name = L"a", .Overwrite = reply}, {.Name = L"b"}};
    host.Run();
    const Calls second = host.SecondPass();
    const auto count = [&](const char* call) { return std::count(second.begin(), second.end(), call); };
    const bool extracted = reply == 2;
    EXPECT_EQ(count("DecodeMember a"), extracted) << reply;
    EXPECT_EQ(count("EndExtractItem a"), extracted) << reply;
    EXPECT_EQ(count("ItemDone a"), extracted) << reply;
    EXPECT_EQ(count("CreateOutputFile"), extracted ? 2 : 1) << reply;
    EXPECT_EQ(count("ItemDone b"), 1) << reply;
  }
}

// The total counts selected directories and members skipped later, and is
// set before the first item; unselected members see only the selection test.
TEST(ExtractDriver, TotalOfTheSelectedMembersComesBeforeTheFirstItem) {
  RecordingHost host;
  host.Members = {{.Name = L"d", .OriginalSize = 3, .Attributes = 0x10},
                  {.Name = L"skip", .OriginalSize = 40, .Overwrite = 1},
                  {.Name = L"no", .OriginalSize = 500, .Selected = false},
                  {.Name = L"f", .OriginalSize = 6000}};
  host.Run();
  EXPECT_EQ(host.Totals, std::vector<uint64_t>{6043});
  auto total = std::find(host.Calls.begin(), host.Calls.end(), "SetTotalSize 6043");
  auto first = std::find(host.Calls.begin(), host.Calls.end(), "ResetItemProgress");
  EXPECT_LT(total, first);
  for (const std::string& call : host.Calls) {
    if (call.ends_with(" no")) {
      EXPECT_EQ(call, "IsItemSelected no");
    }
  }
  EXPECT_EQ(std::count(host.Calls.begin(), host.Calls.end(), "IsItemSelected no"), 2);
}

// An empty archive sets a total of 0 and passes a positive status through;
// a failed open is recorded, and the stream is still closed.
TEST(ExtractDriver, EmptyArchiveOrFailedOpenStillSetsATotalAndCloses) {
  RecordingHost empty;
  empty.Status = 5;
  EXPECT_EQ(empty.Run(), 5);
  EXPECT_EQ(empty.Calls, (Calls{"Open 1330", "ReadMemberHeader", "SetTotalSize 0", "ReadMemberHeader", "Close"}));
  RecordingHost failed;
  failed.ArchiveStream.OpenFails = true;
  failed.Members = {{.Name = L"a"}};
  failed.HeaderFailureIndex = 0;  // the reads fail too once the open failed
  failed.HeaderFailureAt = kz::E_Fail;
  EXPECT_EQ(failed.Run(), kz::E_Fail);
  EXPECT_EQ(failed.Calls, (Calls{"Open 1330", "SetSystemError", "ReadMemberHeader", "SetTotalSize 0", "Close"}));
}

TEST(ExtractDriver, ALibraryStepFailingSkipsTheDataButEndsTheItem) {
  struct Case {
    ScriptedMember Member;
    const char* LastBeforeEnd;
  };
  for (const Case& c : {Case{{.Name = L"a", .Prepare = -1}, "PrepareOutputPath"},
                        Case{{.Name = L"a", .Begin = -1}, "BeginExtractItem a"},
                        Case{{.Name = L"a", .Create = -1}, "CreateOutputFile"}}) {
    RecordingHost host;
    host.Members = {c.Member, {.Name = L"b"}};
    host.Run();
    Calls second = host.SecondPass();
    auto end = std::find(second.begin(), second.end(), "EndExtractItem a");
    ASSERT_NE(end, second.end()) << c.LastBeforeEnd;
    EXPECT_EQ(*(end - 1), c.LastBeforeEnd);
    EXPECT_EQ(*(end + 1), "ItemDone a");
    EXPECT_EQ(std::count(second.begin(), second.end(), "DecodeMember a"), 0);
    EXPECT_EQ(std::count(second.begin(), second.end(), "DecodeMember b"), 1);  // the run goes on
  }
}

TEST(ExtractDriver, ANegativeStatusFromDecodingStopsAtTheNextMember) {
  RecordingHost host;
  host.Members = {{.Name = L"a", .DecodeStatus = kz::E_Crc}, {.Name = L"b"}};
  EXPECT_EQ(host.Run(), kz::E_Crc);
  Calls second = host.SecondPass();
  // The failed member still ends properly; the next header is never read.
  EXPECT_EQ(std::vector<std::string>(second.end() - 5, second.end()),
            (Calls{"DecodeMember a", "EndItemData", "FinishOutputFile a 9", "EndExtractItem a", "ItemDone a"}));
  EXPECT_EQ(host.Calls.back(), "Close");
}

TEST(ExtractDriver, ANegativeItemDoneEndsTheLoop) {
  RecordingHost host;
  host.Members = {{.Name = L"a", .Done = -1}, {.Name = L"b"}};
  EXPECT_EQ(host.Run(), 0);
  Calls second = host.SecondPass();
  EXPECT_EQ(second.back(), "ItemDone a");
}

// Method (5, 6, 7) and header level (0, 1, 2).
class JlhaRoundTrip : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(JlhaRoundTrip, DecodesToTheOriginalBytes) {
  if (!kztest::HaveTool("jlha")) GTEST_SKIP() << "jlha not installed";
  const auto [method, level] = GetParam();
  kztest::TempDir dir;
  std::map<std::string, Bytes> inputs;
  const size_t sizes[] = {0, 1, 4095, 4096, 4097, 8191, 8192, 8193, 32767, 32768, 32769, 65535, 65536, 65537};
  for (size_t n : sizes) inputs["t" + std::to_string(n)] = kztest::TextBytes(n, static_cast<uint32_t>(n));
  inputs["r70000"] = kztest::RandomBytes(70000, 3);
  inputs["big"] = kztest::TextBytes(2 << 20, 77);
  for (size_t i = 0; i < inputs["big"].size(); i += 4099) inputs["big"][i] = static_cast<uint8_t>(i >> 5);
  std::vector<std::string> argv{"jlha", "a" + std::to_string(level) + "o" + std::to_string(method) + "q",
                                (dir / "x.lzh").string()};
  for (const auto& [name, bytes] : inputs) { kztest::WriteFile(dir / name, bytes); argv.push_back(name); }
  kztest::CommandResult made = kztest::Run(argv, dir.path().string());
  ASSERT_EQ(made.ExitCode, 0) << made.Err;
  HRESULT status = -1;
  auto got = kztest::Contents(dir / "x.lzh", &status);
  EXPECT_EQ(status, 0);
  for (const auto& [name, bytes] : inputs) {
    if (bytes.empty()) continue;  // no data for the callback
    const std::string& decoded = got[kztest::Wide(name)];
    EXPECT_TRUE(decoded == std::string(bytes.begin(), bytes.end())) << name << ": " << decoded.size();
  }
}

INSTANTIATE_TEST_SUITE_P(MethodsAndLevels, JlhaRoundTrip,
                         ::testing::Combine(::testing::Values(5, 6, 7), ::testing::Values(0, 1, 2)),
                         [](const auto& info) {
                           return "lh" + std::to_string(std::get<0>(info.param)) + "_level" +
                                  std::to_string(std::get<1>(info.param));
                         });

}  // namespace
