// FileStream on this system: reads through the read-ahead window,
// truncation, times, long paths. (Failed opens: enginelib/core_test.)
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "enginelib/file_stream.h"
#include "enginelib/names.h"
#include "platform/fs.h"
#include "platform/local_time.h"
#include "support/engine_harness.h"
#include "support/test_support.h"

namespace {

using kztest::EnginePath;
using kztest::TempDir;

// Reads of every size, positioned or not, across the read-ahead window's
// edges and the file's end (zero-filled), then writes the window must see.
TEST(FileStreamData, ReadAheadDeliversTheFileSeesItsOwnWritesAndTruncates) {
  TempDir dir;
  kztest::Bytes content(40000);
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<uint8_t>(i * 7 + i / 251);
  kztest::WriteFile(dir / "big.bin", content);
  std::wstring path = EnginePath(dir / "big.bin");
  FileStream s;
  ASSERT_TRUE(s.Open(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING, 0, 0));
  struct Step {
    int64_t at;  // -1: where the last read ended
    uint32_t length;
    bool positioned;
  };
  const Step steps[] = {{0, 21, false},     {-1, 1, false},    {-1, 300, false},  {16380, 10, false},
                        {-1, 3000, false},  {100, 5, true},    {-1, 8192, false}, {-1, 8000, false},
                        {16384, 1, false},  {32760, 100, true}, {39990, 20, false}, {39999, 1, false},
                        {40000, 4, false},  {5, 8193, false},  {-1, 7, false},    {0, 16384, false}};
  uint64_t position = 0;
  for (const Step& step : steps) {
    SCOPED_TRACE(testing::Message() << "at " << step.at << ", " << step.length << " bytes");
    const uint64_t from = step.at < 0 ? position : static_cast<uint64_t>(step.at);
    kztest::Bytes got(step.length, 0xEE);
    uint32_t count = 0;
    if (step.positioned) {
      ASSERT_TRUE(s.ReadAt(from, got.data(), step.length, &count));
    } else {
      ASSERT_TRUE(s.Seek(static_cast<int64_t>(from), 0, 0));
      ASSERT_TRUE(s.Read(got.data(), step.length, &count, 0));
      position = from + count;
    }
    const size_t expected = from >= content.size() ? 0 : std::min<size_t>(step.length, content.size() - from);
    ASSERT_EQ(count, expected);
    kztest::Bytes want(content.begin() + static_cast<ptrdiff_t>(std::min<size_t>(from, content.size())),
                       content.begin() + static_cast<ptrdiff_t>(std::min<size_t>(from, content.size()) + expected));
    want.resize(step.length, 0);
    EXPECT_EQ(got, want);
    EXPECT_EQ(s.GetPosition(), position);
  }

  // Read (filling the window), overwrite inside it and past the end, read again.
  uint8_t byte = 0;
  ASSERT_TRUE(s.Seek(10, 0, 0));
  ASSERT_TRUE(s.Read(&byte, 1, nullptr, 0));
  ASSERT_TRUE(s.Seek(12, 0, 0));
  ASSERT_TRUE(s.Write("XY", 2, nullptr, 0));
  ASSERT_TRUE(s.Seek(0, 2, 0));
  ASSERT_TRUE(s.Write("END", 3, nullptr, 0));
  char back[4] = {};
  uint32_t count = 0;
  ASSERT_TRUE(s.ReadAt(12, back, 2, &count));
  EXPECT_EQ(std::string(back, 2), "XY");
  ASSERT_TRUE(s.Seek(-3, 2, 0));
  ASSERT_TRUE(s.Read(back, 4, &count, 0));
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(std::string(back, 3), "END");

  // Before the start or past the largest offset: refused, the position unchanged.
  EXPECT_FALSE(s.Seek(-1, 0, 0));
  EXPECT_FALSE(s.Seek(-40004, 2, 0));
  EXPECT_FALSE(s.Seek(INT64_MAX - 40002, 2, 0));
  EXPECT_EQ(s.GetPosition(), 40003u);

  // Truncation where a relative seek arrived.
  ASSERT_TRUE(s.Seek(5, 0, 0));
  ASSERT_TRUE(s.Seek(3, 1, 0));
  ASSERT_TRUE(s.SetEnd());
  uint64_t size = 0;
  ASSERT_TRUE(s.GetSize(&size));
  EXPECT_EQ(size, 8u);
  s.Close();
  EXPECT_FALSE(s.IsOpen());
  EXPECT_EQ(kztest::ReadFile(dir / "big.bin"), kztest::Bytes(content.begin(), content.begin() + 8));
}

TEST(FileStreamData, DosTimeIsTheLocalTimeOfTheLastWrite) {
  TempDir dir;
  std::wstring path = EnginePath(dir / "t.bin");
  FileStream s;
  ASSERT_TRUE(s.Create(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS, 0, 0));
  const int64_t t = kz::platform::UnixFromLocal({2010, 6, 15, 10, 20, 31});
  ASSERT_TRUE(s.SetModTime(t));
  uint16_t date = 0;
  uint16_t time = 0;
  ASSERT_TRUE(s.GetDosDateTime(&date, &time));
  EXPECT_EQ((uint32_t{date} << 16) | time, kz::UnixToDosTime(t));
  s.Close();
  kz::fs::EntryInfo info;
  ASSERT_TRUE(kz::fs::QueryEntry(path.c_str(), info));
  EXPECT_EQ(info.ModTime, t);
}

TEST(FileStreamPaths, LongPathsWork) {
  TempDir dir;
  // Five components of 60 characters: past 260 characters from any root.
  std::wstring path = EnginePath(dir.path());
  for (wchar_t c : {L'a', L'b', L'c', L'd', L'e'}) path += L"\\" + std::wstring(60, c);
  ASSERT_TRUE(kz::fs::MakeDirectories(path.c_str()));
  path += L"\\member.txt";
  ASSERT_GT(path.size(), 300u);
  FileStream s;
  ASSERT_TRUE(s.Create(path.c_str(), GENERIC_WRITE, 0, CREATE_NEW, 0, 0));
  ASSERT_TRUE(s.Write("long", 4, nullptr, 0));
  s.Close();
  ASSERT_TRUE(s.Open(path.c_str(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0, 0));
  char buf[4];
  uint32_t got = 0;
  ASSERT_TRUE(s.Read(buf, 4, &got, 0));
  EXPECT_EQ(std::string(buf, got), "long");
  s.Close();
  kz::fs::EntryInfo info;
  ASSERT_TRUE(kz::fs::QueryEntry(path.c_str(), info));
  EXPECT_EQ(info.Type, kz::fs::EntryType::File);
  EXPECT_EQ(info.Size, 4u);
  EXPECT_TRUE(kz::fs::RemoveFile(path.c_str()));
}

TEST(FileStreamPaths, AFileBeingReadCanBeRemoved) {
  // POSIX lets a file be unlinked while it is open; the Windows streams
  // share delete access so that the same holds there.
  TempDir dir;
  kztest::WriteFile(dir / "old.bin", std::string("old"));
  std::wstring path = EnginePath(dir / "old.bin");
  FileStream reader;
  ASSERT_TRUE(reader.Open(path.c_str(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0, 0));
  EXPECT_TRUE(kz::fs::RemoveFile(path.c_str()));
  char buf[3];
  uint32_t got = 0;
  EXPECT_TRUE(reader.Read(buf, 3, &got, 0));
  EXPECT_EQ(std::string(buf, got), "old");
  reader.Close();
  EXPECT_FALSE(std::filesystem::exists(dir / "old.bin"));
}

}  // namespace
