// The Windows side of the test helpers: temporary directories and running
// a program with its output captured (CreateProcessW with two pipes, each
// drained by its own thread so that neither can fill up and stall the
// child).
#ifdef _WIN32

#include <windows.h>

#include <random>
#include <stdexcept>
#include <thread>

#include "support/test_support.h"

namespace kztest {

namespace fs = std::filesystem;

namespace {

// One argument quoted the way CommandLineToArgvW and the C runtime read it
// back: backslashes double only in front of a quote.
std::wstring Quote(const std::wstring& arg) {
  if (!arg.empty() && arg.find_first_of(L" \t\"") == std::wstring::npos) return arg;
  std::wstring out = L"\"";
  size_t backslashes = 0;
  for (wchar_t c : arg) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    out.push_back(c);
  }
  out.append(backslashes * 2, L'\\');
  out.push_back(L'"');
  return out;
}

void Drain(HANDLE pipe, std::string* sink) {
  char buf[65536];
  DWORD n = 0;
  while (::ReadFile(pipe, buf, sizeof buf, &n, nullptr) && n > 0) sink->append(buf, n);
}

}  // namespace

TempDir::TempDir() {
  std::random_device seed;
  std::mt19937 rng(seed() ^ GetCurrentProcessId());
  for (int attempt = 0; attempt < 100; ++attempt) {
    fs::path candidate = fs::temp_directory_path() / ("kztest-" + std::to_string(rng() % 100000000));
    std::error_code ec;
    if (fs::create_directory(candidate, ec)) {
      path_ = candidate;
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary directory");
}

CommandResult Run(const std::vector<std::string>& argv, const std::string& workdir) {
  CommandResult r;
  if (argv.empty()) return r;
  std::wstring commandLine;
  for (const std::string& a : argv) {
    if (!commandLine.empty()) commandLine.push_back(L' ');
    commandLine += Quote(Wide(a));
  }
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE outRead, outWrite, errRead, errWrite;
  if (!CreatePipe(&outRead, &outWrite, &inherit, 0)) return r;
  if (!CreatePipe(&errRead, &errWrite, &inherit, 0)) {
    CloseHandle(outRead);
    CloseHandle(outWrite);
    return r;
  }
  SetHandleInformation(outRead, HANDLE_FLAG_INHERIT, 0);
  SetHandleInformation(errRead, HANDLE_FLAG_INHERIT, 0);
  HANDLE nul = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                           OPEN_EXISTING, 0, nullptr);
  STARTUPINFOW si{};
  si.cb = sizeof si;
  si.dwFlags = STARTF_USESTDHANDLES;
  si.hStdInput = nul;
  si.hStdOutput = outWrite;
  si.hStdError = errWrite;
  PROCESS_INFORMATION pi{};
  std::wstring dir = Wide(workdir);
  // Wine's process creation fails now and then on a loaded host; a test
  // must not fail for that, so a failed start is retried a few times.
  BOOL started = FALSE;
  DWORD startError = 0;
  for (int attempt = 0; attempt < 5 && !started; ++attempt) {
    if (attempt > 0) Sleep(200 * attempt);
    started = CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                             workdir.empty() ? nullptr : dir.c_str(), &si, &pi);
    if (!started) startError = GetLastError();
  }
  CloseHandle(outWrite);
  CloseHandle(errWrite);
  if (nul != INVALID_HANDLE_VALUE) CloseHandle(nul);
  if (!started) {
    CloseHandle(outRead);
    CloseHandle(errRead);
    r.ExitCode = 127;  // as a shell reports a program it cannot start
    r.Err = "cannot start " + argv[0] + ": error " + std::to_string(startError) + "\n";
    return r;
  }
  std::thread errThread(Drain, errRead, &r.Err);
  Drain(outRead, &r.Out);
  errThread.join();
  WaitForSingleObject(pi.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(pi.hProcess, &code);
  r.ExitCode = static_cast<int>(code);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);
  CloseHandle(outRead);
  CloseHandle(errRead);
  return r;
}

bool HaveTool(const std::string& name) {
  wchar_t found[MAX_PATH];
  return SearchPathW(nullptr, Wide(name).c_str(), L".exe", MAX_PATH, found, nullptr) != 0;
}

}  // namespace kztest

#endif
