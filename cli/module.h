// The engine module, opened at run time. Everything platform-specific about
// loading lives behind this interface (module_posix.cpp here; a Windows
// port adds module_win32.cpp with LoadLibraryW/GetProcAddress).
#pragma once

#include <memory>
#include <string>

namespace kzcli {

class DynamicModule {
 public:
  // Opens the module at path; on failure returns null and explains why.
  static std::unique_ptr<DynamicModule> Open(const std::string& path, std::string* error);
  ~DynamicModule();
  DynamicModule(const DynamicModule&) = delete;
  DynamicModule& operator=(const DynamicModule&) = delete;

  // The address of an exported symbol, or null.
  void* Find(const char* name) const;

  // Leaves the module loaded when this object goes: for a process about to
  // end, whose exit unmaps it anyway.
  void KeepLoaded() { handle_ = base_ = nullptr; }

 private:
  DynamicModule(void* handle, void* base) : handle_(handle), base_(base) {}
  void* handle_;
  void* base_;  // a library the platform loaded ahead of the module, or null
};

// The module's file name on this platform ("libKzLha73.so").
const char* EngineModuleFileName();
// Directory of the running executable, or empty when it cannot be told.
std::string ExecutableDirectory();
// Whether a regular file exists at path.
bool IsRegularFile(const std::string& path);

}  // namespace kzcli
