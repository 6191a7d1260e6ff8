#ifdef _WIN32

#include <fcntl.h>
#include <io.h>
#include <windows.h>
#include <shellapi.h>

#include <atomic>
#include <cstdio>

#include "cli/console.h"
#include "cli/text.h"

namespace kzcli {

namespace {

std::atomic<bool> g_interrupted{false};

HANDLE ConsoleOf(std::FILE* stream) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

BOOL WINAPI OnControl(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  // The first Ctrl-C asks the operation to stop; a second one is left to
  // the system, which ends the program.
  return g_interrupted.exchange(true) ? FALSE : TRUE;
}

}  // namespace

void PrepareStandardStreams() {
  // The program writes UTF-8 and, for p, raw member data: no newline
  // translation on any stream, and a console that shows UTF-8.
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
  SetConsoleOutputCP(CP_UTF8);
  SetConsoleCP(CP_UTF8);
}

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  // argv holds the arguments in the ANSI code page, which loses every
  // character outside it; the wide command line has them all.
  int count = 0;
  LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr) return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
  std::vector<std::string> args;
  for (int i = 1; i < count; ++i) args.push_back(ToNative(wide[i]));
  LocalFree(wide);
  return args;
}

bool IsTerminal(std::FILE* stream) {
  DWORD mode = 0;
  return GetConsoleMode(ConsoleOf(stream), &mode) != 0;
}

int TerminalColumns(std::FILE* stream) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(ConsoleOf(stream), &info)) {
    int columns = info.srWindow.Right - info.srWindow.Left + 1;
    if (columns >= 20) return columns;
  }
  return 80;
}

bool ReadAnswerLine(std::string* line) {
  line->clear();
  int c;
  while ((c = std::getchar()) != EOF && c != '\n') {
    if (c != '\r') line->push_back(static_cast<char>(c));
  }
  return c != EOF || !line->empty();
}

void InstallInterruptHandler() { SetConsoleCtrlHandler(&OnControl, TRUE); }

bool InterruptRequested() { return g_interrupted.load(); }

}  // namespace kzcli

#endif
