// A source of 4 GiB or more cannot be described by a level-1 header: kzlha
// must refuse it with a message naming the file, write no archive, leave an
// existing archive byte for byte as it was (no temporary left beside it) and,
// for a move, keep the sources. The sources are sparse files: nothing is
// read before the size check.
#include <gtest/gtest.h>

#include <fstream>

#include "cli/cli_helpers.h"

namespace kzclitest {
namespace {

struct TooLargeCase {
  const char* Label;
  const char* Command;       // kzlha command letter
  const char* Option;        // one option or ""
  uint64_t HugeSize;         // the sparse source's size
  bool ExistingArchive;      // add into an archive that already has members
  bool SmallSourceFirst;     // a small source precedes the huge one
};

std::ostream& operator<<(std::ostream& os, const TooLargeCase& c) { return os << c.Label; }

class TooLargeSource : public ::testing::TestWithParam<TooLargeCase> {};

constexpr uint64_t k4GiB = uint64_t{1} << 32;

TEST_P(TooLargeSource, IsRefusedAndNothingChanges) {
#ifdef _WIN32
  GTEST_SKIP() << "a 4 GiB file is not sparse on NTFS without asking";
#endif
  const TooLargeCase& c = GetParam();
  kztest::TempDir dir;
  const fs::path archive = dir / "out.lzh";
  kztest::WriteFile(dir / "small.txt", kztest::TextBytes(3000, 1));
  kztest::WriteFile(dir / "kept.txt", kztest::TextBytes(5000, 2));
  if (c.ExistingArchive) {
    const auto made = Kz({"a", "-q", archive.string(), "kept.txt"}, dir.path().string());
    ASSERT_EQ(made.ExitCode, 0) << made.Err;
  }
  const kztest::Bytes before = c.ExistingArchive ? kztest::ReadFile(archive) : kztest::Bytes{};
  { std::ofstream(dir / "huge.bin"); }
  fs::resize_file(dir / "huge.bin", c.HugeSize);
  const std::set<std::string> entriesBefore = DirectoryNames(dir.path());

  std::vector<std::string> argv = {c.Command};
  if (*c.Option != 0) argv.push_back(c.Option);
  argv.push_back(archive.string());
  if (c.SmallSourceFirst) argv.push_back("small.txt");
  argv.push_back("huge.bin");
  const auto r = Kz(argv, dir.path().string());

  EXPECT_NE(r.ExitCode, 0);
  EXPECT_NE(r.Err.find("huge.bin"), std::string::npos) << r.Err;
  EXPECT_NE(r.Err.find("too large"), std::string::npos) << r.Err;
  if (c.ExistingArchive) {
    EXPECT_EQ(kztest::ReadFile(archive), before);
  } else {
    EXPECT_FALSE(fs::exists(archive));
  }
  // No temporary archive left, and a move deleted none of its sources.
  EXPECT_EQ(DirectoryNames(dir.path()), entriesBefore);
  EXPECT_EQ(fs::file_size(dir / "huge.bin"), c.HugeSize);
}

INSTANTIATE_TEST_SUITE_P(
    Hardening, TooLargeSource,
    ::testing::Values(TooLargeCase{"ExactlyFourGiBIntoNewArchive", "a", "", k4GiB, false, false},
                      TooLargeCase{"AboveFourGiBStoredIntoNewArchive", "a", "-z", k4GiB + 12345, false, false},
                      TooLargeCase{"AfterASmallSourceIntoNewArchive", "c", "", k4GiB, false, true},
                      TooLargeCase{"AfterASmallSourceIntoExistingArchive", "a", "-o7", k4GiB, true, true},
                      TooLargeCase{"UpdateOfExistingArchive", "u", "", k4GiB, true, true},
                      TooLargeCase{"MoveKeepsTheSources", "m", "", k4GiB, true, true}),
    [](const ::testing::TestParamInfo<TooLargeCase>& info) { return std::string(info.param.Label); });

}  // namespace
}  // namespace kzclitest
