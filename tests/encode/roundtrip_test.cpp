// Files added at every method and level, read back by the engine and by
// lhasa; sizes sit around the window edges, where the search slides.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "archiver/lha_archiver.h"
#include "encode/encoder_rig.h"
#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using kztest::Bytes;
using kztest::Method;

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// The sources of one archive, by name; sizes follow the method's window.
std::map<std::string, Bytes> Sources(uint32_t dict) {
  std::map<std::string, Bytes> s;
  s["empty"] = {};
  s["one"] = kztest::ToBytes("x");
  s["two"] = kztest::ToBytes("xy");
  s["ten-equal"] = Bytes(10, 'a');
  for (uint32_t n : {dict - 1, dict, dict + 1, 2 * dict - 1, 2 * dict, 2 * dict + 1, 3 * dict + 5}) {
    s["text-" + std::to_string(n)] = kztest::TextBytes(n, n);
  }
  s["equal-200000"] = Bytes(200000, 'z');
  s["random-70000"] = kztest::RandomBytes(70000, 1);
  s["text-400000"] = kztest::TextBytes(400000, 2);
  s["unique-pairs"] = kztest::UniquePairBytes(65537);
  s["mixed"] = Concat({kztest::TextBytes(50000, 3), kztest::RandomBytes(20000, 4), Bytes(50000, 0),
                       kztest::TextBytes(50000, 5), kztest::UniquePairBytes(9000)});
  return s;
}

class RoundTripTest : public ::testing::TestWithParam<std::tuple<Method, uint32_t>> {};

TEST_P(RoundTripTest, EngineAndLhasaReadBackEveryFile) {
  const auto [method, level] = GetParam();
  const uint32_t dict = kztest::DictSizeOf(method);
  kztest::TempDir dir;
  const auto sources = Sources(dict);
  for (const auto& [name, content] : sources) kztest::WriteFile(dir / "src" / name, content);
  const fs::path archive = dir / "round.lzh";

  {
    KzLhaArchiver a;
    ASSERT_GE(a.Init(), 0);
    ASSERT_GE(a.SetOptions(KZ_OPT_METHOD, static_cast<intptr_t>(method) + 8, 0), 0);
    ASSERT_GE(a.SetOptions(KZ_OPT_LEVEL, level, 0), 0);
    ASSERT_GE(a.InitArchive(kztest::EnginePath(archive).c_str(), 0, 0), 0);
    std::vector<std::wstring> items;
    for (const auto& entry : sources) items.push_back(kztest::Wide(entry.first));
    ASSERT_EQ(kztest::AddItems(a, dir / "src", items), 0);
  }

  std::map<std::wstring, LhaHeader> members;
  for (const auto& m : kztest::RawMembers(archive)) members[m.Name] = m.Header;
  ASSERT_EQ(members.size(), sources.size());
  for (const auto& [name, content] : sources) {
    const LhaHeader& m = members.at(kztest::Wide(name));
    EXPECT_EQ(m.OriginalSize, content.size()) << name;
    const bool stored = m.Method == 0;
    if (level == 0 || content.empty() || name == "random-70000") {
      EXPECT_TRUE(stored) << name;
    } else if (name.rfind("text-", 0) == 0 || name.rfind("equal", 0) == 0) {
      EXPECT_EQ(m.Method, static_cast<uint32_t>(method)) << name;
      EXPECT_LT(m.PackedSize, content.size()) << name;
    }
    if (stored) { EXPECT_EQ(m.PackedSize, content.size()) << name; }
  }

  {
    KzLhaArchiver a;
    ASSERT_GE(kztest::OpenArchive(a, archive), 0);
    const fs::path out = dir / "engine";
    ASSERT_EQ(kztest::ExtractAll(a, out), 0);
    for (const auto& [name, content] : sources) EXPECT_EQ(kztest::ReadFile(out / name), content) << name;
  }

  if (kztest::HaveTool("lhasa")) {
    const fs::path out = dir / "lhasa";
    fs::create_directories(out);
    const auto r = kztest::Run({"lhasa", "xfqw=" + out.string(), archive.string()});
    ASSERT_EQ(r.ExitCode, 0) << r.Out << r.Err;
    for (const auto& [name, content] : sources) EXPECT_EQ(kztest::ReadFile(out / name), content) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    MethodsAndLevels, RoundTripTest,
    ::testing::Combine(::testing::Values(Method::Lh5, Method::Lh6, Method::Lh7),
                       ::testing::Values(0u, 1u, 2u, 3u, 4u)),
    [](const auto& info) {
      return "lh" + std::to_string(static_cast<uint32_t>(std::get<0>(info.param))) + "_level" +
             std::to_string(std::get<1>(info.param));
    });

}  // namespace
