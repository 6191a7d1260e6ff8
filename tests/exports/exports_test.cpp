// The module's outward face, seen as a host sees it: loaded by path at run
// time, its 25 exports resolved by name.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif
#include <kzlha/kzlha.h>

#include <algorithm>
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
// Slots 9 to 17: one signature, never supported.
constexpr const char* kUnsupported[] = {
    "KzCreateDirectory",   "KzCreateSfx",         "KzRepairArchive",     "KzAddRecoveryData",
    "KzStripRecoveryData", "KzSetFileComments",   "KzSetArchiveComment", "KzSetFileProperties",
    "KzRenameFile"};

// The module, loaded as a host loads it.
#ifdef _WIN32
class Module {
 public:
  Module() : handle_(LoadLibraryW(kztest::Wide(kztest::EngineModulePath()).c_str())) {}
  ~Module() {
    if (handle_) FreeLibrary(handle_);
  }
  bool loaded() const { return handle_ != nullptr; }
  void* Symbol(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(handle_, name));
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
  void* Symbol(const char* name) const { return dlsym(handle_, name); }
  static std::string Error() { return dlerror(); }
  // The dynamic symbols the module defines.
  std::set<std::string> ExportedNames() const {
    auto r = kztest::Run({"nm", "-D", "--defined-only", kztest::EngineModulePath()});
    EXPECT_EQ(r.ExitCode, 0) << r.Err;
    std::set<std::string> out;
    std::istringstream lines(r.Out);
    std::string address, type, name;
    while (lines >> address >> type >> name) {
      if (std::string("TWDBVi").find(type) != std::string::npos) out.insert(name);
    }
    return out;
  }

 private:
  void* handle_ = nullptr;
};
#endif

class ExportsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(module_.loaded()) << Module::Error();
    create_ = Fn<KzCreateObjectFn>("KzCreateObject");
    free_ = Fn<KzFreeObjectFn>("KzFreeObject");
    status_ = Fn<KzGetStatusFn>("KzGetStatus");
    errorName_ = Fn<KzGetErrorFileNameFn>("KzGetErrorFileName");
  }
  template <typename F>
  F Fn(const char* name) const {
    return reinterpret_cast<F>(module_.Symbol(name));
  }
  Module module_;
  KzCreateObjectFn create_;
  KzFreeObjectFn free_;
  KzGetStatusFn status_;
  KzGetErrorFileNameFn errorName_;
};

TEST_F(ExportsTest, ModuleExportsExactlyTheTwentyFiveNamesAndEachResolves) {
  for (const char* name : kExportNames) EXPECT_NE(module_.Symbol(name), nullptr) << name;
  EXPECT_EQ(module_.ExportedNames(), std::set<std::string>(std::begin(kExportNames), std::end(kExportNames)));
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
  EXPECT_EQ(Fn<KzCreateListFn>("KzCreateList")(nullptr, KZ_LIST_NAMES), nullptr);
  EXPECT_EQ(errorName_(nullptr), nullptr);
  EXPECT_EQ(Fn<KzGetLogListFn>("KzGetLogList")(nullptr), nullptr);
  free_(nullptr);
  Fn<KzFreeListFn>("KzFreeList")(nullptr);

  EXPECT_EQ(Fn<KzSetOptionsFn>("KzSetOptions")(nullptr, 1, 13, 0), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzInitArchiveFn>("KzInitArchive")(nullptr, L"x.lzh", 0, 0), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzListArchiveFn>("KzListArchive")(nullptr, nullptr, 0, 0, nullptr, nullptr), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzExtractFilesFn>("KzExtractFiles")(nullptr, nullptr, 0, nullptr, 0), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzTestArchiveFn>("KzTestArchive")(nullptr, nullptr, 0), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzCompressFilesFn>("KzCompressFiles")(nullptr, nullptr, nullptr, 0), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzDeleteFilesFn>("KzDeleteFiles")(nullptr, nullptr, 0), KZ_E_HANDLE);
  EXPECT_EQ(status_(nullptr), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzAddToListFn>("KzAddToList")(nullptr, L"a", 0), KZ_E_HANDLE);
  EXPECT_EQ(Fn<KzSetCallbacksFn>("KzSetCallbacks")(nullptr, nullptr, nullptr), KZ_E_HANDLE);
  for (const char* name : kUnsupported) {
    EXPECT_EQ(Fn<KzUnsupportedFn>(name)(nullptr, 0, 0, 0), KZ_E_HANDLE) << name;
  }
}

TEST_F(ExportsTest, UnsupportedOperationsRecordNotSupportedWithTheArchivePath) {
  kztest::TempDir dir;
  std::wstring path = kztest::Wide((dir / "new.lzh").string());
  KzHandle h = create_();
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(Fn<KzInitArchiveFn>("KzInitArchive")(h, path.c_str(), 0, 0), 0);
  std::replace(path.begin(), path.end(), L'/', L'\\');
  for (const char* name : kUnsupported) {
    // The arguments are never looked at: even garbage pointers are safe.
    EXPECT_EQ(Fn<KzUnsupportedFn>(name)(h, 0x1234, -1, 7), KZ_ARC_E_NOTSUPPORTED) << name;
    EXPECT_EQ(status_(h), KZ_ARC_E_NOTSUPPORTED) << name;
    ASSERT_NE(errorName_(h), nullptr) << name;
    EXPECT_EQ(std::wstring(errorName_(h)), path) << name;
  }
  free_(h);
}

TEST_F(ExportsTest, EmptyOrMissingItemListsAreInvalidWithoutReachingTheBase) {
  auto extract = Fn<KzExtractFilesFn>("KzExtractFiles");
  auto compress = Fn<KzCompressFilesFn>("KzCompressFiles");
  auto remove = Fn<KzDeleteFilesFn>("KzDeleteFiles");
  KzHandle h = create_();
  ASSERT_NE(h, nullptr);
  KzList* empty = Fn<KzCreateListFn>("KzCreateList")(h, KZ_LIST_NAMES);
  ASSERT_NE(empty, nullptr);
  for (KzList* list : {static_cast<KzList*>(nullptr), empty}) {
    // No archive was ever bound: had the base been reached, it would have
    // failed on the missing archive instead.
    EXPECT_EQ(extract(h, list, 0, L"/nonexistent-dir", 0), KZ_E_INVALIDARG);
    EXPECT_EQ(status_(h), KZ_E_INVALIDARG);
    EXPECT_EQ(errorName_(h), nullptr);
    EXPECT_EQ(compress(h, list, nullptr, 0), KZ_E_INVALIDARG);
    EXPECT_EQ(status_(h), KZ_E_INVALIDARG);
    EXPECT_EQ(remove(h, list, 0), KZ_E_INVALIDARG);
    EXPECT_EQ(status_(h), KZ_E_INVALIDARG);
  }
  Fn<KzFreeListFn>("KzFreeList")(empty);
  free_(h);
}

// The sanitizer build checks that the refused object leaves nothing behind.
TEST_F(ExportsTest, FailingBaseInitMakesCreateObjectReturnNull) {
  kz::testing::FailNextInit(1);
  EXPECT_EQ(create_(), nullptr);
  // The seam is used up: the next object is built normally.
  KzHandle h = create_();
  EXPECT_NE(h, nullptr);
  free_(h);
}

TEST_F(ExportsTest, ListsCopyTextAndCount) {
  KzHandle h = create_();
  auto createList = Fn<KzCreateListFn>("KzCreateList");
  auto add = Fn<KzAddToListFn>("KzAddToList");
  KzList* list = createList(h, KZ_LIST_NAMES);
  ASSERT_NE(list, nullptr);
  wchar_t text[] = L"first";
  ASSERT_EQ(add(list, text, 0), 0);
  text[0] = L'X';  // the list holds its own copy
  ASSERT_EQ(add(list, L"second", 0), 0);
  EXPECT_EQ(add(list, nullptr, 0), KZ_E_INVALIDARG);
  ASSERT_EQ(list->Count, 2u);
  EXPECT_STREQ(static_cast<KzNameItem*>(list->First->Item)->Path, L"first");
  EXPECT_STREQ(static_cast<KzNameItem*>(list->First->Next->Item)->Path, L"second");
  EXPECT_EQ(list->First->Next->Next, nullptr);
  EXPECT_EQ(createList(h, 99), nullptr);
  Fn<KzFreeListFn>("KzFreeList")(list);
  free_(h);
}

}  // namespace
