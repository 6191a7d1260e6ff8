// The per-file compression driver: one source file into one member, packed
// or stored, with sizes and CRC in its header; read back by the engine's
// reader and by lhasa.
#include <gtest/gtest.h>

#include <filesystem>

#include "container/update_harness.h"
#include "support/archive_builder.h"

namespace {

namespace fs = std::filesystem;
using kztest::Bytes;
using kztest::ProgressProbe;
using kztest::UpdateRig;

class CompressDriverTest : public ::testing::Test {
 protected:
  void SetUp() override { rig_.CreateOutput(); }

  // Finishes the archive and checks that lhasa reproduces every source.
  void ExpectLhasaReproduces(const std::vector<std::pair<std::string, Bytes>>& files) {
    rig_.FinishOutput();
    kztest::ExpectLhasaReproduces(rig_.ArchivePath(), rig_.Dir() / "lhasa", files);
  }

  // The source is refused with `status`, named, and nothing is written.
  void ExpectRefused(const fs::path& source, int32_t status) {
    EXPECT_EQ(rig_.Compress(source.filename().string(), source), status);
    EXPECT_EQ(rig_.A().Status, status);
    ASSERT_NE(rig_.A().ErrorFileName, nullptr);
    EXPECT_EQ(std::wstring(rig_.A().ErrorFileName), PathString(kztest::Wide(source.string()).c_str()).c_str());
    rig_.A().OutputStream.Close();
    EXPECT_EQ(fs::file_size(rig_.ArchivePath()), 0u);
  }

  UpdateRig rig_;
};

TEST_F(CompressDriverTest, LevelZeroStoresAndReportsProgress) {
  const Bytes text = kztest::TextBytes(150000, 1);
  const auto src = rig_.Source("t.txt", text);
  rig_.A().CompressionLevel = 0;
  ProgressProbe probe;
  probe.Attach(rig_.A());
  EXPECT_EQ(rig_.Compress("t.txt", src), 0);
  EXPECT_EQ(probe.Calls, 3);  // three chunks of up to 64 KiB
  EXPECT_EQ(probe.LastDone, text.size());
  const auto members = kztest::RawMembers(rig_.ArchivePath());
  ASSERT_EQ(members.size(), 1u);
  EXPECT_EQ(members[0].Header.Method, 0u);
  EXPECT_EQ(members[0].Header.PackedSize, text.size());
  EXPECT_EQ(members[0].Header.OriginalSize, text.size());
  EXPECT_EQ(members[0].Header.Crc, kztest::Crc16(text));
  ExpectLhasaReproduces({{"t.txt", text}});
}

// Packed data longer than the source (one byte here) is stored in its place.
// (The encoder's byte-exact tests show ten equal bytes staying packed; the
// update tests show the source time in the header.)
TEST_F(CompressDriverTest, PackedLongerThanTheSourceIsStored) {
  EXPECT_EQ(rig_.Compress("one", rig_.Source("one", kztest::ToBytes("A"))), 0);
  ExpectLhasaReproduces({{"one", kztest::ToBytes("A")}});
  const auto members = kztest::RawMembers(rig_.ArchivePath());
  ASSERT_EQ(members.size(), 1u);
  EXPECT_EQ(members[0].Header.Method, 0u);
  EXPECT_EQ(members[0].Header.PackedSize, 1u);
}

TEST_F(CompressDriverTest, UnopenableSourceWritesNothing) {
  fs::create_directories(rig_.Dir() / "src");  // a missing file, not a missing directory
  ExpectRefused(rig_.Dir() / "src" / "missing.txt", static_cast<int32_t>(0x80070002));
}

// A level-1 header cannot describe 4 GiB: such a source is refused before
// anything is written. (A sparse file: nothing is read.)
TEST_F(CompressDriverTest, SourceOfFourGiBIsRefused) {
#ifdef _WIN32
  GTEST_SKIP() << "a 4 GiB file is not sparse on NTFS without asking";
#endif
  const auto src = rig_.Source("huge.bin", {});
  fs::resize_file(src, uint64_t{1} << 32);
  ExpectRefused(src, kz::ARC_E_TOOLARGE);
}

// A stop while copying stored data or while encoding fails the member: the
// header is left as the placeholder, claiming no data; what was written
// behind it is not a member.
TEST_F(CompressDriverTest, AStopFromProgressFailsTheMember) {
  for (uint32_t level : {0u, 3u}) {
    SCOPED_TRACE(level);
    UpdateRig rig;
    rig.CreateOutput();
    const auto src = rig.Source("t.txt", kztest::TextBytes(300000, 9));
    rig.A().CompressionLevel = level;
    ProgressProbe probe;
    probe.StopAtCall = level == 0 ? 2 : 1;
    probe.Attach(rig.A());
    EXPECT_EQ(rig.Compress("t.txt", src), kz::E_Abort);
    EXPECT_EQ(rig.A().Status, kz::E_Abort);
    rig.FinishOutput();
    const auto members = kztest::RawMembers(rig.ArchivePath());
    ASSERT_GE(members.size(), 1u);
    EXPECT_EQ(members[0].Header.Method, 0u);
    EXPECT_EQ(members[0].Header.PackedSize, 0u);
    EXPECT_EQ(members[0].Header.OriginalSize, 0u);
  }
}

}  // namespace
