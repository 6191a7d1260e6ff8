// Hostile archives through kzlha: nothing lands outside the destination,
// nothing is written through a link, and no raw escape byte reaches the
// terminal.
#include <gtest/gtest.h>

#include "cli/cli_helpers.h"

namespace kzclitest {
namespace {

fs::path Hostile(const std::string& name) { return kztest::SharedArchive("regression/" + name); }

// Files the archives aim at outside any destination.
const char* const kOutsideTargets[] = {"/tmp/absolute_path.txt", "/tmp/passwd", "/etc/passwd.kzlha"};

class HostileExtract : public ::testing::TestWithParam<std::string> {};

TEST_P(HostileExtract, WritesNothingOutsideTheDestination) {
  // sandbox/a/b/dest is the destination, sandbox/a/b/cwd the working
  // directory; "../" names and relative links reach into sandbox/a.
  kztest::TempDir sandbox;
  const fs::path dest = sandbox / "a/b/dest";
  const fs::path cwd = sandbox / "a/b/cwd";
  fs::create_directories(dest);
  fs::create_directories(cwd);
  std::map<std::string, bool> existedBefore;
  for (const char* t : kOutsideTargets) existedBefore[t] = fs::exists(fs::symlink_status(t));
  const std::set<std::string> before = TreeEntries(sandbox.path());

  auto r = Kz({"x", "-f", "-w=" + dest.string(), Hostile(GetParam()).string()}, cwd.string());
  EXPECT_LE(r.ExitCode, 1) << r.Err;  // a refused member may count as failed, never a crash

  for (const std::string& entry : TreeEntries(sandbox.path())) {
    if (before.count(entry) != 0) continue;
    EXPECT_EQ(entry.rfind("a/b/dest/", 0), 0u) << "created outside the destination: " << entry;
  }
  for (const auto& [path, existed] : existedBefore) {
    if (!existed) {
      EXPECT_FALSE(fs::exists(fs::symlink_status(path))) << path << " was created";
    }
  }
  // Link members are not created, so nothing below dest is a link.
  for (const std::string& entry : TreeEntries(dest)) {
    EXPECT_FALSE(fs::is_symlink(dest / entry)) << entry << " is a link";
  }
}

INSTANTIATE_TEST_SUITE_P(Regression, HostileExtract,
                         ::testing::Values("abspath.lzh", "dotdot.lzh", "symlink1.lzh", "symlink2.lzh",
                                           "symlink3.lzh", "badterm.lzh", "truncated.lzh", "unixsep.lzh",
                                           "dir.lzh", "multiple.lzh"),
                         [](const auto& info) { return info.param.substr(0, info.param.find('.')); });

// A link already in the destination where a member's directory goes
// ("etc" of symlink2/3) must not carry the member's file out.
TEST(HostileLinks, APlantedLinkIsNotWrittenThrough) {
  for (const char* archive : {"symlink2.lzh", "symlink3.lzh"}) {
    kztest::TempDir sandbox;
    const fs::path dest = sandbox / "dest";
    const fs::path outside = sandbox / "outside";
    fs::create_directories(dest);
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, dest / "etc");
    auto r = Kz({"x", "-f", "-w=" + dest.string(), Hostile(archive).string()});
    EXPECT_LE(r.ExitCode, 1) << r.Err;
    EXPECT_FALSE(fs::exists(outside / "passwd")) << archive << ": written through the link";
    EXPECT_TRUE(fs::is_empty(outside)) << archive;
  }
  // A planted file link: the member must replace or skip it, not write
  // into its target.
  kztest::TempDir sandbox;
  const fs::path dest = sandbox / "dest";
  fs::create_directories(dest);
  kztest::WriteFile(sandbox / "victim.txt", std::string("keep"));
  fs::create_symlink(sandbox / "victim.txt", dest / "file1.txt");
  Kz({"x", "-f", "-w=" + dest.string(), Hostile("multiple.lzh").string(), "file1.txt"});
  EXPECT_EQ(kztest::ReadFile(sandbox / "victim.txt"), kztest::ToBytes("keep"));
}

TEST(HostileNames, NoRawEscapeReachesTheTerminal) {
  kztest::TempDir d;
  const std::string archive = Hostile("badterm.lzh").string();
  const std::vector<std::vector<std::string>> runs = {
      {"l", archive}, {"v", archive}, {"l", "--json", archive}, {"t", archive},
      {"x", "-w=" + d.path().string(), archive}, {"x", "-w=" + d.path().string(), archive},  // 2nd: skip note
      {"p", archive}, {"t", archive, "no\x1b[31mmatch"}};
  for (const auto& args : runs) {
    auto r = Kz(args);
    EXPECT_EQ(r.Out.find('\x1b'), std::string::npos) << args[0] << ": " << r.Out;
    EXPECT_EQ(r.Err.find('\x1b'), std::string::npos) << args[0] << ": " << r.Err;
    EXPECT_EQ(r.Out.find('\x07'), std::string::npos) << args[0];
  }
  // The member is still listed, its name made harmless.
  auto list = Kz({"l", archive});
  EXPECT_NE(list.Out.find("]2;malicious"), std::string::npos) << list.Out;
}

}  // namespace
}  // namespace kzclitest
