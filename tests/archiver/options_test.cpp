// The option step: the method selector becomes the dictionary size that
// chooses the method of every file added.
#include <gtest/gtest.h>

#include "archiver/lha_archiver.h"
#include "support/test_support.h"

namespace {

struct Step {
  uint32_t id;
  intptr_t a;
  intptr_t b;
};

struct OptionCase {
  const char* what;
  std::vector<Step> steps;
  HRESULT lastResult;
  uint32_t dictionary;
  uint32_t marker;
};

class OptionsTest : public ::testing::TestWithParam<OptionCase> {};

TEST_P(OptionsTest, DictionaryFollowsTheSelector) {
  const auto& c = GetParam();
  KzLhaArchiver a;
  ASSERT_EQ(a.Init(), 0);
  HRESULT hr = 0;
  for (const auto& s : c.steps) hr = a.SetOptions(s.id, s.a, s.b);
  EXPECT_EQ(hr, c.lastResult);
  EXPECT_EQ(a.DictionarySize, c.dictionary);
  EXPECT_EQ(a.Option1Applied, c.marker);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OptionsTest,
    ::testing::Values(
        OptionCase{"lh5", {{1, 13, 0}}, 0, 8, 1}, OptionCase{"lh6", {{1, 14, 0}}, 0, 32, 1},
        OptionCase{"lh7", {{1, 15, 0}}, 0, 64, 1},
        OptionCase{"unknown selector keeps the dictionary", {{1, 14, 0}, {1, 12, 0}}, 0, 32, 1},
        OptionCase{"other ids only reach the base", {{KZ_OPT_LEVEL, 3, 0}}, 0, 8, 0},
        OptionCase{"a rejected option changes nothing",
                   {{1, 15, 0}, {1, 14, 1}},  // b must be 0
                   KZ_E_INVALIDARG, 64, 1},
        OptionCase{"rejected before the marker", {{1, 14, 7}}, KZ_E_INVALIDARG, 8, 0},
        OptionCase{"unknown option id", {{99, 0, 0}}, KZ_E_INVALIDARG, 8, 0}),
    kztest::CaseNameFromWhat());

TEST(OptionsBaseTest, LevelAndCodePageAreValidated) {
  KzLhaArchiver a;
  ASSERT_EQ(a.Init(), 0);
  EXPECT_EQ(a.SetOptions(KZ_OPT_LEVEL, 0, 0), 0);
  EXPECT_EQ(a.CompressionLevel, 0u);
  EXPECT_EQ(a.SetOptions(KZ_OPT_LEVEL, 5, 0), KZ_E_INVALIDARG);
  EXPECT_EQ(a.CompressionLevel, 0u);
  EXPECT_EQ(a.SetOptions(KZ_OPT_CODEPAGE, 65001, 0), 0);
  EXPECT_EQ(a.SetOptions(KZ_OPT_CODEPAGE, 4242, 0), KZ_E_INVALIDARG);
  // A failed option does not poison the next call.
  EXPECT_EQ(a.SetOptions(KZ_OPT_METHOD, 14, 0), 0);
  EXPECT_EQ(a.DictionarySize, 32u);
}

}  // namespace
