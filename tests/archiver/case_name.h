// Test names from the descriptions of table rows.
#pragma once

#include <cctype>
#include <string>

namespace kztest {

inline std::string CaseName(std::string s) {
  for (char& c : s)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return s;
}

}  // namespace kztest
