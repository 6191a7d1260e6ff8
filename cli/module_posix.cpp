#ifndef _WIN32

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "cli/module.h"

namespace kzcli {

namespace {
constexpr const char* kBaseLibraryFileName = "libKzLib73.so";
}  // namespace

std::unique_ptr<DynamicModule> DynamicModule::Open(const std::string& path, std::string* error) {
  // The base library beside the engine, loaded first: the engine then finds
  // it by name among the loaded objects, where its own run path would first
  // probe eleven hardware-capability directories (a tenth of a short run).
  // Without it there, the engine's run path decides as before.
  void* base = nullptr;
  const size_t slash = path.rfind('/');
  if (slash != std::string::npos) {
    const std::string beside = path.substr(0, slash + 1) + kBaseLibraryFileName;
    if (IsRegularFile(beside)) base = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL);
  }
  // RTLD_LOCAL: the engine's symbols must not leak into anything else we load.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = dlerror();
    if (error != nullptr) *error = why != nullptr ? why : "cannot load";
    if (base != nullptr) dlclose(base);
    return nullptr;
  }
  return std::unique_ptr<DynamicModule>(new DynamicModule(handle, base));
}

DynamicModule::~DynamicModule() {
  if (handle_ != nullptr) dlclose(handle_);
  if (base_ != nullptr) dlclose(base_);
}

void* DynamicModule::Find(const char* name) const { return dlsym(handle_, name); }

const char* EngineModuleFileName() { return "libKzLha73.so"; }

std::string ExecutableDirectory() {
  char buffer[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return {};
  std::string path(buffer, static_cast<size_t>(n));
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash == 0 ? 1 : slash);
}

bool IsRegularFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace kzcli

#endif
