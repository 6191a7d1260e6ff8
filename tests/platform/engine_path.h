// Paths of test files in the engine's form (wide, backslashes) on both
// systems.
#pragma once

#include <filesystem>
#include <string>

#include "support/test_support.h"

namespace kztest {

inline std::wstring EnginePath(const std::filesystem::path& p) {
#ifdef _WIN32
  std::wstring w = p.wstring();
#else
  std::wstring w = Wide(p.string());
#endif
  for (wchar_t& c : w) {
    if (c == L'/') c = L'\\';
  }
  return w;
}

}  // namespace kztest
