// Listing speed: member headers read per second over an archive of 10,000
// members, per header level, and the header search through a stub that
// fills the whole search window.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "archiver/lha_archiver.h"
#include "support/archive_builder.h"

namespace {

constexpr int kMembers = 10000;

// A file in the temporary directory that goes away with the object.
class BenchFile {
 public:
  explicit BenchFile(const kztest::ArchiveBuilder& b)
      : path_(std::filesystem::temp_directory_path() /
              ("kz_bench_list_" + std::to_string(getpid()) + "_" + std::to_string(++count_) +
               ".lzh")) {
    b.WriteTo(path_);
  }
  ~BenchFile() { std::filesystem::remove(path_); }
  std::wstring Wide() const {
    const std::string s = path_.string();
    return std::wstring(s.begin(), s.end());
  }

 private:
  static inline int count_ = 0;
  std::filesystem::path path_;
};

kztest::ArchiveBuilder ManyMembers(int level) {
  kztest::ArchiveBuilder b;
  for (int i = 0; i < kMembers; ++i) {
    kztest::MemberSpec spec{.level = level, .method = "-lh5-",
                            .name = "member-" + std::to_string(i) + ".txt",
                            .packed = kztest::Bytes(64, 0x5A), .originalSize = 100};
    if (level > 0) spec.directory = kztest::Dir("src/module/");
    b.Member(spec);
  }
  b.End();
  return b;
}

void BM_ListMembers(benchmark::State& state) {
  const BenchFile file(ManyMembers(static_cast<int>(state.range(0))));
  KzLhaArchiver archiver;
  if (archiver.Init() < 0 || archiver.InitArchive(file.Wide().c_str(), 0, 0) < 0) {
    state.SkipWithError("cannot open the archive");
    return;
  }
  KzList* selection = KzList::Create(KZ_LIST_NAMES);
  for (auto _ : state) {
    KzList* members = KzList::Create(KZ_LIST_MEMBERS);
    ArchiveInfo info{};
    if (archiver.ListArchive(selection, 0, 0, members, &info) < 0 || members->Count != kMembers) {
      state.SkipWithError("listing failed");
    }
    benchmark::DoNotOptimize(info.TotalPacked);
    KzList::Free(members);
  }
  KzList::Free(selection);
  state.SetItemsProcessed(state.iterations() * kMembers);
  state.SetLabel("headers");
}
BENCHMARK(BM_ListMembers)->ArgName("level")->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

// The longest search: a stub of arbitrary bytes as long as the window allows,
// the first header in its last 32 bytes.
void BM_FindFirstHeaderBehindStub(benchmark::State& state) {
  kztest::ArchiveBuilder b;
  kztest::Bytes stub(131072 - 32, 0);
  uint32_t x = 12345;
  for (auto& byte : stub) {
    x = x * 1103515245u + 12345u;
    byte = static_cast<uint8_t>(x >> 24);
  }
  b.Stub(stub).Stored("f.txt", kztest::Bytes(1, 'x')).End();
  const BenchFile file(b);
  KzLhaArchiver archiver;
  if (archiver.Init() < 0) return;
  for (auto _ : state) {
    if (archiver.InitArchive(file.Wide().c_str(), 0, 0) < 0) state.SkipWithError("not found");
    benchmark::DoNotOptimize(archiver.FirstHeaderPos);
  }
  state.SetBytesProcessed(state.iterations() * 131072);
}
BENCHMARK(BM_FindFirstHeaderBehindStub)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
