/*
 * A Windows host in plain C, written against kzlha.h alone: it loads
 * KzLha73.dll with LoadLibraryW, resolves all 25 exports by name, and lists,
 * tests and extracts archives through them. Every extracted file is checked
 * against its member: size and CRC-16. Data handed to the Data callback
 * (KZ_EXTRACT_TO_CALLBACK) is checked the same way.
 *
 *   host_test KzLha73.dll DESTINATION ARCHIVE...
 */
#include <windows.h>
#include <shellapi.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <kzlha/kzlha.h>

static struct {
  KzCreateObjectFn CreateObject;
  KzFreeObjectFn FreeObject;
  KzSetOptionsFn SetOptions;
  KzInitArchiveFn InitArchive;
  KzListArchiveFn ListArchive;
  KzExtractFilesFn ExtractFiles;
  KzTestArchiveFn TestArchive;
  KzCompressFilesFn CompressFiles;
  KzDeleteFilesFn DeleteFiles;
  KzUnsupportedFn Unsupported[9];
  KzGetLogListFn GetLogList;
  KzGetStatusFn GetStatus;
  KzGetErrorFileNameFn GetErrorFileName;
  KzCreateListFn CreateList;
  KzFreeListFn FreeList;
  KzAddToListFn AddToList;
  KzSetCallbacksFn SetCallbacks;
} api;

static const char* const kUnsupported[9] = {
    "KzCreateDirectory", "KzCreateSfx",        "KzRepairArchive",
    "KzAddRecoveryData", "KzStripRecoveryData", "KzSetFileComments",
    "KzSetArchiveComment", "KzSetFileProperties", "KzRenameFile"};

static int failures = 0;

#define CHECK(cond, ...)                          \
  do {                                            \
    if (!(cond)) {                                \
      ++failures;                                 \
      printf("FAILED %s:%d: ", __FILE__, __LINE__); \
      printf(__VA_ARGS__);                        \
      printf("\n");                               \
    }                                             \
  } while (0)

static FARPROC Resolve(HMODULE module, const char* name, int* resolved) {
  FARPROC p = GetProcAddress(module, name);
  CHECK(p != NULL, "export %s is missing", name);
  if (p != NULL) ++*resolved;
  return p;
}

/* GetProcAddress gives FARPROC; each export has its own pointer type. */
#define BIND(field, name)                              \
  do {                                                 \
    FARPROC p_ = Resolve(module, name, &resolved);     \
    memcpy(&api.field, &p_, sizeof p_);                \
  } while (0)

static int ResolveAll(HMODULE module) {
  int resolved = 0;
  int i;
  BIND(CreateObject, "KzCreateObject");
  BIND(FreeObject, "KzFreeObject");
  BIND(SetOptions, "KzSetOptions");
  BIND(InitArchive, "KzInitArchive");
  BIND(ListArchive, "KzListArchive");
  BIND(ExtractFiles, "KzExtractFiles");
  BIND(TestArchive, "KzTestArchive");
  BIND(CompressFiles, "KzCompressFiles");
  BIND(DeleteFiles, "KzDeleteFiles");
  for (i = 0; i < 9; ++i) BIND(Unsupported[i], kUnsupported[i]);
  BIND(GetLogList, "KzGetLogList");
  BIND(GetStatus, "KzGetStatus");
  BIND(GetErrorFileName, "KzGetErrorFileName");
  BIND(CreateList, "KzCreateList");
  BIND(FreeList, "KzFreeList");
  BIND(AddToList, "KzAddToList");
  BIND(SetCallbacks, "KzSetCallbacks");
  return resolved;
}

/* CRC-16/ARC, bit by bit: independent of the engine's table. */
static uint16_t Crc16(uint16_t crc, const uint8_t* p, size_t n) {
  size_t i;
  int bit;
  for (i = 0; i < n; ++i) {
    crc ^= p[i];
    for (bit = 0; bit < 8; ++bit) crc = (uint16_t)((crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1);
  }
  return crc;
}

static int IsDirectory(const LhaHeader* m) { return (m->Attributes & 0x10) != 0 || m->Method == 'd' - '0'; }

static int FileCrc(const wchar_t* path, uint64_t* size, uint16_t* crc) {
  uint8_t buf[65536];
  DWORD got;
  HANDLE h = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
  if (h == INVALID_HANDLE_VALUE) return 0;
  *size = 0;
  *crc = 0;
  while (ReadFile(h, buf, sizeof buf, &got, NULL) && got > 0) {
    *crc = Crc16(*crc, buf, got);
    *size += got;
  }
  CloseHandle(h);
  return 1;
}

/* Per-member totals of the Data callback. The engine may hand the same
 * record for every member, so what a member should give is copied when its
 * first data arrives. */
typedef struct {
  int started;
  uint64_t headerPos;
  uint64_t expectedSize;
  uint16_t expectedCrc;
  uint64_t bytes;
  uint16_t crc;
  int members;
  int mismatches;
} DataSink;

static void FinishMember(DataSink* sink) {
  if (!sink->started) return;
  if (sink->bytes != sink->expectedSize || sink->crc != sink->expectedCrc) ++sink->mismatches;
  ++sink->members;
  sink->started = 0;
}

static int KZ_CALL OnData(void* context, const LhaHeader* member, const void* data, size_t size) {
  DataSink* sink = (DataSink*)context;
  if (!sink->started || member->HeaderPos != sink->headerPos) {
    FinishMember(sink);
    sink->started = 1;
    sink->headerPos = member->HeaderPos;
    sink->expectedSize = member->OriginalSize;
    sink->expectedCrc = (uint16_t)member->Crc;
    sink->bytes = 0;
    sink->crc = 0;
  }
  sink->crc = Crc16(sink->crc, (const uint8_t*)data, size);
  sink->bytes += size;
  return 0;
}

static void CheckNullHandles(void) {
  int i;
  CHECK(api.SetOptions(NULL, 1, 13, 0) == KZ_E_HANDLE, "KzSetOptions(NULL)");
  CHECK(api.InitArchive(NULL, L"x", 0, 0) == KZ_E_HANDLE, "KzInitArchive(NULL)");
  CHECK(api.ListArchive(NULL, NULL, 0, 0, NULL, NULL) == KZ_E_HANDLE, "KzListArchive(NULL)");
  CHECK(api.ExtractFiles(NULL, NULL, 0, NULL, 0) == KZ_E_HANDLE, "KzExtractFiles(NULL)");
  CHECK(api.TestArchive(NULL, NULL, 0) == KZ_E_HANDLE, "KzTestArchive(NULL)");
  CHECK(api.CompressFiles(NULL, NULL, NULL, 0) == KZ_E_HANDLE, "KzCompressFiles(NULL)");
  CHECK(api.DeleteFiles(NULL, NULL, 0) == KZ_E_HANDLE, "KzDeleteFiles(NULL)");
  for (i = 0; i < 9; ++i) CHECK(api.Unsupported[i](NULL, 0, 0, 0) == KZ_E_HANDLE, "%s(NULL)", kUnsupported[i]);
  CHECK(api.GetLogList(NULL) == NULL, "KzGetLogList(NULL)");
  CHECK(api.GetStatus(NULL) == KZ_E_HANDLE, "KzGetStatus(NULL)");
  CHECK(api.GetErrorFileName(NULL) == NULL, "KzGetErrorFileName(NULL)");
  CHECK(api.CreateList(NULL, KZ_LIST_NAMES) == NULL, "KzCreateList(NULL)");
  CHECK(api.AddToList(NULL, L"x", 0) == KZ_E_HANDLE, "KzAddToList(NULL)");
  CHECK(api.SetCallbacks(NULL, NULL, NULL) == KZ_E_HANDLE, "KzSetCallbacks(NULL)");
  api.FreeList(NULL);
  api.FreeObject(NULL);
}

/* Lists, tests, extracts to files and to the callback; returns the number
 * of files with data that were checked. */
static int CheckArchive(const wchar_t* archive, const wchar_t* dest) {
  KzHandle h = api.CreateObject();
  KzList* none;
  KzList* all;
  KzList* members;
  ArchiveInfo info;
  KzCallbacks callbacks;
  DataSink sink;
  const KzListNode* node;
  int files = 0;
  HRESULT hr;
  CHECK(h != NULL, "KzCreateObject");
  if (h == NULL) return 0;
  CHECK(api.SetOptions(h, KZ_OPT_OVERWRITE, KZ_OVERWRITE_ALL, 0) == 0, "overwrite option");
  hr = api.InitArchive(h, archive, 0, 0);
  CHECK(hr == 0, "KzInitArchive(%ls) = 0x%08lX", archive, (unsigned long)hr);

  none = api.CreateList(h, KZ_LIST_NAMES);
  all = api.CreateList(h, KZ_LIST_NAMES);
  members = api.CreateList(h, KZ_LIST_MEMBERS);
  CHECK(api.AddToList(all, L"*", 0) == 0, "KzAddToList");
  memset(&info, 0, sizeof info);
  hr = api.ListArchive(h, none, 0, 0, members, &info);
  CHECK(hr == 0, "KzListArchive = 0x%08lX", (unsigned long)hr);
  CHECK(members->Count > 0 && info.MemberCount == members->Count, "%u members, info says %u",
        members->Count, info.MemberCount);
  CHECK(info.ArchiveType == 13 && info.Size == sizeof info, "ArchiveInfo header");

  hr = api.TestArchive(h, NULL, 0);
  CHECK(hr == 0, "KzTestArchive = 0x%08lX", (unsigned long)hr);
  hr = api.ExtractFiles(h, all, KZ_SELECT_WILDCARD, dest, 0);
  CHECK(hr == 0, "KzExtractFiles = 0x%08lX", (unsigned long)hr);

  for (node = members->First; node != NULL; node = node->Next) {
    const LhaHeader* m = (const LhaHeader*)node->Item;
    wchar_t path[1024];
    uint64_t size = 0;
    uint16_t crc = 0;
    if (IsDirectory(m) || wcschr(m->Name, L'|') != NULL) continue; /* directories, links */
    swprintf(path, 1024, L"%ls\\%ls", dest, m->Name);
    CHECK(FileCrc(path, &size, &crc), "%ls was not extracted", path);
    CHECK(size == m->OriginalSize && crc == (uint16_t)m->Crc, "%ls: %llu bytes, CRC %04X; member %llu, %04X",
          m->Name, (unsigned long long)size, crc, (unsigned long long)m->OriginalSize, (unsigned)m->Crc);
    printf("  %-40ls %10llu  %04X\n", m->Name, (unsigned long long)size, crc);
    if (size > 0) ++files;
  }

  memset(&callbacks, 0, sizeof callbacks);
  memset(&sink, 0, sizeof sink);
  callbacks.Size = sizeof callbacks;
  callbacks.Data = OnData;
  CHECK(api.SetCallbacks(h, &callbacks, &sink) == 0, "KzSetCallbacks");
  hr = api.ExtractFiles(h, all, KZ_SELECT_WILDCARD, dest, KZ_EXTRACT_TO_CALLBACK);
  FinishMember(&sink);
  CHECK(hr == 0 && sink.mismatches == 0, "callback extraction = 0x%08lX, %d of %d members wrong",
        (unsigned long)hr, sink.mismatches, sink.members);
  CHECK(sink.members == files, "the callback saw %d members, %d files with data were written", sink.members,
        files);

  CHECK(api.Unsupported[8](h, 0, 0, 0) == KZ_ARC_E_NOTSUPPORTED, "KzRenameFile");
  CHECK(api.GetStatus(h) == KZ_ARC_E_NOTSUPPORTED, "KzGetStatus after KzRenameFile");
  CHECK(api.GetErrorFileName(h) != NULL && _wcsicmp(api.GetErrorFileName(h), archive) == 0,
        "KzGetErrorFileName names the archive");
  CHECK(api.GetLogList(h) != NULL, "KzGetLogList");

  api.FreeList(none);
  api.FreeList(all);
  api.FreeList(members);
  api.FreeObject(h);
  return files;
}

int main(void) {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  wchar_t full[MAX_PATH];
  HMODULE module;
  int i;
  if (argv == NULL || argc < 4) {
    printf("usage: host_test KzLha73.dll DESTINATION ARCHIVE...\n");
    return 2;
  }
  /* KzLib73.dll sits beside the module: its directory is where the loader
   * looks for it. */
  GetFullPathNameW(argv[1], MAX_PATH, full, NULL);
  {
    wchar_t dir[MAX_PATH];
    wchar_t* slash;
    wcscpy(dir, full);
    slash = wcsrchr(dir, L'\\');
    if (slash != NULL) *slash = 0;
    SetDllDirectoryW(dir);
  }
  module = LoadLibraryW(full);
  if (module == NULL) {
    printf("FAILED: cannot load %ls (error %lu)\n", full, GetLastError());
    return 1;
  }
  if (ResolveAll(module) != 25) {
    printf("FAILED: not all 25 exports resolved\n");
    return 1;
  }
  CheckNullHandles();
  for (i = 3; i < argc; ++i) {
    wchar_t archive[MAX_PATH];
    wchar_t dest[MAX_PATH];
    GetFullPathNameW(argv[i], MAX_PATH, archive, NULL);
    swprintf(dest, MAX_PATH, L"%ls\\%d", argv[2], i - 2);
    GetFullPathNameW(dest, MAX_PATH, dest, NULL);
    CreateDirectoryW(argv[2], NULL);
    CreateDirectoryW(dest, NULL);
    printf("%ls\n", archive);
    printf("  %d files with data extracted and checked\n", CheckArchive(archive, dest));
  }
  FreeLibrary(module);
  LocalFree(argv);
  printf(failures == 0 ? "host: all checks passed\n" : "host: %d checks FAILED\n", failures);
  return failures == 0 ? 0 : 1;
}
