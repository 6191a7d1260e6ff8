// Encoder throughput (MB/s of source) per method and level. The corpus is
// the directory named by KZ_BENCH_CORPUS (see bench/encode_vs_peers.sh,
// which builds it); without it, synthetic text and noise stand in.
//
//   KZ_BENCH_CORPUS=/tmp/corpus ./bench_encode --benchmark_filter='lh5/2'
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "archiver/lha_archiver.h"

namespace {

namespace fs = std::filesystem;

struct Corpus {
  std::vector<fs::path> Files;
  uint64_t Bytes = 0;
  fs::path Scratch;  // where the packed output (and a synthetic corpus) goes
  ~Corpus() {
    std::error_code ec;
    if (!Scratch.empty()) fs::remove_all(Scratch, ec);
  }
};

void WriteSynthetic(const fs::path& dir) {
  static const char* const kWords[] = {"archive ", "member ", "header ", "level ", "huffman ",
                                       "window ", "match ", "literal ", "block\n", "return ",
                                       "static ", "{ ", "} ", "0x1F; ", "int ", "the "};
  std::mt19937 rng(1);
  std::ofstream text(dir / "text.txt", std::ios::binary);
  for (size_t n = 0; n < (8u << 20);) {
    std::string w = kWords[rng() % 16];
    if (rng() % 5 == 0) w = std::to_string(rng() % 100000) + " ";
    text << w;
    n += w.size();
  }
  std::ofstream noise(dir / "noise.bin", std::ios::binary);
  for (size_t n = 0; n < (1u << 20); ++n) noise.put(static_cast<char>(rng()));
}

const Corpus& GetCorpus() {
  static Corpus corpus = [] {
    Corpus c;
    c.Scratch = fs::temp_directory_path() / ("kz-bench-encode-" + std::to_string(std::random_device{}()));
    fs::create_directories(c.Scratch);
    fs::path dir;
    if (const char* env = std::getenv("KZ_BENCH_CORPUS"); env != nullptr && *env != 0) {
      dir = env;
    } else {
      dir = c.Scratch / "synthetic";
      fs::create_directories(dir);
      WriteSynthetic(dir);
    }
    for (const auto& e : fs::directory_iterator(dir)) {
      if (e.is_regular_file()) {
        c.Files.push_back(e.path());
        c.Bytes += e.file_size();
      }
    }
    std::sort(c.Files.begin(), c.Files.end());
    return c;
  }();
  return corpus;
}

std::wstring Wide(const fs::path& p) { return p.wstring(); }

// One archiver, buffers allocated once as in a compression run; each
// iteration encodes every corpus file as one member.
void EncodeCorpus(benchmark::State& state, uint32_t selector, uint32_t level) {
  const Corpus& corpus = GetCorpus();
  KzLhaArchiver a;
  if (a.Init() < 0 || a.SetOptions(KZ_OPT_METHOD, selector, 0) < 0 ||
      a.AllocEncodeBuffers() < 0) {
    state.SkipWithError("archiver set-up failed");
    return;
  }
  a.CompressionLevel = level;
  const std::wstring out = Wide(corpus.Scratch / "packed.bin");
  uint64_t packed = 0;
  for (auto _ : state) {
    packed = 0;
    for (const fs::path& file : corpus.Files) {
      a.SourceStream.Open(Wide(file).c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0);
      a.OutputStream.Create(out.c_str(), GENERIC_WRITE, 1, CREATE_ALWAYS, FILE_ATTRIBUTE_ARCHIVE, 0);
      a.Transfer = TransferRecord{};
      a.SourceStream.GetSize(&a.Transfer.OriginalSize);
      switch (selector) {
        case 14: a.Lha6Encoder.Encode(); break;
        case 15: a.Lha7Encoder.Encode(); break;
        default: a.Lha5Encoder.Encode(); break;
      }
      // A member that outgrew its source is stored: count it at its size.
      packed += a.Transfer.StoreFallback ? a.Transfer.OriginalSize : a.Transfer.PackedSize;
      a.SourceStream.Close();
      a.OutputStream.Close();
    }
    if (a.Status < 0) {
      state.SkipWithError("encoding failed");
      break;
    }
  }
  a.FreeEncodeBuffers();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * corpus.Bytes));
  state.counters["ratio%"] = corpus.Bytes ? 100.0 * static_cast<double>(packed) / corpus.Bytes : 0;
}

const int kRegistered = [] {
  for (uint32_t selector : {13u, 14u, 15u}) {
    for (uint32_t level = 1; level <= 4; ++level) {
      const std::string name = "Encode/lh" + std::to_string(selector - 8) + "/" + std::to_string(level);
      benchmark::RegisterBenchmark(name.c_str(), EncodeCorpus, selector, level)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
  return 0;
}();

}  // namespace

BENCHMARK_MAIN();
