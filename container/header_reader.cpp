// Member header reader: levels 0 and 1 (checksummed, name in the base
// header, optional extended headers) and level 2 (total length, names only
// in extended headers). Every scan over an archive is a loop over
// ReadMemberHeader.
#include <cstring>

#include "archiver/lha_archiver.h"

namespace {

constexpr uint32_t kNameCapacity = 1024;  // characters, terminator included
constexpr uint32_t kTextCapacity = 1023;  // what a conversion may write
constexpr uint8_t kExtFileName = 0x01;
constexpr uint8_t kExtDirectory = 0x02;

uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

uint32_t Le32(const uint8_t* p) { return Le16(p) | (static_cast<uint32_t>(Le16(p + 2)) << 16); }

// The method digit: the character at offset 5 as a signed character, less '0'.
uint32_t MethodDigit(uint8_t c) {
  return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)) - '0');
}

uint32_t MethodCodeOf(uint32_t method) {
  static constexpr uint32_t kCodes[8] = {1, 15, 16, 17, 18, 19, 20, 21};
  return method < 8 ? kCodes[method] : 22;
}

uint32_t VersionNeededOf(uint32_t method) {
  if (method >= 7) return 27;
  if (method == 6) return 26;
  if (method == 1) return 13;
  return 21;
}

uint32_t HostOsOf(uint8_t osId) {
  switch (osId) {
    case 'M': return 1;
    case '2': return 2;
    case 'w': return 3;
    case 'U': return 5;
    case 'm': return 6;
    default: return 0;
  }
}

// Reads exactly `length` bytes. A short read is a failure too: it means the
// header runs past the end of the file, reported as ERROR_HANDLE_EOF.
int32_t ReadExact(KzArchiver& a, void* buffer, uint32_t length) {
  uint32_t got = 0;
  const BOOL read = a.ArchiveStream.Read(buffer, length, &got, 0);
  if (read && got == length) return 0;
  if (read) SetLastError(ERROR_HANDLE_EOF);
  return a.SetSystemError(a.ArchiveStream.GetName());
}

int32_t SeekTo(KzArchiver& a, uint64_t offset) {
  if (a.ArchiveStream.Seek(static_cast<int64_t>(offset), 0, 0)) return 0;
  return a.SetSystemError(a.ArchiveStream.GetName());
}

// Extended headers of size 1 or 2 would give a negative data length, and
// names longer than the 1023-byte buffers would overflow them: refused
// before anything is read.
int32_t RefuseExtension(KzArchiver& a) {
  return a.SetError(kz::ARC_E_BADHEADER, a.ArchiveStream.GetName());
}

// Reads `length` bytes of extended-header text into a zeroed buffer and
// turns the 0xFF component separators into backslashes.
int32_t ReadExtensionText(KzArchiver& a, char* text, uint32_t length) {
  std::memset(text, 0, kNameCapacity);
  if (int32_t r = ReadExact(a, text, length); r != 0) return r;
  for (char* p = text; *p != '\0'; ++p) {
    if (static_cast<uint8_t>(*p) == 0xFF) *p = '\\';
  }
  return 0;
}

uint32_t ByteSum(const uint8_t* p, size_t n) {
  uint32_t sum = 0;
  for (size_t i = 0; i < n; ++i) sum += p[i];
  return sum;
}

// LHA writers sum every header byte that byte 0 counts, including the
// extended area some of them put behind a level-0 CRC; a level-0 header
// whose checksum fails over the bytes up to the CRC gets this second
// chance, so that such archives do not end at their first member.
bool ExtendedAreaSumMatches(KzArchiver& a, const uint8_t* fixed, uint32_t sumToCrc,
                            uint32_t bytesRead) {
  const uint32_t declared = fixed[0] + 2u;
  if (fixed[20] != 0 || declared <= bytesRead) return false;
  uint8_t extra[256];
  uint32_t got = 0;
  if (!a.ArchiveStream.Read(extra, declared - bytesRead, &got, 0) || got != declared - bytesRead) {
    return false;
  }
  return static_cast<uint8_t>(sumToCrc + ByteSum(extra, got)) == fixed[1];
}

// Some writers (Amiga LhA among them) leave the separator off the end of a
// directory extension; its last component is a directory all the same, so
// it is terminated here rather than dropped as a file name would be.
void TerminateDirectory(wchar_t* directory) {
  const size_t length = wcslen(directory);
  if (length == 0 || length >= kTextCapacity || directory[length - 1] == L'\\') return;
  directory[length] = L'\\';
  directory[length + 1] = L'\0';
}


// The chain of extended headers from its first size on: file-name and
// directory texts go into their buffers (fileName null: level 1, where the
// name comes from the base header), every other type is seeked over.
// `total` receives the sum of all sizes. A failed read of a type or of a
// next size reads as 0, recorded, and ends the chain as a size of 0 does.
int32_t ReadExtensions(KzLhaArchiver& a, uint16_t firstSize, char* fileName, char* directory,
                       uint32_t& total) {
  total = firstSize;
  for (uint32_t size = firstSize; size != 0; total += size) {
    if (size < 3) return RefuseExtension(a);
    const uint8_t type = a.ReadHeaderByte();
    char* text = type == kExtDirectory ? directory : type == kExtFileName ? fileName : nullptr;
    if (text != nullptr) {
      if (size - 3 > kTextCapacity) return RefuseExtension(a);
      if (int32_t r = ReadExtensionText(a, text, size - 3); r != 0) return r;
    } else if (!a.ArchiveStream.Seek(size - 3, 1, 0)) {
      return a.SetSystemError(a.ArchiveStream.GetName());
    }
    size = a.ReadHeaderWord();
  }
  return 0;
}

}  // namespace

uint8_t KzLhaArchiver::ReadHeaderByte() {
  uint8_t value = 0;
  if (ReadExact(*this, &value, 1) != 0) return 0;
  return value;
}

uint16_t KzLhaArchiver::ReadHeaderWord() {
  uint8_t bytes[2] = {};
  if (ReadExact(*this, bytes, 2) != 0) return 0;
  return Le16(bytes);
}

int32_t KzLhaArchiver::ReadMemberHeader(LhaHeader& record) {
  record.HeaderPos = NextHeaderPos;
  ArchiveStream.Seek(static_cast<int64_t>(NextHeaderPos), 0, 0);
  uint8_t fixed[21] = {};
  uint32_t got = 0;
  if (!ArchiveStream.Read(fixed, sizeof fixed, &got, 0)) return SetSystemError(ArchiveStream.GetName());
  if (got == 0 || fixed[0] == 0) return 1;
  const int32_t result = fixed[20] < 2 ? ReadHeaderLevel01(NextHeaderPos, record)
                                       : ReadHeaderLevel2(NextHeaderPos, record);
  NextHeaderPos += record.PackedSize + record.HeaderLength;
  NormalizeName(record.Name, kNameCapacity);
  if (record.Name[0] == L'\0') record.Valid = 0;
  record.RawHeaderLength = record.HeaderLength;
  return result;
}

int32_t KzLhaArchiver::ReadHeaderLevel01(uint64_t headerPos, LhaHeader& record) {
  // Base header, name and trailer go into one buffer: 22 + 255 + 5 bytes.
  uint8_t header[22 + 255 + 5];
  if (int32_t r = SeekTo(*this, headerPos); r != 0) return r;
  if (int32_t r = ReadExact(*this, header, 22); r != 0) return r;
  const uint32_t n = header[21];
  const uint32_t level = header[20];
  char name[kNameCapacity] = {};
  if (int32_t r = ReadExact(*this, name, n); r != 0) return r;
  std::memcpy(header + 22, name, n);
  const uint32_t trailer = level == 1 ? 5 : 2;
  if (int32_t r = ReadExact(*this, header + 22 + n, trailer); r != 0) return r;
  const uint8_t* tail = header + 22 + n;

  const uint32_t sum = ByteSum(header + 2, 20 + n + trailer);
  if (static_cast<uint8_t>(sum) != header[1] &&
      !ExtendedAreaSumMatches(*this, header, sum, 22 + n + trailer)) {
    return 1;
  }

  record.Valid = 1;
  record.PackedSize = Le32(header + 7);
  record.OriginalSize = Le32(header + 11);
  record.TimeStamp = Le32(header + 15);
  record.Attributes = header[19];
  record.NameLength = n;
  record.Crc = Le16(tail);
  record.Method = MethodDigit(header[5]);
  record.MethodCode = MethodCodeOf(record.Method);
  record.HostOs = level == 0 ? 1 : HostOsOf(tail[2]);
  record.VersionNeeded = VersionNeededOf(record.Method);
  ConvertHeaderName(name, record.Name, kTextCapacity);
  record.HeaderLength = header[0] + 2u;

  const uint16_t firstSize = level == 1 ? Le16(tail + 3) : 0;
  if (firstSize == 0) return 0;

  char directory[kNameCapacity] = {};
  uint32_t total = 0;
  if (int32_t r = ReadExtensions(*this, firstSize, nullptr, directory, total); r != 0) return r;

  wchar_t wideDirectory[kNameCapacity] = {};
  ConvertHeaderName(directory, wideDirectory, kTextCapacity);
  TerminateDirectory(wideDirectory);
  // Without a directory left after removing its last component the base
  // name stays as it is.
  if (wideDirectory[0] != L'\0') AssembleMemberName(wideDirectory, record.Name, record.Name);
  record.ExtendedLength = total;
  return 0;
}

int32_t KzLhaArchiver::ReadHeaderLevel2(uint64_t headerPos, LhaHeader& record) {
  uint8_t header[26];
  if (int32_t r = SeekTo(*this, headerPos); r != 0) return r;
  if (int32_t r = ReadExact(*this, header, sizeof header); r != 0) return r;
  record.HeaderLength = Le16(header);
  const uint16_t firstSize = Le16(header + 24);
  if (firstSize == 0) {
    // No name, so the member stays invalid; its data is still stepped over
    // so that the scan resumes at the next header, not inside the data.
    record.PackedSize = Le32(header + 7);
    return 0;
  }

  char fileName[kNameCapacity] = {};
  char directory[kNameCapacity] = {};
  uint32_t total = 0;  // level 2 keeps no total
  if (int32_t r = ReadExtensions(*this, firstSize, fileName, directory, total); r != 0) return r;

  wchar_t wideName[kNameCapacity] = {};
  wchar_t wideDirectory[kNameCapacity] = {};
  ConvertExtendedName(fileName, wideName, kTextCapacity);
  ConvertExtendedName(directory, wideDirectory, kTextCapacity);
  TerminateDirectory(wideDirectory);
  // Should removing the directory's last component leave nothing, the file
  // name alone is kept, as the level-1 reader keeps its base name, rather
  // than losing the member.
  if (wideDirectory[0] == L'\0' || !AssembleMemberName(wideDirectory, wideName, record.Name)) {
    wcsncpy(record.Name, wideName, kTextCapacity);
    record.Name[kTextCapacity] = L'\0';
  }
  if (record.Name[0] == L'\0') return 0;

  const bool isDirectory = header[5] == 'd';
  const uint8_t osId = header[23];
  record.Valid = 1;
  record.Method = isDirectory ? 0 : MethodDigit(header[5]);
  record.MethodCode = MethodCodeOf(record.Method);
  record.PackedSize = Le32(header + 7);
  record.OriginalSize = Le32(header + 11);
  record.TimeStamp = Le32(header + 15);
  record.Attributes = header[19];
  record.NameLength = static_cast<uint32_t>(lstrlenA(fileName));
  record.LibReserved58 = 0;
  record.Crc = Le16(header + 21);
  record.HostOs = HostOsOf(osId);
  if (osId == 'M') record.TimeStamp = ConvertTimeStamp(record.TimeStamp, 1);
  record.VersionNeeded = VersionNeededOf(record.Method);
  if (isDirectory) record.Attributes |= FILE_ATTRIBUTE_DIRECTORY;
  return 0;
}

bool AssembleMemberName(const wchar_t* directory, const wchar_t* fileName, wchar_t* name) {
  PathString parent(directory);
  PathRemoveFileSpecW(parent.data());
  parent.SyncLength();
  if (parent.empty()) return false;

  PathString joined(parent);
  const PathString source(fileName);  // copied first: fileName may be `name`
  const wchar_t* base = PathFindFileNameW(source.c_str());
  if (*base != L'\0') {
    while (*base == L'\\') ++base;
    if (!joined.empty() && joined.c_str()[joined.size() - 1] != L'\\') joined.Append(L'\\');
    joined.Append(base);
  }

  wcsncpy(name, joined.c_str(), kTextCapacity);
  name[kTextCapacity] = L'\0';
  if (name[0] == L'\\') std::memmove(name, name + 1, wcslen(name) * sizeof(wchar_t));
  return true;
}
