// Temporary file names, the same on both systems.
#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

#include <ctime>
#include <random>

#include "platform/fs.h"

namespace kz::fs {

namespace {

uint64_t ProcessId() {
#ifdef _WIN32
  return GetCurrentProcessId();
#else
  return static_cast<uint64_t>(getpid());
#endif
}

}  // namespace

std::wstring TempFileName() {
  // Seeded per thread and process, so that two engines writing beside the
  // same archive rarely collide; a collision only costs a retry.
  static thread_local std::mt19937_64 rng(std::random_device{}() ^ (ProcessId() << 32) ^
                                          static_cast<uint64_t>(time(nullptr)));
  static const wchar_t kLetters[] = L"abcdefghijklmnopqrstuvwxyz0123456789";
  std::wstring name = L".kz";
  for (int i = 0; i < 10; ++i) name.push_back(kLetters[rng() % 36]);
  name += L".tmp";
  return name;
}

}  // namespace kz::fs
