// The update slots: a new archive from an item list (complete with its end
// marker, or absent), items appended to a prepared output, and the end
// marker with its report of an archive left empty.
#include <gtest/gtest.h>

#include <filesystem>

#include "container/update_harness.h"
#include "support/archive_builder.h"

#ifndef _WIN32
#include <dlfcn.h>
#endif

namespace {

namespace fs = std::filesystem;
using kztest::Bytes;
using kztest::UpdateRig;

#ifndef _WIN32
// Sources whose path contains this text report no attributes (see the
// stand-in for GetFileAttributesW below).
std::wstring gAttributesFailFor;
#endif

using kztest::OwnedList;

class ArchiveUpdateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KzLhaArchiver& a = rig_.A();
    a.ArchivePath = kztest::Wide(rig_.ArchivePath().string()).c_str();
    base_ = kztest::Wide((rig_.Dir() / "src").string());
    a.BasePathSetting = reinterpret_cast<intptr_t>(base_.c_str());
    fs::create_directories(rig_.Dir() / "src");
  }

  bool ArchiveExists() const { return fs::exists(rig_.ArchivePath()); }
  Bytes ArchiveBytes() const { return kztest::ReadFile(rig_.ArchivePath()); }
  void ExpectLhasaReproduces(const std::vector<std::pair<std::string, Bytes>>& files) {
    kztest::ExpectLhasaReproduces(rig_.ArchivePath(), rig_.Dir() / "lhasa", files);
  }

  UpdateRig rig_;
  std::wstring base_;
};

TEST_F(ArchiveUpdateTest, OnlyDirectoriesGiveAnArchiveOfOneZeroByte) {
  OwnedList items;
  for (const char* d : {"d1", "d2"}) {
    fs::create_directories(rig_.Dir() / "src" / d);
    items.Add(rig_.Dir() / "src" / d);
  }
  EXPECT_EQ(rig_.A().CreateArchive(items.get()), 0);
  EXPECT_EQ(rig_.A().Status, 0);
  EXPECT_EQ(ArchiveBytes(), Bytes{0});
}

// A status of ARC_E_PARTIAL (the library's to give) keeps the archive as
// written so far, without end marker. Here the host's progress callback
// makes the library record it while the second file is being read.
struct PartialProbe {
  KzArchiver* A = nullptr;
  int Calls = 0;
  static int KZ_CALL Progress(void* context, const wchar_t*, uint64_t, uint64_t) {
    auto* p = static_cast<PartialProbe*>(context);
    if (++p->Calls == 2) p->A->SetError(kz::ARC_E_PARTIAL, nullptr);
    return 0;
  }
};

TEST_F(ArchiveUpdateTest, PartialStatusKeepsTheArchive) {
  // Each file fits the first fill of the window: one progress report each.
  const Bytes a = kztest::TextBytes(10000, 4);
  OwnedList items;
  items.Add(rig_.Source("a.txt", a));
  items.Add(rig_.Source("b.txt", kztest::TextBytes(10000, 5)));
  items.Add(rig_.Source("c.txt", kztest::TextBytes(10000, 6)));
  PartialProbe probe{&rig_.A()};
  KzCallbacks callbacks{};
  callbacks.Size = sizeof callbacks;
  callbacks.Progress = &PartialProbe::Progress;
  rig_.A().SetCallbacks(&callbacks, &probe);
  EXPECT_EQ(rig_.A().CreateArchive(items.get()), kz::ARC_E_PARTIAL);
  ASSERT_TRUE(ArchiveExists());
  const auto members = kztest::RawMembers(rig_.ArchivePath());
  ASSERT_GE(members.size(), 2u);
  EXPECT_EQ(members[0].Name, L"a.txt");
  EXPECT_EQ(members[0].Header.Crc, kztest::Crc16(a));
  EXPECT_EQ(members[1].Name, L"b.txt");
  EXPECT_EQ(members[1].Header.PackedSize, 0u);  // the failing member's placeholder
  for (const auto& m : members) EXPECT_NE(m.Name, L"c.txt");
}

// CreateArchive takes every item, whatever its skip mark (AppendItems
// passes marked ones over, as the update tests show); a failed new archive
// is not left behind.
TEST_F(ArchiveUpdateTest, CreateArchiveTakesMarkedItemsAndLeavesNoArchiveOnFailure) {
  OwnedList items;
  items.Add(rig_.Dir() / "src" / "not-there.txt").SkipMark = 1;
  items.Add(rig_.Source("b.txt", kztest::TextBytes(8000, 7)));
  EXPECT_EQ(rig_.A().CreateArchive(items.get()), static_cast<HRESULT>(0x80070002));
  EXPECT_FALSE(ArchiveExists());
}

TEST_F(ArchiveUpdateTest, ReadOnlySourceKeepsItsAttributeByte) {
  const fs::path src = rig_.Source("ro.txt", kztest::TextBytes(500, 10));
  fs::permissions(src, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                  fs::perm_options::remove);
  OwnedList items;
  items.Add(src);
  EXPECT_EQ(rig_.A().CreateArchive(items.get()), 0);
  const auto members = kztest::RawMembers(rig_.ArchivePath());
  ASSERT_EQ(members.size(), 1u);
  EXPECT_EQ(members[0].Header.Attributes, 0x21u);
}

#ifndef _WIN32
// A source whose attributes cannot be read is still compressed, stored as a
// plain file with the archive bit (0x20), not with the failure value's
// low byte (0xFF, which would claim a directory).
TEST_F(ArchiveUpdateTest, SourceWithoutReadableAttributesIsStoredAsAPlainFile) {
  const Bytes content = kztest::TextBytes(5000, 11);
  OwnedList items;
  items.Add(rig_.Source("no-attributes.txt", content));
  gAttributesFailFor = L"no-attributes.txt";
  const HRESULT hr = rig_.A().CreateArchive(items.get());
  gAttributesFailFor.clear();
  EXPECT_EQ(hr, 0);
  const auto members = kztest::RawMembers(rig_.ArchivePath());
  ASSERT_EQ(members.size(), 1u);
  EXPECT_EQ(members[0].Header.Attributes, 0x20u);
  ExpectLhasaReproduces({{"no-attributes.txt", content}});
}
#endif

}  // namespace

#ifndef _WIN32
// Stand-in for the platform's GetFileAttributesW in this test program: the
// engine's calls land here and go on to the library's, except for the
// sources a test names.
DWORD GetFileAttributesW(LPCWSTR path) {
  using Real = DWORD (*)(LPCWSTR);
  static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "_Z18GetFileAttributesWPKw"));
  if (!gAttributesFailFor.empty() && path != nullptr &&
      std::wstring(path).find(gAttributesFailFor) != std::wstring::npos) {
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_FILE_ATTRIBUTES;
  }
  return real(path);
}
#endif
