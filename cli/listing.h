// Member listings: the column table of l and v, and the JSON lines of
// --json. Pure formatting over copies of the engine's records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kzlha/kzlha.h"

namespace kzcli {

// One member as listed: the engine's record (its pointers are not to be
// followed once the list is freed) and the name it pointed at.
struct Member {
  std::wstring name;  // backslash-separated, as the engine gives it
  LhaHeader header{};
};

struct Totals {
  uint64_t members = 0;
  uint64_t packed = 0;
  uint64_t original = 0;
  uint32_t ratioPercent = 0;
};

// Bytes of compressed data. A level-1 member's stored packed size also
// counts its extended headers; listings show the data alone, as other LHA
// tools do.
uint64_t PackedDataSize(const LhaHeader& header);

// Totals as the engine reported them over `members` (extended headers taken
// out again), or summed here when it could not report them.
Totals TotalsFromInfo(const ArchiveInfo& info, const std::vector<Member>& members);
Totals TotalsFromMembers(const std::vector<Member>& members);

const char* OsName(uint32_t hostOs);
std::string MethodText(const LhaHeader& header);   // "-lh5-"
std::string AttributeText(uint32_t attributes);   // "d---a"
std::string RatioText(uint64_t packed, uint64_t original);  // " 45.2%"
std::string LocalTimeText(int64_t unixSeconds);   // "2003-01-02 03:04:05"
std::string UtcIsoTime(int64_t unixSeconds);      // "2003-01-02T03:04:05Z"
// The name as shown: '/' separators, escapes, "dir/" for directories,
// "link -> target" for symbolic links.
std::string ListedName(const Member& member);

// The table of l (verbose = false) or v (verbose = true), totals included.
std::string FormatTable(const std::vector<Member>& members, const Totals& totals, bool verbose);

// One JSON object per line: a "member" object per member, then "totals".
std::string FormatJsonMember(const Member& member);
std::string FormatJsonTotals(const Totals& totals, const std::string& archive);

}  // namespace kzcli
