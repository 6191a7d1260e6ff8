// The engine as the command line sees it: the 25 exports resolved by name
// from the loaded module, and small owners for the handle and the lists.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/module.h"
#include "kzlha/kzlha.h"

namespace kzcli {

struct EngineApi {
  KzCreateObjectFn CreateObject = nullptr;
  KzFreeObjectFn FreeObject = nullptr;
  KzSetOptionsFn SetOptions = nullptr;
  KzInitArchiveFn InitArchive = nullptr;
  KzListArchiveFn ListArchive = nullptr;
  KzExtractFilesFn ExtractFiles = nullptr;
  KzTestArchiveFn TestArchive = nullptr;
  KzCompressFilesFn CompressFiles = nullptr;
  KzDeleteFilesFn DeleteFiles = nullptr;
  KzUnsupportedFn CreateDirectory = nullptr;
  KzUnsupportedFn CreateSfx = nullptr;
  KzUnsupportedFn RepairArchive = nullptr;
  KzUnsupportedFn AddRecoveryData = nullptr;
  KzUnsupportedFn StripRecoveryData = nullptr;
  KzUnsupportedFn SetFileComments = nullptr;
  KzUnsupportedFn SetArchiveComment = nullptr;
  KzUnsupportedFn SetFileProperties = nullptr;
  KzUnsupportedFn RenameFile = nullptr;
  KzGetLogListFn GetLogList = nullptr;
  KzGetStatusFn GetStatus = nullptr;
  KzGetErrorFileNameFn GetErrorFileName = nullptr;
  KzCreateListFn CreateList = nullptr;
  KzFreeListFn FreeList = nullptr;
  KzAddToListFn AddToList = nullptr;
  KzSetCallbacksFn SetCallbacks = nullptr;

  // Fills every pointer; on a missing export returns false and names it.
  bool Resolve(const DynamicModule& module, std::string* missing);
};

// The loaded module together with its resolved exports.
struct Engine {
  std::unique_ptr<DynamicModule> Module;
  EngineApi Api;
};

// Where to look for the module: --module first, then beside the
// executable, then ../lib, then $KZLHA_MODULE. Only existing files count
// except for an explicit --module, which is always tried.
std::vector<std::string> ModuleCandidates(const std::string& explicitPath,
                                          const std::string& executableDir,
                                          const char* environmentValue);

// Loads and resolves the engine; on failure explains which file and why.
bool LoadEngine(const std::string& explicitPath, Engine* engine, std::string* failedPath,
                std::string* error);

// One archiver object, freed with the owner.
class ArchiveObject {
 public:
  explicit ArchiveObject(const EngineApi& api) : api_(api), handle_(api.CreateObject()) {}
  ~ArchiveObject() { api_.FreeObject(handle_); }
  ArchiveObject(const ArchiveObject&) = delete;
  ArchiveObject& operator=(const ArchiveObject&) = delete;
  KzHandle get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  const EngineApi& api_;
  KzHandle handle_;
};

// An engine-made list, freed with the owner.
class EngineList {
 public:
  EngineList(const EngineApi& api, KzHandle object, KzListKind kind)
      : api_(api), list_(api.CreateList(object, kind)) {}
  ~EngineList() { api_.FreeList(list_); }
  EngineList(const EngineList&) = delete;
  EngineList& operator=(const EngineList&) = delete;
  KzList* get() const { return list_; }
  explicit operator bool() const { return list_ != nullptr; }
  uint32_t size() const { return list_ != nullptr ? list_->Count : 0; }
  [[nodiscard]] HRESULT Add(const std::wstring& text) {
    return api_.AddToList(list_, text.c_str(), 0);
  }

 private:
  const EngineApi& api_;
  KzList* list_;
};

// Calls fn(item) for every item of a list, in list order.
template <typename Item, typename Fn>
void ForEachItem(const KzList* list, Fn&& fn) {
  if (list == nullptr) return;
  for (const KzListNode* node = list->First; node != nullptr; node = node->Next) {
    if (node->Item != nullptr) fn(*static_cast<const Item*>(node->Item));
  }
}

}  // namespace kzcli
