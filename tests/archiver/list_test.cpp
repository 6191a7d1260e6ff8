// Listing: the walk into the host's list and the archive statistics.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "archiver/lha_archiver.h"
#include "support/archive_builder.h"
#include "support/engine_harness.h"

namespace {

using kztest::ArchiveBuilder;
using kztest::Bytes;
using kztest::MemberSpec;
using kztest::OwnedList;
using kztest::ToBytes;
using Strings = std::vector<std::wstring>;

std::vector<const LhaHeader*> Members(const KzList* list) {
  std::vector<const LhaHeader*> out;
  for (void* item : KzListItems(list)) out.push_back(static_cast<const LhaHeader*>(item));
  return out;
}

Strings Names(const KzList* list) {
  Strings out;
  for (const LhaHeader* m : Members(list)) out.emplace_back(m->Name);
  return out;
}

// A member of the given method and sizes; the data bytes are not decoded
// by listing, so any bytes of the right length do.
MemberSpec Sized(const std::string& name, char method, uint32_t packed, uint32_t original,
                 int level = 2, uint8_t osId = 'U') {
  return MemberSpec{.level = level, .method = std::string("-lh") + method + "-", .name = name,
                    .packed = Bytes(packed, 0x5A), .originalSize = original, .osId = osId};
}

class ListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(archiver_.Init(), 0);
    std::memset(&info_, 0xAB, sizeof info_);
  }

  void Bind(const Bytes& bytes) {
    kztest::WriteFile(dir_ / "a.lzh", bytes);
    path_ = kztest::Wide((dir_ / "a.lzh").string());
    ASSERT_EQ(archiver_.InitArchive(path_.c_str(), 0, 0), 0);
  }

  void Bind(std::initializer_list<MemberSpec> specs) {
    ArchiveBuilder b;
    for (const auto& s : specs) b.Member(s);
    b.End();
    Bind(b.Bytes());
  }

  HRESULT List(ArchiveInfo* info) {
    return archiver_.ListArchive(all_.get(), KZ_SELECT_EXACT, 0, members_.get(), info);
  }

  bool InfoUntouched() const {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&info_);
    return std::all_of(bytes, bytes + sizeof info_, [](uint8_t b) { return b == 0xAB; });
  }

  kztest::TempDir dir_;
  std::wstring path_;
  KzLhaArchiver archiver_;
  OwnedList all_{KZ_LIST_NAMES};  // empty: every member
  OwnedList members_{KZ_LIST_MEMBERS};
  ArchiveInfo info_;
};

TEST_F(ListTest, ListsEveryMemberInArchiveOrderFromBehindAStub) {
  ArchiveBuilder b;
  b.Stub(Bytes(300, 0x90))
      .Stored("zero.txt", ToBytes("level 0"), 0)
      .Stored("dir\\one.txt", ToBytes("level one"), 1)
      .Member({.level = 2, .name = "two.txt", .directory = kztest::Dir("d/"),
               .packed = ToBytes("2"), .originalSize = 1})
      .End();
  Bind(b.Bytes());
  archiver_.SetError(kz::ARC_E_NOTSUPPORTED, L"x");  // a listing clears an earlier error
  ASSERT_EQ(List(&info_), 0);
  EXPECT_EQ(archiver_.Status, 0);
  EXPECT_EQ(Names(members_.get()), (Strings{L"zero.txt", L"dir\\one.txt", L"d\\two.txt"}));
  const auto members = Members(members_.get());
  ASSERT_EQ(members.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(members[i]->HeaderPos, b.Layout()[i].headerPos);
    EXPECT_EQ(members[i]->Valid, 1u);
  }
  EXPECT_EQ(members[1]->OriginalSize, 9u);
  EXPECT_EQ(members[1]->Crc, kztest::Crc16(ToBytes("level one")));
  EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
}

// Only the chosen members are listed and counted; a selection of nothing
// leaves the statistics as the library filled them.
TEST_F(ListTest, ASelectionChoosesMembersAndOnlyThoseAreCounted) {
  Bind({Sized("a.txt", '5', 10, 100), Sized("b.txt", '7', 20, 40), Sized("c.txt", '1', 30, 300)});
  for (const wchar_t* name : {L"b.txt", L"nothing-like-this"}) {
    const bool found = name[0] == L'b';
    OwnedList selection(KZ_LIST_NAMES), listed(KZ_LIST_MEMBERS);
    ASSERT_EQ(KzList::Add(selection.get(), name, 0), 0);
    ASSERT_EQ(archiver_.ListArchive(selection.get(), KZ_SELECT_EXACT, 0, listed.get(), &info_), 0);
    EXPECT_EQ(Names(listed.get()), found ? Strings{L"b.txt"} : Strings{});
    EXPECT_EQ(info_.ArchiveType, 13u);
    EXPECT_EQ(info_.MemberCount, found ? 1u : 0u);
    EXPECT_EQ(info_.TotalPacked, found ? 20u : 0u);
    EXPECT_EQ(info_.TotalOriginal, found ? 40u : 0u);
    EXPECT_EQ(info_.DictionaryKiB, found ? 64u : 8u);
    EXPECT_EQ(info_.RatioPercent, found ? 50u : 0u);
    EXPECT_EQ(info_.VersionMajor, found ? 2u : 0u);
    EXPECT_EQ(info_.HostOs, found ? 5u : 0u);
  }
}

// Items already in the list are examined like the new ones.
TEST_F(ListTest, ItemsAlreadyInTheListAreCounted) {
  Bind({Sized("a", '7', 30, 60), Sized("b", '1', 10, 40)});
  ASSERT_EQ(List(nullptr), 0);
  Bind({Sized("c", '5', 20, 100)});
  ASSERT_EQ(List(&info_), 0);
  EXPECT_EQ(Names(members_.get()), (Strings{L"a", L"b", L"c"}));
  EXPECT_EQ(info_.MemberCount, 3u);
  EXPECT_EQ(info_.TotalPacked, 60u);
  EXPECT_EQ(info_.TotalOriginal, 200u);
  EXPECT_EQ(info_.RatioPercent, 30u);
  EXPECT_EQ(info_.VersionMajor, 2u);
  EXPECT_EQ(info_.VersionMinor, 7u);
  EXPECT_EQ(info_.DictionaryKiB, 64u);
}

struct StatsCase {
  const char* what;
  std::vector<MemberSpec> members;
  uint32_t major, minor, dictionary, hostOs, ratio;
};

class Statistics : public ListTest, public ::testing::WithParamInterface<StatsCase> {};

TEST_P(Statistics, ComeFromTheListedMembers) {
  const StatsCase& c = GetParam();
  ArchiveBuilder b;
  uint64_t packed = 0, original = 0;
  for (const auto& m : c.members) {
    b.Member(m);
    packed += m.packed.size();
    original += m.originalSize;
  }
  b.End();
  for (const auto& layout : b.Layout()) packed += layout.extendedLength;  // level 1 counts them
  Bind(b.Bytes());
  ASSERT_EQ(List(&info_), 0);
  EXPECT_EQ(info_.Size, sizeof(ArchiveInfo));
  EXPECT_EQ(info_.ArchiveType, 13u);
  EXPECT_EQ(info_.VersionMajor, c.major);
  EXPECT_EQ(info_.VersionMinor, c.minor);
  EXPECT_EQ(info_.DictionaryKiB, c.dictionary);
  EXPECT_EQ(info_.HostOs, c.hostOs);
  EXPECT_EQ(info_.MemberCount, c.members.size());
  EXPECT_EQ(info_.TotalPacked, packed);
  EXPECT_EQ(info_.TotalOriginal, original);
  EXPECT_EQ(info_.RatioPercent, c.ratio);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Statistics,
    ::testing::Values(
        // The last lh6/lh7 member decides the dictionary; the highest version wins.
        StatsCase{"lh5 lh7 lh6", {Sized("a", '5', 10, 10), Sized("b", '7', 10, 10),
                                  Sized("c", '6', 10, 10)}, 2, 7, 32, 5, 100},
        StatsCase{"lh6 lh7", {Sized("a", '6', 1, 2), Sized("b", '7', 1, 2)}, 2, 7, 64, 5, 50},
        StatsCase{"lh1 alone", {Sized("a", '1', 10, 20)}, 1, 3, 8, 5, 50},
        StatsCase{"lh1 then lh0", {Sized("a", '1', 1, 4), Sized("b", '0', 1, 4)}, 2, 1, 8, 5, 25},
        StatsCase{"ratio 100 when grown", {Sized("a", '5', 201, 200)}, 2, 1, 8, 5, 100},
        StatsCase{"ratio truncates", {Sized("a", '5', 2, 3)}, 2, 1, 8, 5, 66},
        StatsCase{"host of the last member", {Sized("a", '5', 1, 1, 1, 'U'),
                                              Sized("b", '5', 1, 1, 1, 'M')}, 2, 1, 8, 1, 100},
        StatsCase{"level 0 host", {Sized("a", '5', 1, 1, 0)}, 2, 1, 8, 1, 100},
        StatsCase{"unknown method", {Sized("a", 'x', 1, 1)}, 2, 7, 8, 5, 100},
        StatsCase{"no original bytes: ratio left 0", {Sized("empty", '0', 0, 0)}, 2, 1, 8, 5, 0},
        StatsCase{"level 1 extended headers", {MemberSpec{.level = 1, .name = "f", .directory = kztest::Dir("d/"),
                                                          .packed = Bytes(10, 1), .originalSize = 15}},
                  2, 1, 8, 5, 100}),
    kztest::CaseNameFromWhat());

TEST_F(ListTest, StrayBytesAfterTheLastMemberFailTheListing) {
  ArchiveBuilder b;
  b.Stored("a", ToBytes("x")).Stored("b", ToBytes("y")).Raw(Bytes(10, 'Q'));
  Bind(b.Bytes());
  const HRESULT hr = List(&info_);
  EXPECT_LT(hr, 0);
  EXPECT_EQ(archiver_.Status, hr);
  EXPECT_EQ(Names(members_.get()), (Strings{L"a", L"b"}));
  EXPECT_TRUE(InfoUntouched());
  EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
}

TEST_F(ListTest, AChecksumMismatchEndsTheListingQuietly) {
  ArchiveBuilder b;
  b.Stored("a", ToBytes("x")).Member({.level = 1, .name = "b", .checksumDelta = 1});
  b.Stored("c", ToBytes("z")).End();
  Bind(b.Bytes());
  ASSERT_EQ(List(&info_), 0);
  EXPECT_EQ(Names(members_.get()), Strings{L"a"});
  EXPECT_EQ(info_.MemberCount, 1u);
}

TEST_F(ListTest, ARefusedHeaderStopsTheWalkWithItsStatus) {
  ArchiveBuilder b;
  b.Stored("a", ToBytes("x"), 2);
  b.Member({.level = 2, .name = "b", .extensions = {kztest::ExtHeader{0x41, {}, 2}}});
  b.Stored("c", ToBytes("z"), 2).End();
  Bind(b.Bytes());
  EXPECT_EQ(List(&info_), kz::ARC_E_BADHEADER);
  EXPECT_EQ(Names(members_.get()), Strings{L"a"});
  EXPECT_TRUE(InfoUntouched());
}

TEST_F(ListTest, TheMemberAfterANamelessLevel2HeaderIsListed) {
  ArchiveBuilder b;
  b.Member({.level = 2, .packed = Bytes(33, '-')}).Stored("after.txt", ToBytes("x"), 2).End();
  Bind(b.Bytes());
  ASSERT_EQ(List(&info_), 0);
  const auto members = Members(members_.get());
  ASSERT_FALSE(members.empty());
  EXPECT_EQ(std::wstring(members.back()->Name), L"after.txt");
  for (size_t i = 0; i + 1 < members.size(); ++i) EXPECT_EQ(members[i]->Valid, 0u);
}

// No selection or list, a list of the wrong kind, an archive gone since it
// was bound, a new archive: a failure status, nothing listed, the
// statistics not filled, the stream closed.
TEST_F(ListTest, AListingThatCannotRunFailsWithNothingFilled) {
  Bind({Sized("a", '5', 1, 1), Sized("b", '5', 1, 1)});
  OwnedList wrongKind(KZ_LIST_NAMES);
  const std::wstring fresh = kztest::Wide((dir_ / "new.lzh").string());
  const struct {
    const char* what;
    std::function<HRESULT()> run;
    bool invalidArgument, namesTheArchive;
  } cases[] = {
      {"no selection", [&] { return archiver_.ListArchive(nullptr, 0, 0, members_.get(), &info_); }, true, false},
      {"no list", [&] { return archiver_.ListArchive(all_.get(), 0, 0, nullptr, &info_); }, true, false},
      {"a names list", [&] { return archiver_.ListArchive(all_.get(), 0, 0, wrongKind.get(), &info_); }, false, false},
      {"vanished", [&] { std::filesystem::remove(dir_ / "a.lzh"); return List(&info_); }, false, true},
      {"new archive", [&] { EXPECT_EQ(archiver_.InitArchive(fresh.c_str(), 0, 0), 0); return List(&info_); },
       false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const HRESULT hr = c.run();
    EXPECT_LT(hr, 0);
    EXPECT_EQ(archiver_.Status, hr);
    if (c.invalidArgument) {
      EXPECT_EQ(hr, kz::E_Invalidarg);
      EXPECT_EQ(archiver_.ErrorFileName, nullptr);
    }
    if (c.namesTheArchive) {
      ASSERT_NE(archiver_.ErrorFileName, nullptr);
      EXPECT_EQ(std::wstring(archiver_.ErrorFileName), std::wstring(archiver_.ArchivePath.c_str()));
    }
    EXPECT_EQ(members_.get()->Count + wrongKind.get()->Count, 0u);
    EXPECT_TRUE(InfoUntouched());
    EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
  }
}

// Any read of a listing can fail (the library's own reads included): the
// listing is then either complete or ends with a failure status, never cut
// short in silence, and the stream is closed.
TEST_F(ListTest, EveryFailingReadStopsTheListing) {
  Bind({Sized("a", '5', 3, 3, 1), Sized("b", '5', 3, 3, 2)});
  kz::fault::Arm(1000000, kz::fault::kRead | kz::fault::kOpen);
  ASSERT_EQ(List(nullptr), 0);
  const uint64_t calls = kz::fault::CallsSeen();
  kz::fault::Disarm();
  for (uint64_t n = 1; n <= calls; ++n) {
    SCOPED_TRACE(n);
    OwnedList list(KZ_LIST_MEMBERS);
    kz::fault::Arm(n, kz::fault::kRead | kz::fault::kOpen);
    const HRESULT hr = archiver_.ListArchive(all_.get(), 0, 0, list.get(), nullptr);
    kz::fault::Disarm();
    if (hr == 0) {
      EXPECT_EQ(list.get()->Count, 2u);
    } else {
      EXPECT_LT(hr, 0);
      EXPECT_EQ(archiver_.Status, hr);
    }
    EXPECT_FALSE(archiver_.ArchiveStream.IsOpen());
  }
}

}  // namespace
