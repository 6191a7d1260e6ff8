#include "container/update_harness.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

namespace kztest {

namespace fs = std::filesystem;

void ExpectLhasaReproduces(const fs::path& archive, const fs::path& into,
                           const std::vector<std::pair<std::string, Bytes>>& files) {
  if (!HaveTool("lhasa")) return;
  fs::create_directories(into);
  const CommandResult r = Run({"lhasa", "xfqw=" + into.string(), archive.string()});
  ASSERT_EQ(r.ExitCode, 0) << r.Out << r.Err;
  for (const auto& [name, content] : files) EXPECT_EQ(ReadFile(into / name), content) << name;
}

int KZ_CALL ProgressProbe::Progress(void* context, const wchar_t*, uint64_t done, uint64_t) {
  auto* p = static_cast<ProgressProbe*>(context);
  ++p->Calls;
  p->LastDone = done;
  return p->StopAtCall != 0 && p->Calls >= p->StopAtCall ? 1 : 0;
}

void ProgressProbe::Attach(KzArchiver& a) {
  KzCallbacks callbacks{};
  callbacks.Size = sizeof callbacks;
  callbacks.Progress = &ProgressProbe::Progress;
  a.SetCallbacks(&callbacks, this);
}

UpdateRig::UpdateRig() {
  if (archiver_.Init() < 0 || archiver_.AllocEncodeBuffers() < 0) {
    throw std::runtime_error("archiver set-up failed");
  }
}

UpdateRig::~UpdateRig() {
  kz::fault::Disarm();
  archiver_.SourceStream.Close();
  archiver_.OutputStream.Close();
  archiver_.FreeEncodeBuffers();
}

fs::path UpdateRig::Source(const std::string& name, const Bytes& content) {
  const fs::path p = dir_ / "src" / name;
  WriteFile(p, content);
  return p;
}

void UpdateRig::CreateOutput() {
  const std::wstring out = Wide(ArchivePath().string());
  if (!archiver_.OutputStream.Create(out.c_str(), GENERIC_READ | GENERIC_WRITE, 1, CREATE_ALWAYS,
                                     FILE_ATTRIBUTE_ARCHIVE, 0)) {
    throw std::runtime_error("cannot create the output archive");
  }
}

int32_t UpdateRig::Compress(const std::string& archiveName, const fs::path& source,
                            uint8_t attributes) {
  const PathString name(Wide(archiveName).c_str());
  const PathString path(Wide(source.string()).c_str());
  return archiver_.CompressFile(name, path, attributes);
}

void UpdateRig::FinishOutput() {
  uint32_t n = 0;
  archiver_.OutputStream.Seek(0, 2, 0);
  archiver_.OutputStream.Write("\0", 1, &n, 0);
  archiver_.OutputStream.Close();
}

}  // namespace kztest
