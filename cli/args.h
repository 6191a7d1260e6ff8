// The command line, parsed without side effects so it can be tested as a
// table: `kzlha CMD[options] ARCHIVE [NAMES|FILES...]` in the classic glued
// forms (a1o6q, xfw=DIR, -xfw=DIR) plus separate and long options.
#pragma once

#include <string>
#include <vector>

namespace kzcli {

enum class Command {
  None,
  List,     // l
  Verbose,  // v: the list with the header level
  Extract,  // x and e
  Test,     // t
  Print,    // p
  Add,      // a
  Create,   // c
  Update,   // u
  Move,     // m
  Delete,   // d
};

// Option values as given; "not given" is kept apart from every value so
// that the engine's own defaults stay in force.
struct Options {
  Command command = Command::None;
  char commandLetter = 0;
  std::string archive;
  std::vector<std::string> names;
  std::string outputDir;  // empty: the current directory
  bool force = false;
  bool ignorePaths = false;
  bool quiet = false;
  bool json = false;
  bool help = false;
  bool version = false;
  int method = 0;        // 5, 6 or 7; 0 = not given
  int level = -1;        // 0 = store, 1..4 = effort; -1 = not given
  int headerLevel = -1;  // 0, 1 or 2 as asked for; the engine writes 1
  int codePage = 0;      // 0 = not given
  std::vector<std::string> excludes;
  std::string modulePath;
};

struct ParseResult {
  Options options;
  std::string error;               // non-empty: a usage error
  std::vector<std::string> notes;  // one-line remarks to show (not errors)
  bool ok() const { return error.empty(); }
};

// args excludes the program name.
ParseResult ParseCommandLine(const std::vector<std::string>& args);

// True for the commands that write the archive.
bool IsWriteCommand(Command command);

// The --help text.
const char* UsageText();

}  // namespace kzcli
