/*
 * A complete host in plain C: loads the engine module at run time and goes
 * through an archiver object's whole life: create, options, callbacks,
 * open, list, extract, add, delete, free.
 *
 *   host MODULE ARCHIVE FILE_TO_ADD DEST_DIR
 *
 * Build against the installed header, through pkg-config:
 *   cc host.c $(pkg-config --cflags --libs kzlha) -o host
 * or through CMake: see CMakeLists.txt beside this file.
 */
#include <dlfcn.h>
#include <kzlha/kzlha.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

typedef struct Engine {
  KzCreateObjectFn CreateObject;
  KzFreeObjectFn FreeObject;
  KzSetOptionsFn SetOptions;
  KzSetCallbacksFn SetCallbacks;
  KzInitArchiveFn InitArchive;
  KzListArchiveFn ListArchive;
  KzExtractFilesFn ExtractFiles;
  KzCompressFilesFn CompressFiles;
  KzDeleteFilesFn DeleteFiles;
  KzGetStatusFn GetStatus;
  KzGetErrorFileNameFn GetErrorFileName;
  KzCreateListFn CreateList;
  KzAddToListFn AddToList;
  KzFreeListFn FreeList;
} Engine;

static int Load(Engine* e, const char* path) {
  void* module = dlopen(path, RTLD_NOW);
  if (module == NULL) {
    fprintf(stderr, "host: %s\n", dlerror());
    return 0;
  }
#define RESOLVE(field, name)                                  \
  *(void**)(&e->field) = dlsym(module, name);                 \
  if (e->field == NULL) {                                     \
    fprintf(stderr, "host: %s: no export %s\n", path, name);  \
    return 0;                                                 \
  }
  RESOLVE(CreateObject, "KzCreateObject")
  RESOLVE(FreeObject, "KzFreeObject")
  RESOLVE(SetOptions, "KzSetOptions")
  RESOLVE(SetCallbacks, "KzSetCallbacks")
  RESOLVE(InitArchive, "KzInitArchive")
  RESOLVE(ListArchive, "KzListArchive")
  RESOLVE(ExtractFiles, "KzExtractFiles")
  RESOLVE(CompressFiles, "KzCompressFiles")
  RESOLVE(DeleteFiles, "KzDeleteFiles")
  RESOLVE(GetStatus, "KzGetStatus")
  RESOLVE(GetErrorFileName, "KzGetErrorFileName")
  RESOLVE(CreateList, "KzCreateList")
  RESOLVE(AddToList, "KzAddToList")
  RESOLVE(FreeList, "KzFreeList")
#undef RESOLVE
  return 1;
}

static int KZ_CALL OnProgress(void* context, const wchar_t* item, uint64_t done, uint64_t total) {
  (void)context;
  (void)item;
  (void)done;
  (void)total;
  return 0; /* nonzero would stop the operation */
}

static void KZ_CALL OnMessage(void* context, uint32_t level, HRESULT status, const wchar_t* text,
                              const wchar_t* fileName) {
  (void)context;
  fprintf(stderr, "host: [%u] %ls%s%ls (0x%08X)\n", level, fileName ? fileName : L"",
          fileName ? ": " : "", text, (unsigned)status);
}

static int Check(const Engine* e, KzHandle h, HRESULT hr, const char* what) {
  if (hr >= 0) return 1;
  const wchar_t* file = e->GetErrorFileName(h);
  fprintf(stderr, "host: %s failed: 0x%08X %ls\n", what, (unsigned)e->GetStatus(h),
          file ? file : L"");
  return 0;
}

static wchar_t* Widen(const char* s) {
  size_t n = mbstowcs(NULL, s, 0);
  wchar_t* w = (wchar_t*)malloc((n + 1) * sizeof(wchar_t));
  if (w != NULL) mbstowcs(w, s, n + 1);
  return w;
}

int main(int argc, char** argv) {
  Engine e;
  if (argc != 5) {
    fprintf(stderr, "usage: host MODULE ARCHIVE FILE_TO_ADD DEST_DIR\n");
    return 2;
  }
  if (!Load(&e, argv[1])) return 2;
  wchar_t* archive = Widen(argv[2]);
  wchar_t* source = Widen(argv[3]);
  wchar_t* dest = Widen(argv[4]);
  int ok = 1;

  KzHandle h = e.CreateObject();
  if (h == NULL) return 2;
  KzCallbacks callbacks = {0};
  callbacks.Size = sizeof callbacks;
  callbacks.Progress = OnProgress;
  callbacks.Message = OnMessage;
  e.SetCallbacks(h, &callbacks, NULL);
  e.SetOptions(h, KZ_OPT_METHOD, 15, 0); /* -lh7- */
  e.SetOptions(h, KZ_OPT_OVERWRITE, KZ_OVERWRITE_ALL, 0);

  /* Add a file (creates the archive when it does not exist yet). */
  KzList* sources = e.CreateList(h, KZ_LIST_NAMES);
  e.AddToList(sources, source, 0);
  ok = ok && Check(&e, h, e.InitArchive(h, archive, 0, 0), "open");
  ok = ok && Check(&e, h, e.CompressFiles(h, sources, NULL, KZ_ADD_REPLACE), "add");
  e.FreeList(sources);

  /* List it. */
  KzList* selection = e.CreateList(h, KZ_LIST_NAMES);
  KzList* members = e.CreateList(h, KZ_LIST_MEMBERS);
  ArchiveInfo info;
  ok = ok && Check(&e, h, e.InitArchive(h, archive, 0, 0), "open");
  ok = ok && Check(&e, h, e.ListArchive(h, selection, 0, 0, members, &info), "list");
  for (KzListNode* n = members->First; ok && n != NULL; n = n->Next) {
    const LhaHeader* m = (const LhaHeader*)n->Item;
    printf("%-40ls %10llu %10llu -lh%c- %04X\n", m->Name, (unsigned long long)m->OriginalSize,
           (unsigned long long)m->PackedSize, (char)('0' + m->Method), (unsigned)m->Crc);
  }
  if (ok) printf("%u member(s), ratio %u%%\n", info.MemberCount, info.RatioPercent);
  e.FreeList(members);

  /* Extract everything, then delete what was added. */
  e.AddToList(selection, L"*", 0);
  ok = ok && Check(&e, h, e.ExtractFiles(h, selection, KZ_SELECT_WILDCARD, dest, 0), "extract");
  ok = ok && Check(&e, h, e.DeleteFiles(h, selection, KZ_SELECT_WILDCARD) == KZ_ARC_E_EMPTYARCHIVE
                              ? 0
                              : e.GetStatus(h),
                   "delete");
  e.FreeList(selection);

  e.FreeObject(h);
  free(archive);
  free(source);
  free(dest);
  return ok ? 0 : 1;
}
