// Hostile names through kzlha: no raw escape byte reaches the terminal.
// Where hostile archives' files land is the library's business
// (enginelib/extract_ops_test).
#include <gtest/gtest.h>

#include "cli/cli_helpers.h"

namespace kzclitest {
namespace {

fs::path Hostile(const std::string& name) { return kztest::SharedArchive("regression/" + name); }

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
