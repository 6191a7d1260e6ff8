// The terminal: whether a stream is one, how wide it is, and reading one
// answer line. Platform-specific (console_posix.cpp).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kzcli {

// Before anything is written: on Windows, standard output and error
// without newline translation (p writes raw data) and a UTF-8 console.
void PrepareStandardStreams();
// The arguments after the program name, as UTF-8. Windows reads them from
// the wide command line, since argv there holds only the ANSI code page.
std::vector<std::string> ProgramArguments(int argc, char** argv);

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
