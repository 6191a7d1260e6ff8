#include "cli/args.h"

#include <cstdlib>

namespace kzcli {

namespace {

struct CommandLetter {
  char Letter;
  Command Value;
};

constexpr CommandLetter kCommands[] = {
    {'l', Command::List},   {'v', Command::Verbose}, {'x', Command::Extract},
    {'e', Command::Extract}, {'t', Command::Test},   {'p', Command::Print},
    {'a', Command::Add},    {'c', Command::Create},  {'u', Command::Update},
    {'m', Command::Move},   {'d', Command::Delete},
};

// Parses a whole decimal number in [lo, hi]; false for anything else.
bool ParseNumber(const std::string& text, int lo, int hi, int* out) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  int value = std::atoi(text.c_str());
  if (value < lo || value > hi) return false;
  *out = value;
  return true;
}

bool ParseMethodName(std::string text, int* out) {
  if (text.size() == 5 && text.front() == '-' && text.back() == '-') text = text.substr(1, 3);
  if (text == "lh5") *out = 5;
  else if (text == "lh6") *out = 6;
  else if (text == "lh7") *out = 7;
  else return false;
  return true;
}

class Parser {
 public:
  explicit Parser(const std::vector<std::string>& args) : args_(args) {}

  ParseResult Run() {
    bool optionsEnded = false;
    std::vector<std::string> positional;
    for (index_ = 0; index_ < args_.size() && result_.ok(); ++index_) {
      const std::string& arg = args_[index_];
      if (!optionsEnded && arg == "--") {
        optionsEnded = true;
      } else if (!optionsEnded && arg.rfind("--", 0) == 0) {
        LongOption(arg);
      } else if (opt().command == Command::None && positional.empty()) {
        CommandCluster(arg);
      } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
        ShortCluster(arg, 1);
      } else {
        positional.push_back(arg);
      }
    }
    if (result_.ok()) Finish(positional);
    return result_;
  }

 private:
  Options& opt() { return result_.options; }
  void Fail(const std::string& message) {
    if (result_.ok()) result_.error = message;
  }

  // The value of an option written as NAME=VALUE, or else the next argument.
  bool TakeValue(const std::string& inlineValue, bool hasInline, const std::string& what,
                 std::string* out) {
    if (hasInline) {
      *out = inlineValue;
    } else if (index_ + 1 < args_.size()) {
      *out = args_[++index_];
    } else {
      Fail("option " + what + " needs a value");
      return false;
    }
    if (out->empty()) Fail("option " + what + " needs a non-empty value");
    return !out->empty();
  }

  void LongOption(const std::string& arg) {
    const size_t eq = arg.find('=');
    const std::string name = arg.substr(0, eq);
    const bool hasValue = eq != std::string::npos;
    const std::string value = hasValue ? arg.substr(eq + 1) : std::string();
    const auto flag = [&](bool* target) {
      if (hasValue) Fail("option " + name + " takes no value");
      *target = true;
    };
    std::string text;
    if (name == "--help") flag(&opt().help);
    else if (name == "--version") flag(&opt().version);
    else if (name == "--quiet") flag(&opt().quiet);
    else if (name == "--force") flag(&opt().force);
    else if (name == "--ignore-paths") flag(&opt().ignorePaths);
    else if (name == "--json") flag(&opt().json);
    else if (name == "--output-dir") TakeValue(value, hasValue, name, &opt().outputDir);
    else if (name == "--module") TakeValue(value, hasValue, name, &opt().modulePath);
    else if (name == "--exclude") {
      if (TakeValue(value, hasValue, name, &text)) opt().excludes.push_back(text);
    } else if (name == "--method") {
      if (TakeValue(value, hasValue, name, &text) && !ParseMethodName(text, &opt().method))
        Fail("invalid method '" + text + "' (lh5, lh6 or lh7)");
    } else if (name == "--level") {
      if (TakeValue(value, hasValue, name, &text) && !ParseNumber(text, 1, 4, &opt().level))
        Fail("invalid level '" + text + "' (1 to 4; -z stores)");
    } else if (name == "--code-page") {
      if (TakeValue(value, hasValue, name, &text) && !ParseNumber(text, 1, 65535, &opt().codePage))
        Fail("invalid code page '" + text + "'");
    } else {
      Fail("unrecognized option '" + name + "'");
    }
  }

  void CommandCluster(const std::string& arg) {
    const size_t start = !arg.empty() && arg[0] == '-' ? 1 : 0;
    if (start >= arg.size()) {
      Fail("missing command");
      return;
    }
    const char letter = arg[start];
    for (const CommandLetter& c : kCommands) {
      if (c.Letter == letter) {
        opt().command = c.Value;
        opt().commandLetter = letter;
        ShortCluster(arg, start + 1);
        return;
      }
    }
    Fail(std::string("unknown command '") + arg.substr(start) + "'");
  }

  // Letters glued together: f i q z, o5..o7, l1..l4, header digits 0..2,
  // and w / x which take the rest after '=' or the next argument.
  void ShortCluster(const std::string& arg, size_t pos) {
    while (pos < arg.size() && result_.ok()) {
      const char c = arg[pos++];
      const char next = pos < arg.size() ? arg[pos] : '\0';
      switch (c) {
        case 'f': opt().force = true; break;
        case 'i': opt().ignorePaths = true; break;
        case 'q': opt().quiet = true; break;
        case 'z': opt().level = 0; break;
        case 'o':
          if (next < '5' || next > '7') Fail("option -o needs 5, 6 or 7 (as in -o6)");
          else opt().method = next - '0', ++pos;
          break;
        case 'l':
          if (next < '1' || next > '4') Fail("option -l needs a level from 1 to 4 (as in -l3)");
          else opt().level = next - '0', ++pos;
          break;
        case '0': case '1': case '2': opt().headerLevel = c - '0'; break;
        case 'w': case 'x': pos = ValueLetter(c, arg, pos); break;
        default:
          if (c >= '3' && c <= '9') Fail(std::string("header level ") + c + " does not exist (0, 1 or 2)");
          else Fail(std::string("unknown option '-") + c + "'");
      }
    }
  }

  size_t ValueLetter(char letter, const std::string& arg, size_t pos) {
    const bool hasInline = pos < arg.size();
    if (hasInline && arg[pos] != '=') {
      Fail(std::string("option -") + letter + " is written -" + letter + "=VALUE");
      return arg.size();
    }
    std::string value;
    const std::string what = std::string("-") + letter;
    if (TakeValue(hasInline ? arg.substr(pos + 1) : std::string(), hasInline, what, &value)) {
      if (letter == 'w') opt().outputDir = value;
      else opt().excludes.push_back(value);
    }
    return arg.size();
  }

  void Finish(std::vector<std::string>& positional) {
    if (opt().help || opt().version) return;
    if (opt().command == Command::None) {
      Fail("no command given");
      return;
    }
    if (positional.empty()) {
      Fail("no archive given");
      return;
    }
    opt().archive = positional.front();
    opt().names.assign(positional.begin() + 1, positional.end());
    const Command cmd = opt().command;
    if (IsWriteCommand(cmd) && opt().names.empty())
      Fail("nothing to add: name the files or directories");
    else if (cmd == Command::Delete && opt().names.empty())
      Fail("name the members to delete");
    else if (opt().json && cmd != Command::List && cmd != Command::Verbose)
      Fail("--json goes with the l and v commands");
    else if (!opt().outputDir.empty() && cmd != Command::Extract)
      Fail("-w names where x and e extract to; it does not apply here");
    if (IsWriteCommand(cmd) && (opt().headerLevel == 0 || opt().headerLevel == 2)) {
      result_.notes.push_back("header level " + std::to_string(opt().headerLevel) +
                              " requested; kzlha writes level-1 headers only");
    }
  }

  const std::vector<std::string>& args_;
  size_t index_ = 0;
  ParseResult result_;
};

}  // namespace

ParseResult ParseCommandLine(const std::vector<std::string>& args) { return Parser(args).Run(); }

bool IsWriteCommand(Command command) {
  return command == Command::Add || command == Command::Create || command == Command::Update ||
         command == Command::Move;
}

const char* UsageText() {
  return "Usage: kzlha COMMAND[OPTIONS] ARCHIVE [NAMES|FILES...]\n"
         "\n"
         "Commands (the classic LHA letters; a leading '-' is optional):\n"
         "  l  list members            v  list members with header levels\n"
         "  x  extract with paths      e  extract (same as x)\n"
         "  t  test members            p  print members to standard output\n"
         "  a  add or replace files    c  create the archive anew\n"
         "  u  update: add newer files only\n"
         "  m  move: add, then delete the sources once the archive is in place\n"
         "  d  delete members\n"
         "\n"
         "Options (glued to the command, as in 'xfw=out', or separate):\n"
         "  -w=DIR, --output-dir=DIR   extract into DIR\n"
         "  -f, --force                overwrite existing files without asking\n"
         "  -i, --ignore-paths         extract without the stored directories\n"
         "  -q, --quiet                no listing lines, progress or warnings\n"
         "  -o5 -o6 -o7, --method=lh5|lh6|lh7\n"
         "                             compression method to write (default lh5)\n"
         "  -z                         store files without compression (-lh0-)\n"
         "  -lN, --level=N             compression effort, 1 (fast) to 4 (small)\n"
         "  -x=PATTERN, --exclude=PATTERN\n"
         "                             leave matching files out when adding\n"
         "  0 1 2                      header level; kzlha writes level 1\n"
         "      --code-page=N          code page of member names (default 932)\n"
         "      --json                 with l or v: one JSON object per line\n"
         "      --module=PATH          the engine module to load\n"
         "      --help                 show this help\n"
         "      --version              show the version and the methods\n"
         "\n"
         "NAMES are member names or wildcard patterns ('*', '?'); a directory name\n"
         "selects everything below it. Without NAMES every member is selected.\n"
         "\n"
         "Exit status: 0 success, 1 some members failed, 2 usage error or the\n"
         "archive could not be opened, 130 interrupted.\n";
}

}  // namespace kzcli
