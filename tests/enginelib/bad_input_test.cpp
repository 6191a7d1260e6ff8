// Damaged archives through the whole engine: every prefix of a small
// archive, and headers that declare more data than the archive holds.
// Whatever the damage: no crash, a status that is either a success or a
// failure naming a file, nothing outside the destination, no temporary
// file left, and every file that is written of its full size and CRC.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using kztest::ArchiveBuilder;
using kztest::Bytes;
using kztest::MemberSpec;
using kztest::ToBytes;

// Levels 0, 1 (with a directory) and 2, stored and -lh5-: every kind of
// header and both kinds of data, under 1 KB in all.
struct SmallArchive {
  Bytes bytes;
  std::map<std::string, std::string> files;  // relative path -> contents
};

SmallArchive MakeSmallArchive(const fs::path& scratch) {
  SmallArchive out;
  const Bytes text = kztest::TextBytes(3000, 7);
  out.files = {{"a.txt", "level zero, stored"},
               {"d/b.txt", "level one in a directory"},
               {"c.txt", std::string(text.begin(), text.end())},
               {"e.txt", "level two"}};
  // The -lh5- member comes from the engine's own encoder.
  kztest::WriteFile(scratch / "src" / "c.txt", out.files["c.txt"]);
  KzLhaArchiver encoder;
  EXPECT_EQ(kztest::OpenArchive(encoder, scratch / "lh5.lzh"), 0);
  kztest::OwnedList items;
  items.Add(L"c.txt");
  EXPECT_EQ(encoder.CompressFiles(items.get(), kztest::EnginePath(scratch / "src").c_str(), 0), 0);
  auto packed = kztest::RawMembers(scratch / "lh5.lzh");
  EXPECT_EQ(packed.size(), 1u);
  EXPECT_EQ(packed[0].Header.Method, 5u);

  ArchiveBuilder b;
  b.Member(kztest::StoredSpec("a.txt", out.files["a.txt"]))
      .Member({.level = 1, .name = "b.txt", .directory = kztest::Dir("d/"),
               .packed = ToBytes(out.files["d/b.txt"]),
               .originalSize = static_cast<uint32_t>(out.files["d/b.txt"].size()),
               .crc = kztest::Crc16(ToBytes(out.files["d/b.txt"]))})
      .Raw(packed[0].Raw)
      .Stored("e.txt", ToBytes(out.files["e.txt"]), 2)
      .End();
  out.bytes = b.Bytes();
  return out;
}

// A failure names a file; a success leaves no error behind.
void ExpectCleanStatus(HRESULT hr, KzArchiver& a, const std::string& what) {
  if (hr >= 0) return;
  ASSERT_NE(a.ErrorFileName, nullptr) << what;
  EXPECT_NE(a.ErrorFileName[0], L'\0') << what;
}

// Lists, tests and extracts box/arc.lzh into box/dest; checks what is on
// disk afterwards against the complete files. Returns the extraction's
// status.
HRESULT RunAll(const fs::path& box, const std::map<std::string, std::string>& files,
               const std::string& where) {
  KzLhaArchiver a;
  EXPECT_EQ(a.Init(), 0);
  EXPECT_EQ(a.SetOptions(KZ_OPT_OVERWRITE, KZ_OVERWRITE_ALL, 0), 0);
  HRESULT open = a.InitArchive(kztest::EnginePath(box / "arc.lzh").c_str(), 0, 0);
  ExpectCleanStatus(open, a, where + " open");
  if (open < 0) return open;
  kztest::OwnedList all, members(KZ_LIST_MEMBERS);
  all.Add(L"*");
  ExpectCleanStatus(a.ListArchive(all.get(), KZ_SELECT_WILDCARD, 0, members.get(), nullptr), a,
                    where + " list");
  ExpectCleanStatus(a.TestArchive(nullptr, 0), a, where + " test");
  HRESULT hr =
      a.ExtractFiles(all.get(), KZ_SELECT_WILDCARD, kztest::EnginePath(box / "dest").c_str(), 0);
  ExpectCleanStatus(hr, a, where + " extract");
  for (const std::string& entry : kztest::Tree(box)) {
    if (entry == "arc.lzh" || entry == "dest/" || entry == "dest/d/") continue;
    EXPECT_EQ(entry.rfind("dest/", 0), 0u) << where << ": " << entry;
    auto it = files.find(entry.substr(5));
    if (it == files.end()) {
      ADD_FAILURE() << where << ": unexpected " << entry;
      continue;
    }
    // Complete as far as the member's CRC-16 can tell: damage that keeps
    // the CRC (one cut of c.txt here decodes to other bytes of the same
    // CRC) is beyond any reader of the format.
    const Bytes got = kztest::ReadFile(box / entry);
    EXPECT_EQ(got.size(), it->second.size()) << where << ": " << entry;
    EXPECT_EQ(kztest::Crc16(got), kztest::Crc16(ToBytes(it->second))) << where << ": " << entry;
  }
  return hr;
}

TEST(BadInput, EveryPrefixOfASmallArchiveFailsCleanly) {
  kztest::TempDir scratch;
  const SmallArchive small = MakeSmallArchive(scratch.path());
  ASSERT_GT(small.bytes.size(), 500u);
  int extractedAll = 0;
  for (size_t n = 0; n <= small.bytes.size(); ++n) {
    kztest::TempDir box;
    kztest::WriteFile(box / "arc.lzh", Bytes(small.bytes.begin(), small.bytes.begin() + n));
    RunAll(box.path(), small.files, "prefix " + std::to_string(n));
    extractedAll += kztest::Tree(box / "dest").size() == 5;  // four files and d/
  }
  // The whole archive, and the prefix that only lacks the end marker.
  EXPECT_EQ(extractedAll, 2);
}

// Sizes far beyond the archive. A packed size only places the next header
// (past the end: the archive ends there), so a stored member whose data is
// all there still comes out; an original size whose data is not there fails
// its member alone.
struct HugeCase {
  const char* what;
  MemberSpec spec;
  bool dataComplete;  // the member's data is all in the archive
};

void PrintTo(const HugeCase& c, std::ostream* os) { *os << c.what; }

class HugeSizes : public ::testing::TestWithParam<HugeCase> {};

TEST_P(HugeSizes, FailOnlyAMemberWhoseDataIsMissing) {
  kztest::TempDir box;
  ArchiveBuilder b;
  b.Stored("first.txt", ToBytes("first"), 0).Member(GetParam().spec).End();
  b.WriteTo(box / "arc.lzh");
  std::map<std::string, std::string> files{{"first.txt", "first"}};
  if (GetParam().dataComplete) files["huge.bin"] = "abc";
  HRESULT hr = RunAll(box.path(), files, GetParam().what);
  EXPECT_EQ(hr < 0, !GetParam().dataComplete) << std::hex << hr;
  EXPECT_TRUE(fs::exists(box / "dest" / "first.txt"));
}

MemberSpec Declaring(int level, std::optional<uint32_t> packedSize, uint32_t originalSize,
                     const char* method = "-lh0-") {
  return {.level = level, .method = method, .name = "huge.bin", .packed = ToBytes("abc"),
          .originalSize = originalSize, .crc = kztest::Crc16(ToBytes("abc")),
          .packedSize = packedSize};
}

INSTANTIATE_TEST_SUITE_P(
    Declared, HugeSizes,
    ::testing::Values(HugeCase{"level 0 packed 4 GiB - 1", Declaring(0, 0xFFFFFFFFu, 3), true},
                      HugeCase{"level 1 packed 4 GiB - 1", Declaring(1, 0xFFFFFFFFu, 3), true},
                      HugeCase{"level 2 packed 4 GiB - 1", Declaring(2, 0xFFFFFFFFu, 3), true},
                      HugeCase{"level 0 original 4 GiB - 1", Declaring(0, std::nullopt, 0xFFFFFFFFu), false},
                      HugeCase{"level 2 original 4 GiB - 1", Declaring(2, std::nullopt, 0xFFFFFFFFu), false},
                      HugeCase{"lh5 packed 4 GiB - 1", Declaring(1, 0xFFFFFFFFu, 3, "-lh5-"), false}),
    [](const auto& info) {
      std::string s = info.param.what;
      for (char& ch : s) {
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
      }
      return s;
    });

}  // namespace
