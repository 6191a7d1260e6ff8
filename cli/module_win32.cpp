#ifdef _WIN32

#include <windows.h>

#include "cli/module.h"
#include "cli/text.h"

namespace kzcli {

namespace {

std::string SystemMessage(DWORD code) {
  wchar_t* text = nullptr;
  DWORD n = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                               FORMAT_MESSAGE_IGNORE_INSERTS,
                           nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::wstring message = n != 0 && text != nullptr ? std::wstring(text, n) : L"";
  LocalFree(text);
  while (!message.empty() && (message.back() == L'\n' || message.back() == L'\r' || message.back() == L' ')) {
    message.pop_back();
  }
  if (message.empty()) return "system error " + std::to_string(code);
  return ToNative(message);
}

bool HasSeparator(const std::wstring& path) {
  return path.find_first_of(L"\\/:") != std::wstring::npos;
}

}  // namespace

std::unique_ptr<DynamicModule> DynamicModule::Open(const std::string& path, std::string* error) {
  std::wstring wide = FromNative(path);
  // With a full path and LOAD_WITH_ALTERED_SEARCH_PATH the module's own
  // directory comes first when KzLib73.dll is looked for, not the
  // program's or the current directory. A bare name is searched as usual.
  DWORD flags = 0;
  if (HasSeparator(wide)) {
    wchar_t full[MAX_PATH * 4];
    DWORD n = GetFullPathNameW(wide.c_str(), sizeof full / sizeof full[0], full, nullptr);
    if (n != 0 && n < sizeof full / sizeof full[0]) wide.assign(full, n);
    flags = LOAD_WITH_ALTERED_SEARCH_PATH;
  }
  // No "insert the disk" boxes for a module on a missing drive.
  UINT oldMode = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  HMODULE handle = LoadLibraryExW(wide.c_str(), nullptr, flags);
  DWORD code = GetLastError();
  SetErrorMode(oldMode);
  if (handle == nullptr) {
    if (error != nullptr) *error = SystemMessage(code);
    return nullptr;
  }
  return std::unique_ptr<DynamicModule>(new DynamicModule(handle, nullptr));
}

DynamicModule::~DynamicModule() {
  if (handle_ != nullptr) FreeLibrary(static_cast<HMODULE>(handle_));
}

void* DynamicModule::Find(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

const char* EngineModuleFileName() { return "KzLha73.dll"; }

std::string ExecutableDirectory() {
  std::wstring buffer(MAX_PATH, L'\0');
  for (;;) {
    DWORD n = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (n == 0) return {};
    if (n < buffer.size()) {
      buffer.resize(n);
      break;
    }
    buffer.resize(buffer.size() * 2);
  }
  size_t slash = buffer.find_last_of(L"\\/");
  return slash == std::wstring::npos ? std::string() : ToNative(buffer.substr(0, slash));
}

bool IsRegularFile(const std::string& path) {
  DWORD attributes = GetFileAttributesW(FromNative(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

}  // namespace kzcli

#endif
