#ifndef _WIN32

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>

#include "cli/console.h"

namespace kzcli {

namespace {

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int signo) {
  if (g_interrupted.exchange(true)) {
    signal(signo, SIG_DFL);
    raise(signo);
  }
}

}  // namespace

void PrepareStandardStreams() {}

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
}

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

int TerminalColumns(std::FILE* stream) {
  struct winsize ws {};
  if (ioctl(fileno(stream), TIOCGWINSZ, &ws) == 0 && ws.ws_col >= 20) return ws.ws_col;
  return 80;
}

bool ReadAnswerLine(std::string* line) {
  line->clear();
  int c;
  while ((c = std::getchar()) != EOF && c != '\n') line->push_back(static_cast<char>(c));
  return c != EOF || !line->empty();
}

void InstallInterruptHandler() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool InterruptRequested() { return g_interrupted.load(); }

}  // namespace kzcli

#endif
