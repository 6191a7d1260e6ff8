// Every I/O call of an update or an extraction made to fail in turn: the
// old archive must come out byte for byte, no temporary file may remain,
// no partial output may be left, and the error must name a file.
#include <gtest/gtest.h>
#ifndef _WIN32
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "enginelib/file_stream.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;

constexpr int64_t kSourceTime = 1600000000;
const char* const kSources[] = {"new.txt", "m1", "sub/deep.bin", "subdir/subdir2/hello.txt"};

MemberSpec Stored(const std::string& name, const std::string& content) {
  return kztest::StoredSpec(name, content, kztest::DosTime(2000, 1, 1));
}

Bytes SmallArchive() {
  MemberSpec dir = Stored("d", "");
  dir.attributes = 0x10;
  ArchiveBuilder b;
  b.Stub(Bytes(40, 'S')).Member(Stored("m1", "first member")).Member(dir);
  return b.Member(Stored("d\\m2", std::string(70000, 'z'))).Member(Stored("m3", "third")).End().Bytes();
}

const uint32_t kKinds[] = {kz::fault::kOpen,  kz::fault::kCreate, kz::fault::kRead,
                           kz::fault::kWrite, kz::fault::kSeek,   kz::fault::kTruncate,
                           kz::fault::kRename};

// One update, run on a fresh copy of the small archive and fresh sources.
using Operation = std::function<HRESULT(KzArchiver&, const fs::path& src)>;
struct UpdateCase {
  const char* what;
  Operation run;
  bool newArchive = false;  // starts without an archive
  bool unixArchive = false;  // an archive of LHa for Unix instead of the small stored one
};


void PrintTo(const UpdateCase& c, std::ostream* os) { *os << c.what; }

class UpdateSweep : public ::testing::TestWithParam<UpdateCase> {
 protected:
  void Fresh() {
    fs::remove_all(dir_.path() / "w");
    fs::create_directories(src());
    kztest::WriteFile(src() / "new.txt", std::string("a new file"));
    kztest::WriteFile(src() / "m1", std::string("replacement"));
    kztest::WriteFile(src() / "sub" / "deep.bin", kztest::RandomBytes(5000, 7));
    kztest::WriteFile(src() / "subdir" / "subdir2" / "hello.txt", kztest::TextBytes(30000, 2));
    for (const char* f : kSources) kztest::SetModificationTime(src() / f, kSourceTime);
    if (!GetParam().newArchive) kztest::WriteFile(archive(), OldArchive());
    engine_ = std::make_unique<KzLhaArchiver>();
    ASSERT_EQ(kztest::OpenArchive(*engine_, archive()), 0);
  }
  Bytes OldArchive() const {
    if (GetParam().newArchive) return Bytes();
    // Level 2: subdir\, subdir\subdir2\, subdir\subdir2\hello.txt.
    return GetParam().unixArchive ? kztest::ReadFile(kztest::SharedArchive("lha_unix114i/h2_subdir.lzh"))
                                  : SmallArchive();
  }
  HRESULT Run() { return GetParam().run(*engine_, src()); }
  std::optional<Bytes> ArchiveNow() const {
    return fs::exists(archive()) ? std::optional(kztest::ReadFile(archive())) : std::nullopt;
  }
  fs::path archive() const { return dir_.path() / "w" / "arc.lzh"; }
  fs::path src() const { return dir_.path() / "w" / "src"; }

  TempDir dir_;
  std::unique_ptr<KzLhaArchiver> engine_;
};

TEST_P(UpdateSweep, EveryFailingCallLeavesTheOldArchive) {
  const UpdateCase& c = GetParam();
  Fresh();
  ASSERT_GE(Run(), 0) << c.what << ": " << engine_->Status;
  const std::optional<Bytes> success = ArchiveNow();
  const std::optional<Bytes> old = c.newArchive ? std::nullopt : std::optional(OldArchive());
  int failures = 0;
  for (uint32_t kind : kKinds) {
    Fresh();
    kz::fault::Arm(0, kind);  // count only
    Run();
    uint64_t calls = kz::fault::CallsSeen();
    kz::fault::Disarm();
    for (uint64_t n = 1; n <= calls; ++n) {
      Fresh();
      kz::fault::Arm(n, kind);
      HRESULT hr = Run();
      kz::fault::Disarm();
      std::string where =
          std::string(c.what) + ", kind " + std::to_string(kind) + ", call " + std::to_string(n);
      EXPECT_FALSE(HasTempFiles(dir_.path())) << where;
      // A failure the update survives (forcing the directory to disk) still gives the complete result.
      EXPECT_TRUE(ArchiveNow() == (hr >= 0 ? success : old)) << where;
      if (hr >= 0) continue;
      ++failures;
      ASSERT_NE(engine_->ErrorFileName, nullptr) << where;
      EXPECT_NE(engine_->ErrorFileName[0], 0) << where;
      // The host sees the archive or a source named, never the temporary file.
      EXPECT_EQ(std::wstring(engine_->ErrorFileName).find(L".kz"), std::wstring::npos) << where;
      for (const char* f : kSources) EXPECT_TRUE(fs::exists(src() / f)) << where << ": source " << f;
    }
  }
  EXPECT_GT(failures, 10) << c.what;  // the sweep reached the operation's calls
}

Operation Adding(std::vector<std::wstring> items, uint32_t flags) {
  return [=](KzArchiver& e, const fs::path& s) { return AddItems(e, s, items, flags); };
}
Operation Deleting(std::wstring name) {  // deleting every member is a success
  return [=](KzArchiver& e, const fs::path&) {
    HRESULT hr = DeleteItems(e, {name}, KZ_SELECT_WILDCARD);
    return hr == KZ_ARC_E_EMPTYARCHIVE ? 0 : hr;
  };
}

// The sweep's check that every source is still there covers the move.
INSTANTIATE_TEST_SUITE_P(
    Operations, UpdateSweep,
    ::testing::Values(UpdateCase{"add and replace", Adding({L"new.txt", L"m1", L"sub"}, KZ_ADD_REPLACE)},
                      UpdateCase{"move", Adding({L"new.txt"}, KZ_ADD_MOVE)},
                      UpdateCase{"create over the old", Adding({L"new.txt"}, KZ_ADD_CREATE)},
                      UpdateCase{"delete one", Deleting(L"d\\m2")},
                      UpdateCase{"unix: add and replace", Adding({L"subdir/subdir2/hello.txt", L"new.txt"}, 0),
                                 false, true},
                      UpdateCase{"unix: update", Adding({L"subdir"}, KZ_ADD_UPDATE), false, true},
                      UpdateCase{"unix: new archive", Adding({L"new.txt", L"subdir"}, 0), true, true},
                      UpdateCase{"unix: delete one", Deleting(L"subdir\\subdir2\\hello.txt"), false, true},
                      UpdateCase{"unix: delete all", Deleting(L"*"), false, true}),
    kztest::CaseNameFromWhat());

#ifndef _WIN32  // fork and RLIMIT_FSIZE have no Windows form
// A real limit instead of the seam: the child may not grow a file past 64 KiB.
TEST(NoDataLostTest, AnOutputThatCannotGrowLeavesTheOldArchive) {
  TempDir dir;
  kztest::WriteFile(dir / "arc.lzh", SmallArchive());
  kztest::WriteFile(dir / "src" / "big", kztest::RandomBytes(200000, 3));
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {65536, 65536};
    setrlimit(RLIMIT_FSIZE, &limit);
    KzLhaArchiver e;
    kztest::OpenArchive(e, dir / "arc.lzh");
    HRESULT hr = AddItems(e, dir / "src", {L"big"}, 0);
    bool named = e.ErrorFileName != nullptr && EnginePath(dir / "arc.lzh") == e.ErrorFileName;
    _exit(hr == kz::HresultFromWin32(ERROR_FILE_TOO_LARGE) && named ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(kztest::ReadFile(dir / "arc.lzh"), SmallArchive());
  EXPECT_FALSE(HasTempFiles(dir.path()));
}
#endif

// Extraction of the small archive and of one of LHa 2.13 (-lh5-): a failing
// call ends the run or that member, and every file that stays is whole.
class ExtractionSweep : public ::testing::TestWithParam<bool> {};

TEST_P(ExtractionSweep, NeverLeavesAPartialFile) {
  TempDir dir;
  if (GetParam()) {
    fs::copy_file(kztest::SharedArchive("lha213/subdir.lzh"), dir / "arc.lzh");
  } else {
    kztest::WriteFile(dir / "arc.lzh", SmallArchive());
  }
  auto run = [&](uint32_t kind, uint64_t n) {
    fs::remove_all(dir / "out");
    auto e = std::make_unique<KzLhaArchiver>();
    kztest::OpenArchive(*e, dir / "arc.lzh");
    kz::fault::Arm(n, kind);
    HRESULT hr = kztest::ExtractAll(*e, dir / "out");
    uint64_t calls = kz::fault::CallsSeen();
    kz::fault::Disarm();
    if (hr < 0) {
      EXPECT_TRUE(e->ErrorFileName != nullptr && e->ErrorFileName[0] != 0) << kind << ", call " << n;
    }
    return std::make_pair(hr, calls);
  };
  ASSERT_EQ(run(0, 0).first, 0);
  struct Made { fs::path Path; Bytes Content; fs::file_time_type Time; };
  std::vector<Made> expected;
  for (const auto& e : fs::recursive_directory_iterator(dir / "out")) {
    if (e.is_regular_file()) expected.push_back({e.path(), kztest::ReadFile(e.path()), e.last_write_time()});
  }
  ASSERT_FALSE(expected.empty());
  int failures = 0;
  for (uint32_t kind : kKinds) {
    uint64_t calls = run(kind, 0).second;
    for (uint64_t n = 1; n <= calls; ++n) {
      HRESULT hr = run(kind, n).first;
      std::string where = "kind " + std::to_string(kind) + ", call " + std::to_string(n);
      if (hr < 0) ++failures;
      EXPECT_FALSE(fs::exists(dir / "out") && HasTempFiles(dir / "out")) << where;
      for (const auto& [path, content, time] : expected) {
        if (fs::exists(path)) {
          // ... and stamped: failing to set its time fails the member.
          EXPECT_EQ(kztest::ReadFile(path), content) << where << " " << path;
          EXPECT_EQ(fs::last_write_time(path), time) << where << " " << path;
        } else if (kind != kz::fault::kSeek) {
          // (A failed seek of the header reader reads as the archive's end.)
          EXPECT_LT(hr, 0) << where << ": " << path << " missing after a success";
        }
      }
    }
  }
  EXPECT_GT(failures, 5);
}

INSTANTIATE_TEST_SUITE_P(Engines, ExtractionSweep, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return std::string(info.param ? "Lha213" : "Stored");
                         });

}  // namespace
