// Lists arbitrary bytes as an archive: the header search, the member
// header reader and the statistics must neither crash nor leak, whatever
// the file holds.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "archiver/lha_archiver.h"
#include "fuzz/fuzz_input.h"

namespace {

// One file per fuzzing process, rewritten for every input.
const std::string& InputPath() { return kzfuzz::InputPath("kz_fuzz_list", ".lzh"); }

bool WriteInput(const uint8_t* data, size_t size) { return kzfuzz::WriteInput(InputPath(), data, size); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!WriteInput(data, size)) return 0;
  KzLhaArchiver archiver;
  if (archiver.Init() < 0) return 0;
  const std::wstring path(InputPath().begin(), InputPath().end());
  if (archiver.InitArchive(path.c_str(), 0, 0) < 0) return 0;
  KzList* selection = KzList::Create(KZ_LIST_NAMES);
  KzList* members = KzList::Create(KZ_LIST_MEMBERS);
  ArchiveInfo info{};
  archiver.ListArchive(selection, 0, 0, members, &info);
  KzList::Free(members);
  KzList::Free(selection);
  return 0;
}
