// The module's outward face, seen as a host sees it: loaded by path at run
// time, its 25 exports resolved by name.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif
#include <kzlha/kzlha.h>

#include <set>
#include <sstream>
#include <string>

#include "enginelib/kz_archiver.h"
#include "support/test_support.h"

namespace {

constexpr const char* kExportNames[] = {
    "KzCreateObject",      "KzFreeObject",        "KzSetOptions",      "KzInitArchive",
    "KzListArchive",       "KzExtractFiles",      "KzTestArchive",     "KzCompressFiles",
    "KzDeleteFiles",       "KzCreateDirectory",   "KzCreateSfx",       "KzRepairArchive",
    "KzAddRecoveryData",   "KzStripRecoveryData", "KzSetFileComments", "KzSetArchiveComment",
    "KzSetFileProperties", "KzRenameFile",        "KzGetLogList",      "KzGetStatus",
    "KzGetErrorFileName",  "KzCreateList",        "KzFreeList",        "KzAddToList",
    "KzSetCallbacks"};

// The module, loaded as a host loads it.
#ifdef _WIN32
class Module {
 public:
  Module() : handle_(LoadLibraryW(kztest::Wide(kztest::EngineModulePath()).c_str())) {}
  ~Module() {
    if (handle_) FreeLibrary(handle_);
  }
  bool loaded() const { return handle_ != nullptr; }
  template <typename F>
  F Get(const char* name) const {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(handle_, name)));
  }
  static std::string Error() { return "LoadLibraryW failed with " + std::to_string(GetLastError()); }
  // The names in the loaded module's export directory.
  std::set<std::string> ExportedNames() const {
    const auto* base = reinterpret_cast<const uint8_t*>(handle_);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + dir.VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    std::set<std::string> out;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) out.insert(reinterpret_cast<const char*>(base + names[i]));
    return out;
  }

 private:
  HMODULE handle_;
};
#else
class Module {
 public:
  Module() { handle_ = dlopen(kztest::EngineModulePath().c_str(), RTLD_NOW | RTLD_LOCAL); }
  ~Module() {
    if (handle_) dlclose(handle_);
  }
  bool loaded() const { return handle_ != nullptr; }
  template <typename F>
  F Get(const char* name) const {
    return reinterpret_cast<F>(dlsym(handle_, name));
  }
  static std::string Error() { return dlerror(); }

 private:
  void* handle_ = nullptr;
};
#endif

class ExportsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(module_.loaded()) << Module::Error(); }
  Module module_;
};

TEST_F(ExportsTest, EveryExportResolvesByName) {
  for (const char* name : kExportNames) {
    EXPECT_NE(module_.Get<void*>(name), nullptr) << name;
  }
}

TEST_F(ExportsTest, ModuleExportsExactlyTheTwentyFiveNames) {
#ifdef _WIN32
  EXPECT_EQ(module_.ExportedNames(), std::set<std::string>(std::begin(kExportNames), std::end(kExportNames)));
#else
  auto r = kztest::Run({"nm", "-D", "--defined-only", kztest::EngineModulePath()});
  ASSERT_EQ(r.ExitCode, 0) << r.Err;
  std::set<std::string> exported;
  std::istringstream lines(r.Out);
  std::string address, type, name;
  while (lines >> address >> type >> name) {
    if (type == "T" || type == "W" || type == "D" || type == "B" || type == "V" || type == "i") {
      exported.insert(name);
    }
  }
  std::set<std::string> expected(std::begin(kExportNames), std::end(kExportNames));
  EXPECT_EQ(exported, expected);
#endif
}

#ifndef _WIN32
// An empty or relative entry in a library search path makes the loader look
// in the current directory, where an archive's contents may have landed.
TEST_F(ExportsTest, ModulesAndProgramSearchNoRelativeDirectories) {
  for (const char* file : {KZ_ENGINE_MODULE, KZ_LIB_MODULE, KZ_CLI_PATH}) {
    auto r = kztest::Run({"readelf", "-d", file});
    ASSERT_EQ(r.ExitCode, 0) << r.Err;
    std::istringstream lines(r.Out);
    for (std::string line; std::getline(lines, line);) {
      auto open = line.find("path: [");
      if (open == std::string::npos) continue;
      std::string list = line.substr(open + 7, line.rfind(']') - open - 7);
      std::istringstream entries(list + ":");
      for (std::string entry; std::getline(entries, entry, ':');) {
        EXPECT_TRUE(entry.starts_with('/') || entry.starts_with("$ORIGIN")) << file << ": [" << list << "]";
      }
    }
  }
}
#endif

TEST_F(ExportsTest, NullHandleGivesEHandleOrNull) {
  auto create = module_.Get<KzCreateListFn>("KzCreateList");
  EXPECT_EQ(create(nullptr, KZ_LIST_NAMES), nullptr);
  EXPECT_EQ(module_.Get<KzGetErrorFileNameFn>("KzGetErrorFileName")(nullptr), nullptr);
  EXPECT_EQ(module_.Get<KzGetLogListFn>("KzGetLogList")(nullptr), nullptr);
  module_.Get<KzFreeObjectFn>("KzFreeObject")(nullptr);
  module_.Get<KzFreeListFn>("KzFreeList")(nullptr);

  EXPECT_EQ(module_.Get<KzSetOptionsFn>("KzSetOptions")(nullptr, 1, 13, 0), KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzInitArchiveFn>("KzInitArchive")(nullptr, L"x.lzh", 0, 0), KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzListArchiveFn>("KzListArchive")(nullptr, nullptr, 0, 0, nullptr, nullptr),
            KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzExtractFilesFn>("KzExtractFiles")(nullptr, nullptr, 0, nullptr, 0),
            KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzTestArchiveFn>("KzTestArchive")(nullptr, nullptr, 0), KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzCompressFilesFn>("KzCompressFiles")(nullptr, nullptr, nullptr, 0),
            KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzDeleteFilesFn>("KzDeleteFiles")(nullptr, nullptr, 0), KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzGetStatusFn>("KzGetStatus")(nullptr), KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzAddToListFn>("KzAddToList")(nullptr, L"a", 0), KZ_E_HANDLE);
  EXPECT_EQ(module_.Get<KzSetCallbacksFn>("KzSetCallbacks")(nullptr, nullptr, nullptr), KZ_E_HANDLE);
  for (const char* name : {"KzCreateDirectory", "KzCreateSfx", "KzRepairArchive",
                           "KzAddRecoveryData", "KzStripRecoveryData", "KzSetFileComments",
                           "KzSetArchiveComment", "KzSetFileProperties", "KzRenameFile"}) {
    EXPECT_EQ(module_.Get<KzUnsupportedFn>(name)(nullptr, 0, 0, 0), KZ_E_HANDLE) << name;
  }
}

TEST_F(ExportsTest, UnsupportedOperationsRecordNotSupportedWithTheArchivePath) {
  auto create = module_.Get<KzCreateObjectFn>("KzCreateObject");
  auto freeObject = module_.Get<KzFreeObjectFn>("KzFreeObject");
  auto init = module_.Get<KzInitArchiveFn>("KzInitArchive");
  auto status = module_.Get<KzGetStatusFn>("KzGetStatus");
  auto errorName = module_.Get<KzGetErrorFileNameFn>("KzGetErrorFileName");
  kztest::TempDir dir;
  std::wstring path = kztest::Wide((dir / "new.lzh").string());
  KzHandle h = create();
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(init(h, path.c_str(), 0, 0), 0);
  std::wstring stored = path;
  for (auto& c : stored) {
    if (c == L'/') c = L'\\';
  }
  for (const char* name : {"KzCreateDirectory", "KzCreateSfx", "KzRepairArchive",
                           "KzAddRecoveryData", "KzStripRecoveryData", "KzSetFileComments",
                           "KzSetArchiveComment", "KzSetFileProperties", "KzRenameFile"}) {
    // The arguments are never looked at: even garbage pointers are safe.
    EXPECT_EQ(module_.Get<KzUnsupportedFn>(name)(h, 0x1234, -1, 7), KZ_ARC_E_NOTSUPPORTED) << name;
    EXPECT_EQ(status(h), KZ_ARC_E_NOTSUPPORTED) << name;
    ASSERT_NE(errorName(h), nullptr) << name;
    EXPECT_EQ(std::wstring(errorName(h)), stored) << name;
  }
  freeObject(h);
}

TEST_F(ExportsTest, EmptyOrMissingItemListsAreInvalidWithoutReachingTheBase) {
  auto create = module_.Get<KzCreateObjectFn>("KzCreateObject");
  auto freeObject = module_.Get<KzFreeObjectFn>("KzFreeObject");
  auto createList = module_.Get<KzCreateListFn>("KzCreateList");
  auto freeList = module_.Get<KzFreeListFn>("KzFreeList");
  auto status = module_.Get<KzGetStatusFn>("KzGetStatus");
  auto errorName = module_.Get<KzGetErrorFileNameFn>("KzGetErrorFileName");
  auto extract = module_.Get<KzExtractFilesFn>("KzExtractFiles");
  auto compress = module_.Get<KzCompressFilesFn>("KzCompressFiles");
  auto remove = module_.Get<KzDeleteFilesFn>("KzDeleteFiles");
  KzHandle h = create();
  ASSERT_NE(h, nullptr);
  KzList* empty = createList(h, KZ_LIST_NAMES);
  ASSERT_NE(empty, nullptr);
  for (KzList* list : {static_cast<KzList*>(nullptr), empty}) {
    // No archive was ever bound: had the base been reached, it would have
    // failed on the missing archive instead.
    EXPECT_EQ(extract(h, list, 0, L"/nonexistent-dir", 0), KZ_E_INVALIDARG);
    EXPECT_EQ(status(h), KZ_E_INVALIDARG);
    EXPECT_EQ(errorName(h), nullptr);
    EXPECT_EQ(compress(h, list, nullptr, 0), KZ_E_INVALIDARG);
    EXPECT_EQ(status(h), KZ_E_INVALIDARG);
    EXPECT_EQ(remove(h, list, 0), KZ_E_INVALIDARG);
    EXPECT_EQ(status(h), KZ_E_INVALIDARG);
  }
  freeList(empty);
  freeObject(h);
}

TEST_F(ExportsTest, HooksAndSlotConstants) {
  KzHandle h = module_.Get<KzCreateObjectFn>("KzCreateObject")();
  ASSERT_NE(h, nullptr);
  auto* a = reinterpret_cast<KzArchiver*>(h);
  EXPECT_EQ(a->Hook19(), KZ_E_NOTIMPL);
  EXPECT_EQ(a->Hook20(), KZ_E_NOTIMPL);
  EXPECT_EQ(a->Hook30(), 0);
  EXPECT_EQ(a->Hook31(), 0);
  EXPECT_EQ(a->Hook32(), 0);
  EXPECT_EQ(a->Hook34(), 0);
  EXPECT_EQ(a->Hook35(), 0);
  EXPECT_EQ(a->Hook36(), 1);
  EXPECT_EQ(a->GetFirstHeaderOffset(), 0u);
  module_.Get<KzFreeObjectFn>("KzFreeObject")(h);
}

TEST_F(ExportsTest, FailingBaseInitMakesCreateObjectReturnNull) {
  kz::testing::FailNextInit(1);
  EXPECT_EQ(module_.Get<KzCreateObjectFn>("KzCreateObject")(), nullptr);
  // The seam is used up: the next object is built normally.
  KzHandle h = module_.Get<KzCreateObjectFn>("KzCreateObject")();
  EXPECT_NE(h, nullptr);
  module_.Get<KzFreeObjectFn>("KzFreeObject")(h);
}

TEST_F(ExportsTest, ListsCopyTextAndCount) {
  KzHandle h = module_.Get<KzCreateObjectFn>("KzCreateObject")();
  auto createList = module_.Get<KzCreateListFn>("KzCreateList");
  auto add = module_.Get<KzAddToListFn>("KzAddToList");
  KzList* list = createList(h, KZ_LIST_NAMES);
  ASSERT_NE(list, nullptr);
  wchar_t text[] = L"first";
  ASSERT_EQ(add(list, text, 0), 0);
  text[0] = L'X';  // the list holds its own copy
  ASSERT_EQ(add(list, L"second", 0), 0);
  EXPECT_EQ(add(list, nullptr, 0), KZ_E_INVALIDARG);
  ASSERT_EQ(list->Count, 2u);
  auto* first = static_cast<KzNameItem*>(list->First->Item);
  auto* second = static_cast<KzNameItem*>(list->First->Next->Item);
  EXPECT_STREQ(first->Path, L"first");
  EXPECT_STREQ(second->Path, L"second");
  EXPECT_EQ(list->First->Next->Next, nullptr);
  EXPECT_EQ(createList(h, 99), nullptr);
  module_.Get<KzFreeListFn>("KzFreeList")(list);
  module_.Get<KzFreeObjectFn>("KzFreeObject")(h);
}

}  // namespace
