// The terminal: whether a stream is one, how wide it is, and reading one
// answer line. Platform-specific (console_posix.cpp).
#pragma once

#include <cstdio>
#include <string>

namespace kzcli {

bool IsTerminal(std::FILE* stream);
// Columns of the terminal behind stream, or 80 when unknown.
int TerminalColumns(std::FILE* stream);
// Reads one line from standard input without its newline; false at the end.
bool ReadAnswerLine(std::string* line);

// Ctrl-C and SIGTERM ask the running operation to stop cleanly (the engine
// removes what it had started); a second signal ends the program at once.
void InstallInterruptHandler();
bool InterruptRequested();

}  // namespace kzcli
