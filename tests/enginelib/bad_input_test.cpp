// Damaged archives through the whole engine. Whatever the damage: a success
// or a failure naming a file, nothing outside the destination, no temporary
// file, and every file written whole.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/engine_harness.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;

// Levels 0, 1 (with a directory) and 2, stored and -lh5-, under 1 KB.
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
  kztest::WriteFile(scratch / "src" / "c.txt", out.files["c.txt"]);
  KzLhaArchiver encoder;
  EXPECT_EQ(kztest::OpenArchive(encoder, scratch / "lh5.lzh"), 0);
  EXPECT_EQ(kztest::AddItems(encoder, scratch / "src", {L"c.txt"}), 0);
  auto packed = kztest::RawMembers(scratch / "lh5.lzh");
  if (packed.size() != 1u || packed[0].Header.Method != 5u) {
    ADD_FAILURE() << "the encoder made no single -lh5- member";
    return out;
  }

  MemberSpec b = kztest::StoredSpec("b.txt", out.files["d/b.txt"]);
  b.level = 1;
  b.directory = kztest::Dir("d/");
  out.bytes = ArchiveBuilder()
                  .Member(kztest::StoredSpec("a.txt", out.files["a.txt"]))
                  .Member(b)
                  .Raw(packed[0].Raw)
                  .Stored("e.txt", ToBytes(out.files["e.txt"]), 2)
                  .End()
                  .Bytes();
  return out;
}

// A failure names a file; a success leaves no error behind.
void ExpectCleanStatus(HRESULT hr, KzArchiver& a, const std::string& what) {
  if (hr >= 0) return;
  ASSERT_NE(a.ErrorFileName, nullptr) << what;
  EXPECT_NE(a.ErrorFileName[0], L'\0') << what;
}

// Lists, tests and extracts box/arc.lzh into box/dest, then holds what is
// on disk to the complete files. Returns the extraction's status.
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
    if (entry == "arc.lzh") continue;
    EXPECT_EQ(entry.rfind("dest/", 0), 0u) << where << ": " << entry;
    if (entry.back() == '/') continue;  // directories hold no data
    auto it = files.find(entry.substr(5));
    if (it == files.end()) {
      ADD_FAILURE() << where << ": unexpected " << entry;
      continue;
    }
    // Whole as far as CRC-16 tells: one cut of c.txt decodes to other bytes
    // of the same CRC, which no reader of the format can see.
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

// A packed size only places the next header, so a stored member whose data
// is all there comes out; missing data fails its member alone.
struct HugeCase {
  const char* what;
  MemberSpec spec;
  bool dataComplete;  // the member's data is all in the archive
};

void PrintTo(const HugeCase& c, std::ostream* os) { *os << c.what; }

class HugeSizes : public ::testing::TestWithParam<HugeCase> {};

TEST_P(HugeSizes, FailOnlyAMemberWhoseDataIsMissing) {
  kztest::TempDir box;
  ArchiveBuilder().Stored("first.txt", ToBytes("first"), 0).Member(GetParam().spec).End().WriteTo(box / "arc.lzh");
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
                      HugeCase{"lh5 packed 4 GiB - 1", Declaring(1, 0xFFFFFFFFu, 3, "-lh5-"), false},
                      // Zero bits past the data decode to zeros; the CRC fails.
                      HugeCase{"lh5 original 1 MiB from 3 zero bytes",
                               {.level = 1, .method = "-lh5-", .name = "huge.bin",
                                .packed = Bytes(3, 0), .originalSize = 1u << 20, .crc = 0x1234},
                               false}),
    kztest::CaseNameFromWhat());


// One damaged header between two good members; `fails`: the extraction
// fails, otherwise the damage ends or passes the walk quietly.
struct FieldCase { const char* what; MemberSpec spec; bool fails; };

void PrintTo(const FieldCase& c, std::ostream* os) { *os << c.what; }

class HeaderFields : public ::testing::TestWithParam<FieldCase> {};

TEST_P(HeaderFields, OutOfRangeEndInACleanStatus) {
  kztest::TempDir box;
  ArchiveBuilder().Stored("first.txt", ToBytes("first"), 0).Member(GetParam().spec)
      .Stored("last.txt", ToBytes("last"), 1).End().WriteTo(box / "arc.lzh");
  HRESULT hr = RunAll(box.path(), {{"first.txt", "first"}, {"bad.txt", "abc"}, {"last.txt", "last"}},
                      GetParam().what);
  EXPECT_EQ(hr < 0, GetParam().fails) << std::hex << hr;
  EXPECT_TRUE(fs::exists(box / "dest" / "first.txt"));
}

MemberSpec Bad(int level, MemberSpec spec = {}) {
  spec.level = level;
  spec.name = "bad.txt";
  spec.packed = ToBytes("abc");
  spec.originalSize = 3;
  if (spec.crc == 0) spec.crc = kztest::Crc16(spec.packed);
  return spec;
}

INSTANTIATE_TEST_SUITE_P(
    Damaged, HeaderFields,
    ::testing::Values(
        FieldCase{"level byte 0xFF", Bad(2, {.levelByte = 0xFF}), false},
        FieldCase{"level 0 size byte below the name", Bad(0, {.sizeByte = 22}), true},
        FieldCase{"level 1 size byte 255", Bad(1, {.sizeByte = 255}), true},
        FieldCase{"level 2 length 0", Bad(2, {.headerLength = 0}), false},
        FieldCase{"level 2 length 25", Bad(2, {.headerLength = 25}), true},
        FieldCase{"level 2 length 65535", Bad(2, {.headerLength = 0xFFFF}), true},
        FieldCase{"level 2 padding", Bad(2, {.level2Padding = 40}), false},
        FieldCase{"level 0 checksum", Bad(0, {.checksumDelta = 1}), false},
        FieldCase{"level 1 checksum", Bad(1, {.checksumDelta = 1}), false},
        FieldCase{"level 2 header CRC", Bad(2, {.extensions = {{0x00, {0x12, 0x34}}}}), false},
        FieldCase{"data CRC", Bad(1, {.crc = 0x1234}), true},
        FieldCase{"method -lh9-", Bad(1, {.method = "-lh9-"}), true},
        FieldCase{"method of control bytes", Bad(1, {.method = std::string("\x1b[2J\x07", 5)}), true},
        FieldCase{"directory with data", Bad(1, {.method = "-lhd-"}), false}),
    kztest::CaseNameFromWhat());


// A single component of 1023 characters fails at the file system, naming
// its path; a deep path is cut to 1023 characters and extracted.
TEST(BadInput, NamesOf1023CharactersFailOrAreCutCleanly) {
  std::string deep;
  for (int i = 0; i < 10; ++i) deep += std::string(99, static_cast<char>('a' + i)) + "/";
  struct Case {
    std::string directory, name;
    bool fails;
  } cases[] = {{"", std::string(1023, 'n'), true}, {deep, std::string(100, 'z'), false}};
  for (const Case& c : cases) {
    kztest::TempDir box;
    ArchiveBuilder()
        .Member({.level = 2, .name = c.name, .directory = kztest::Dir(c.directory), .packed = ToBytes("abc"),
                 .originalSize = 3, .crc = kztest::Crc16(ToBytes("abc"))})
        .End()
        .WriteTo(box / "arc.lzh");
    KzLhaArchiver a;
    ASSERT_EQ(kztest::OpenArchive(a, box / "arc.lzh"), 0);
    HRESULT hr = kztest::ExtractAll(a, box / "dest");
    EXPECT_EQ(hr < 0, c.fails) << std::hex << hr;
    std::vector<std::string> files;
    for (const std::string& e : kztest::Tree(box / "dest")) {
      if (e.back() != '/') files.push_back(e);
    }
    if (c.fails) {
      ASSERT_NE(a.ErrorFileName, nullptr);
      EXPECT_EQ(std::wstring(a.ErrorFileName).size(), kztest::EnginePath(box / "dest").size() + 1 + 1023);
      EXPECT_TRUE(files.empty());
    } else {
      ASSERT_EQ(files.size(), 1u);
      EXPECT_EQ(files[0].size(), 1023u);  // the 1000-byte path and 23 characters of the name
      EXPECT_EQ(kztest::ReadFile(box / "dest" / files[0]), ToBytes("abc"));
    }
  }
}


// LHarc 1.13's -lh1- member cut every 97 bytes: the adaptive decoder runs
// on into the missing bytes and the member fails, leaving nothing.
TEST(BadInput, Lh1StreamsEndingEarlyFailTheirMember) {
  const fs::path source = kztest::SharedArchive("lharc113/lh1.lzh");
  const Bytes whole = kztest::ReadFile(source);
  const std::map<std::wstring, std::string> contents = kztest::Contents(source);
  ASSERT_EQ(contents.size(), 1u);
  const std::string name = kztest::Narrow(contents.begin()->first);
  const size_t dataStart = kztest::RawMembers(source)[0].Header.HeaderLength;
  for (size_t n = dataStart; n < whole.size() - 1; n += 97) {
    kztest::TempDir box;
    kztest::WriteFile(box / "arc.lzh", Bytes(whole.begin(), whole.begin() + n));
    HRESULT hr = RunAll(box.path(), {{name, contents.begin()->second}}, "cut at " + std::to_string(n));
    EXPECT_LT(hr, 0) << "cut at " << n;
  }
}

}  // namespace
