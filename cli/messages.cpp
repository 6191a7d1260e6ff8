#include "cli/messages.h"

#include <cstdio>

namespace kzcli {

namespace {

struct StatusEntry {
  uint32_t Status;
  const char* Text;
};

// The engine's own codes; system errors (0x8007xxxx) go through the Win32
// table below, so E_CRC is found there as error 23.
constexpr StatusEntry kStatusTexts[] = {
    {static_cast<uint32_t>(KZ_E_NOTIMPL), "operation not implemented"},
    {static_cast<uint32_t>(KZ_E_ABORT), "interrupted"},
    {static_cast<uint32_t>(KZ_E_FAIL), "unspecified failure"},
    {static_cast<uint32_t>(KZ_ARC_E_NOTSUPPORTED), "operation not supported for LHA archives"},
    {static_cast<uint32_t>(KZ_ARC_E_PARTIAL), "archive only partly written"},
    {static_cast<uint32_t>(KZ_ARC_E_EMPTYARCHIVE), "archive would hold no members"},
    {static_cast<uint32_t>(KZ_ARC_E_NOARCHIVE), "not an LHA archive"},
    {static_cast<uint32_t>(KZ_ARC_E_UNKNOWNMETHOD), "unknown compression method"},
    {static_cast<uint32_t>(KZ_ARC_E_BADTABLE), "corrupt compressed data (bad code table)"},
    {static_cast<uint32_t>(KZ_ARC_E_UNSAFEPATH), "unsafe path (would leave the destination); skipped"},
    {static_cast<uint32_t>(KZ_ARC_E_TOOLARGE), "file too large for an LHA member (4 GiB or more)"},
    {static_cast<uint32_t>(KZ_ARC_E_BADHEADER), "damaged member header"},
};

struct Win32Entry {
  uint16_t Code;
  const char* Text;
};

constexpr Win32Entry kWin32Texts[] = {
    {1, "invalid function"},
    {2, "no such file or directory"},
    {3, "path not found"},
    {4, "too many open files"},
    {5, "permission denied"},
    {6, "invalid handle"},
    {8, "out of memory"},
    {14, "out of memory"},
    {15, "drive not found"},
    {17, "cannot move to another device"},
    {18, "no more files"},
    {19, "medium is write-protected"},
    {21, "device not ready"},
    {23, "CRC error"},
    {25, "seek error"},
    {29, "write fault"},
    {30, "read fault"},
    {32, "file in use by another process"},
    {33, "file region locked"},
    {38, "unexpected end of file"},
    {39, "disk full"},
    {50, "operation not supported"},
    {80, "file exists"},
    {82, "cannot create the file"},
    {87, "invalid argument"},
    {112, "disk full"},
    {122, "buffer too small"},
    {123, "invalid file name"},
    {145, "directory not empty"},
    {161, "bad path name"},
    {183, "file already exists"},
    {206, "file name too long"},
    {267, "not a directory"},
    {995, "operation aborted"},
    {1117, "input/output error"},
    {1392, "file is corrupt"},
    {1920, "file cannot be accessed"},
    {1921, "too many levels of symbolic links"},
    {4390, "not a reparse point"},
};

}  // namespace

const char* Win32ErrorText(uint32_t code) {
  for (const Win32Entry& e : kWin32Texts) {
    if (e.Code == code) return e.Text;
  }
  return nullptr;
}

std::string StatusText(HRESULT status) {
  const auto value = static_cast<uint32_t>(status);
  if (value == 0) return "success";
  for (const StatusEntry& e : kStatusTexts) {
    if (e.Status == value) return e.Text;
  }
  if ((value & 0xFFFF0000u) == 0x80070000u) {
    const uint32_t code = value & 0xFFFFu;
    if (const char* text = Win32ErrorText(code)) return text;
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "system error %u", static_cast<unsigned>(code));
    return buffer;
  }
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "error 0x%08X", static_cast<unsigned>(value));
  return buffer;
}

}  // namespace kzcli
