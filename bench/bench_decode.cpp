// Decoder throughput (MB/s of decoded output), one member at a time through
// DecodeMember, with the archive in the page cache and the output dropped.
//
// Inputs: the benchmark corpus (KZ_BENCH_CORPUS, a directory made by
// shared/bench/make-corpus.sh; else a fresh one in a temporary directory),
// each file packed with jlha as -lh5-, -lh6- and -lh7-; the shared -lh1-
// archives. Run:
//   bench_decode --benchmark_min_time=2
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "archiver/lha_archiver.h"
#include "decode/crc16.h"

namespace {

namespace fs = std::filesystem;

std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// The directory beside the repository that holds the shared inputs.
fs::path Shared() { return fs::path(__FILE__).parent_path().parent_path().parent_path() / "shared"; }

fs::path WorkDir() {
  static fs::path dir = [] {
    fs::path d = fs::temp_directory_path() / ("kz-bench-decode-" + std::to_string(::getpid()));
    fs::create_directories(d);
    return d;
  }();
  return dir;
}

fs::path Corpus() {
  if (const char* env = std::getenv("KZ_BENCH_CORPUS")) return env;
  fs::path made = WorkDir() / "corpus";
  if (!fs::exists(made / "src.txt")) {
    std::string cmd = "bash '" + (Shared() / "bench/make-corpus.sh").string() + "' '" + made.string() + "' >/dev/null";
    if (std::system(cmd.c_str()) != 0) std::fprintf(stderr, "cannot build the corpus\n");
  }
  return made;
}

// An archive of one corpus file packed by jlha with the given method.
fs::path PackedArchive(const std::string& file, int method) {
  fs::path archive = WorkDir() / (file + ".lh" + std::to_string(method) + ".lzh");
  if (!fs::exists(archive)) {
    std::string cmd = "cd '" + Corpus().string() + "' && jlha a1o" + std::to_string(method) + "q '" +
                      archive.string() + "' '" + file + "' >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0) std::fprintf(stderr, "jlha failed for %s\n", file.c_str());
  }
  return archive;
}

// An archiver bound to one archive, its first member's record at hand.
struct Member {
  std::unique_ptr<KzLhaArchiver> Archiver = std::make_unique<KzLhaArchiver>();
  LhaHeader Record{};
  wchar_t Name[1024] = {};
  bool Ok = false;

  explicit Member(const fs::path& archive) {
    KzLhaArchiver& a = *Archiver;
    std::wstring path = Wide(archive.string());
    if (a.Init() < 0 || a.InitArchive(path.c_str(), 0, 0) != 0 || a.AllocDecodeBuffers() != 0) return;
    a.ArchiveStream.Open(path.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0);
    a.NextHeaderPos = a.FirstHeaderPos;
    Record.Name = Name;
    Ok = a.ReadMemberHeader(Record) == 0;
  }
  ~Member() {
    Archiver->ArchiveStream.Close();
    Archiver->FreeDecodeBuffers();
  }
};

void RunDecode(benchmark::State& state, const fs::path& archive) {
  Member m(archive);
  if (!m.Ok) {
    state.SkipWithError("archive not readable");
    return;
  }
  for (auto _ : state) {
    if (m.Archiver->DecodeMember(m.Record) != 0) {
      state.SkipWithError("decode failed");
      return;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * m.Record.OriginalSize));
  state.counters["ratio%"] = 100.0 * static_cast<double>(m.Record.PackedSize) /
                             static_cast<double>(m.Record.OriginalSize ? m.Record.OriginalSize : 1);
}

void RegisterAll() {
  for (int method : {5, 6, 7}) {
    for (const char* file : {"src.txt", "py.txt", "bin.elf", "zeros.bin"}) {
      std::string name = "Decode/lh" + std::to_string(method) + "/" + file;
      benchmark::RegisterBenchmark(name.c_str(), [method, f = std::string(file)](benchmark::State& s) {
        RunDecode(s, PackedArchive(f, method));
      })->Unit(benchmark::kMillisecond);
    }
  }
  for (const char* rel : {"lharc113/long.lzh", "lengths/lh1-2m.lzh"}) {
    std::string name = std::string("Decode/lh1/") + rel;
    benchmark::RegisterBenchmark(name.c_str(), [r = std::string(rel)](benchmark::State& s) {
      RunDecode(s, Shared() / "archives" / r);
    })->Unit(benchmark::kMillisecond);
  }
}

void Crc16(benchmark::State& state) {
  std::vector<uint8_t> data(static_cast<size_t>(state.range(0)));
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
  uint16_t crc = 0;
  for (auto _ : state) {
    crc = kz::UpdateCrc16(crc, data.data(), static_cast<int32_t>(data.size()));
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}
BENCHMARK(Crc16)->Arg(4096)->Arg(65536);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ec;
  fs::remove_all(WorkDir(), ec);
  return 0;
}
