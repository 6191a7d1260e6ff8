#include "cli/engine.h"

#include <cstdlib>
#include <string_view>

namespace kzcli {

namespace {

template <typename Fn>
bool Bind(const DynamicModule& module, const char* name, Fn* slot, std::string* missing) {
  // Function pointers come back from the loader as object pointers.
  *slot = reinterpret_cast<Fn>(module.Find(name));
  if (*slot == nullptr && missing != nullptr && missing->empty()) *missing = name;
  return *slot != nullptr;
}

}  // namespace

bool EngineApi::Resolve(const DynamicModule& m, std::string* missing) {
  bool ok = true;
  ok &= Bind(m, "KzCreateObject", &CreateObject, missing);
  ok &= Bind(m, "KzFreeObject", &FreeObject, missing);
  ok &= Bind(m, "KzSetOptions", &SetOptions, missing);
  ok &= Bind(m, "KzInitArchive", &InitArchive, missing);
  ok &= Bind(m, "KzListArchive", &ListArchive, missing);
  ok &= Bind(m, "KzExtractFiles", &ExtractFiles, missing);
  ok &= Bind(m, "KzTestArchive", &TestArchive, missing);
  ok &= Bind(m, "KzCompressFiles", &CompressFiles, missing);
  ok &= Bind(m, "KzDeleteFiles", &DeleteFiles, missing);
  ok &= Bind(m, "KzCreateDirectory", &CreateDirectory, missing);
  ok &= Bind(m, "KzCreateSfx", &CreateSfx, missing);
  ok &= Bind(m, "KzRepairArchive", &RepairArchive, missing);
  ok &= Bind(m, "KzAddRecoveryData", &AddRecoveryData, missing);
  ok &= Bind(m, "KzStripRecoveryData", &StripRecoveryData, missing);
  ok &= Bind(m, "KzSetFileComments", &SetFileComments, missing);
  ok &= Bind(m, "KzSetArchiveComment", &SetArchiveComment, missing);
  ok &= Bind(m, "KzSetFileProperties", &SetFileProperties, missing);
  ok &= Bind(m, "KzRenameFile", &RenameFile, missing);
  ok &= Bind(m, "KzGetLogList", &GetLogList, missing);
  ok &= Bind(m, "KzGetStatus", &GetStatus, missing);
  ok &= Bind(m, "KzGetErrorFileName", &GetErrorFileName, missing);
  ok &= Bind(m, "KzCreateList", &CreateList, missing);
  ok &= Bind(m, "KzFreeList", &FreeList, missing);
  ok &= Bind(m, "KzAddToList", &AddToList, missing);
  ok &= Bind(m, "KzSetCallbacks", &SetCallbacks, missing);
  return ok;
}

std::vector<std::string> ModuleCandidates(const std::string& explicitPath,
                                          const std::string& executableDir,
                                          const char* environmentValue) {
  if (!explicitPath.empty()) return {explicitPath};
  std::vector<std::string> found;
  const std::string file = EngineModuleFileName();
  if (!executableDir.empty()) {
    std::vector<std::string> places{executableDir + "/" + file, executableDir + "/../lib/" + file};
#ifdef KZ_INSTALL_LIBDIR
    // An installed program finds its engine in the install's library
    // directory, whatever its name (lib64, lib/x86_64-linux-gnu).
    if (std::string_view(KZ_INSTALL_LIBDIR) != "lib") places.push_back(executableDir + "/../" KZ_INSTALL_LIBDIR "/" + file);
#endif
    // Only the first that exists is loaded: the rest need no look.
    for (const std::string& candidate : places) {
      if (IsRegularFile(candidate)) {
        found.push_back(candidate);
        break;
      }
    }
  }
  if (environmentValue != nullptr && *environmentValue != '\0') found.push_back(environmentValue);
  return found;
}

bool LoadEngine(const std::string& explicitPath, Engine* engine, std::string* failedPath,
                std::string* error) {
  std::vector<std::string> candidates =
      ModuleCandidates(explicitPath, ExecutableDirectory(), std::getenv("KZLHA_MODULE"));
  // Last resort: the bare name, which the loader looks up along the
  // system's library path.
  const bool searched = candidates.empty();
  if (searched) candidates.push_back(EngineModuleFileName());
  // The first candidate that exists decides; falling back past a broken
  // module would hide the problem.
  const std::string& path = candidates.front();
  std::string why;
  engine->Module = DynamicModule::Open(path, &why);
  if (!engine->Module) {
    *failedPath = path;
    *error = searched ? "engine module not found beside the program, in ../lib, in $KZLHA_MODULE "
                        "or on the library path (use --module=PATH)"
                      : "cannot load the engine module: " + why;
    return false;
  }
  std::string missing;
  if (!engine->Api.Resolve(*engine->Module, &missing)) {
    *failedPath = path;
    *error = "not a KzLha73 engine module (no export " + missing + ")";
    engine->Module.reset();
    return false;
  }
  return true;
}

}  // namespace kzcli
