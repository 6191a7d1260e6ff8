// The fuzz targets hand each input to the engine as a file: one file per
// fuzzing process, rewritten for every input and removed at exit.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kzfuzz {

// /tmp/<stem>_<pid><extension>; a process has one target, so the first
// call fixes the name.
inline const std::string& InputPath(const char* stem, const char* extension) {
  static const std::string path = std::string("/tmp/") + stem + "_" + std::to_string(getpid()) + extension;
  [[maybe_unused]] static const int removal = std::atexit([] { std::remove(path.c_str()); });
  return path;
}

inline bool WriteInput(const std::string& path, const uint8_t* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}

}  // namespace kzfuzz
