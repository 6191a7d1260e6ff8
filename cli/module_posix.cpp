#ifndef _WIN32

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "cli/module.h"

namespace kzcli {

std::unique_ptr<DynamicModule> DynamicModule::Open(const std::string& path, std::string* error) {
  // RTLD_LOCAL: the engine's symbols must not leak into anything else we load.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = dlerror();
    if (error != nullptr) *error = why != nullptr ? why : "cannot load";
    return nullptr;
  }
  return std::unique_ptr<DynamicModule>(new DynamicModule(handle));
}

DynamicModule::~DynamicModule() { dlclose(handle_); }

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
