#include "cli/listing.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "cli/text.h"

namespace kzcli {

namespace {

constexpr uint32_t kDirectoryBit = 0x10;
constexpr uint8_t kSymlinkFlag = 1;

__attribute__((format(printf, 1, 2))) std::string Format(const char* format, ...) {
  char buffer[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  return buffer;
}

bool IsSymlink(const LhaHeader& h) { return (h.LibFlags & kSymlinkFlag) != 0; }
// Level-0/1 "-lhd-" entries may carry a file's attribute byte; the method says it.
bool IsDirectory(const LhaHeader& h) {
  return (h.Attributes & kDirectoryBit) != 0 || h.Method == static_cast<uint32_t>('d' - '0');
}

// A symbolic link's name is "link|target"; split it at the first bar.
void SplitLink(const Member& m, std::wstring* link, std::wstring* target) {
  const size_t bar = IsSymlink(m.header) ? m.name.find(L'|') : std::wstring::npos;
  *link = m.name.substr(0, bar);
  *target = bar == std::wstring::npos ? std::wstring() : m.name.substr(bar + 1);
}

// Column widths, shared by the heading, the rows and the totals line:
// ATTR SYSTEM PACKED ORIGINAL RATIO METHOD [LV] CRC STAMP NAME.
std::string Rule(bool verbose) {
  return std::string("----- ------- ---------- ---------- ------ ------ ") +
         (verbose ? "-- " : "") + "---- ------------------- ------------\n";
}

std::string Heading(bool verbose) {
  return std::string("ATTR  SYSTEM      PACKED   ORIGINAL  RATIO METHOD ") + (verbose ? "LV " : "") +
         "CRC  STAMP               NAME\n" + Rule(verbose);
}

std::string Row(const Member& m, bool verbose) {
  const LhaHeader& h = m.header;
  std::string row = Format("%-5s %-7s %10" PRIu64 " %10" PRIu64 " %6s %-6s ",
                           AttributeText(h.Attributes).c_str(), OsName(h.HostOs), PackedDataSize(h),
                           h.OriginalSize, RatioText(PackedDataSize(h), h.OriginalSize).c_str(),
                           MethodText(h).c_str());
  if (verbose) row += Format("%2u ", static_cast<unsigned>(h.LibHeaderLevel));
  row += Format("%04x %-19s ", h.Crc & 0xFFFFu, LocalTimeText(h.LibModTime).c_str());
  return row + ListedName(m) + "\n";
}

std::string TotalsRow(const Totals& t, bool verbose) {
  std::string row = Format("%-13s %10" PRIu64 " %10" PRIu64 " %6s", "Total", t.packed, t.original,
                           RatioText(t.packed, t.original).c_str());
  // Pad across METHOD, [LV,] CRC and STAMP so the count sits under NAME.
  row += std::string(verbose ? 36 : 33, ' ');
  return row + Format("%" PRIu64 " %s\n", t.members, t.members == 1 ? "member" : "members");
}

}  // namespace

uint64_t PackedDataSize(const LhaHeader& h) {
  return h.ExtendedLength <= h.PackedSize ? h.PackedSize - h.ExtendedLength : 0;
}

Totals TotalsFromInfo(const ArchiveInfo& info, const std::vector<Member>& members) {
  uint64_t extended = 0;
  for (const Member& m : members) extended += m.header.PackedSize - PackedDataSize(m.header);
  Totals t;
  t.members = info.MemberCount;
  t.packed = info.TotalPacked >= extended ? info.TotalPacked - extended : 0;
  t.original = info.TotalOriginal;
  t.ratioPercent = extended == 0 ? info.RatioPercent
                   : t.original != 0 ? static_cast<uint32_t>(t.packed * 100 / t.original) : 0;
  return t;
}

Totals TotalsFromMembers(const std::vector<Member>& members) {
  Totals t;
  t.members = members.size();
  for (const Member& m : members) {
    t.packed += PackedDataSize(m.header);
    t.original += m.header.OriginalSize;
  }
  if (t.original != 0) t.ratioPercent = static_cast<uint32_t>(t.packed * 100 / t.original);
  return t;
}

const char* OsName(uint32_t hostOs) {
  switch (hostOs) {
    case 0: return "generic";
    case 1: return "MS-DOS";
    case 2: return "OS/2";
    case 3: return "Win32";
    case 5: return "Unix";
    case 6: return "Mac";
    default: return "unknown";
  }
}

std::string MethodText(const LhaHeader& header) {
  // Method is the digit of "-lhN-" minus '0'; "-lhd-" arrives as 'd' - '0'
  // from levels 0 and 1, and as 0 with the directory bit from level 2.
  if (header.Method == 0 && IsDirectory(header)) return "-lhd-";
  const uint32_t c = header.Method + '0';
  if (c >= 0x21 && c < 0x7F) return Format("-lh%c-", static_cast<char>(c));
  return "-lh?-";
}

std::string AttributeText(uint32_t attributes) {
  static const struct {
    uint32_t Bit;
    char Letter;
  } kBits[] = {{0x10, 'd'}, {0x01, 'r'}, {0x02, 'h'}, {0x04, 's'}, {0x20, 'a'}};
  std::string out;
  for (const auto& b : kBits) out.push_back((attributes & b.Bit) != 0 ? b.Letter : '-');
  return out;
}

std::string RatioText(uint64_t packed, uint64_t original) {
  if (original == 0) return "  ----";
  const double percent = static_cast<double>(packed) * 100.0 / static_cast<double>(original);
  if (percent >= 1000.0) return " >999%";
  return Format("%5.1f%%", percent);
}

std::string LocalTimeText(int64_t unixSeconds) {
  const auto t = static_cast<time_t>(unixSeconds);
  struct tm parts {};
  if (localtime_r(&t, &parts) == nullptr) return "-";
  char buffer[32];
  if (std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &parts) == 0) return "-";
  return buffer;
}

std::string UtcIsoTime(int64_t unixSeconds) {
  const auto t = static_cast<time_t>(unixSeconds);
  struct tm parts {};
  if (gmtime_r(&t, &parts) == nullptr) return "";
  char buffer[32];
  if (std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) return "";
  return buffer;
}

std::string ListedName(const Member& member) {
  std::wstring link, target;
  SplitLink(member, &link, &target);
  std::string shown = DisplayName(link);
  if (shown.empty()) return "(no name)";
  if (IsSymlink(member.header)) return shown + " -> " + DisplayName(target);
  if (IsDirectory(member.header) && shown.back() != '/') shown += '/';
  return shown;
}

std::string FormatTable(const std::vector<Member>& members, const Totals& totals, bool verbose) {
  std::string out = Heading(verbose);
  for (const Member& m : members) out += Row(m, verbose);
  out += Rule(verbose);
  return out + TotalsRow(totals, verbose);
}

std::string FormatJsonMember(const Member& m) {
  const LhaHeader& h = m.header;
  std::wstring link, target;
  SplitLink(m, &link, &target);
  std::string out = "{\"kind\":\"member\",\"name\":\"" + JsonEscape(DisplayName(link)) + "\"";
  out += Format(",\"packed\":%" PRIu64 ",\"original\":%" PRIu64, PackedDataSize(h), h.OriginalSize);
  out += ",\"method\":\"" + JsonEscape(MethodText(h)) + "\"";
  out += Format(",\"crc\":\"%04x\"", h.Crc & 0xFFFFu);
  out += ",\"mtime\":\"" + UtcIsoTime(h.LibModTime) + "\"";
  out += Format(",\"mtime_unix\":%" PRId64, h.LibModTime);
  out += Format(",\"attributes\":%u", static_cast<unsigned>(h.Attributes));
  out += IsDirectory(h) ? ",\"directory\":true" : ",\"directory\":false";
  if (IsSymlink(h)) out += ",\"link_target\":\"" + JsonEscape(DisplayName(target)) + "\"";
  out += Format(",\"level\":%u", static_cast<unsigned>(h.LibHeaderLevel));
  out += Format(",\"os\":%u,\"os_name\":\"%s\"}\n", static_cast<unsigned>(h.HostOs), OsName(h.HostOs));
  return out;
}

std::string FormatJsonTotals(const Totals& t, const std::string& archive) {
  return "{\"kind\":\"totals\",\"archive\":\"" + JsonEscape(archive) + "\"" +
         Format(",\"members\":%" PRIu64 ",\"packed\":%" PRIu64 ",\"original\":%" PRIu64
                ",\"ratio_percent\":%u}\n",
                t.members, t.packed, t.original, static_cast<unsigned>(t.ratioPercent));
}

}  // namespace kzcli
