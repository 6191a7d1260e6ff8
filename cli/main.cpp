// kzlha: the command-line host of the KzLha73 engine. It loads the engine
// module at run time and drives it through its exports only.
#include <cstdio>
#include <string>
#include <vector>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/engine.h"
#include "cli/session.h"

#ifndef KZLHA_VERSION
#define KZLHA_VERSION "0.0.0"
#endif

namespace {

void PrintVersion() {
  std::printf(
      "kzlha " KZLHA_VERSION "\n"
      "reads:  -lh0- -lh1- -lh4- -lh5- -lh6- -lh7- (header levels 0, 1 and 2)\n"
      "writes: -lh5- -lh6- -lh7- -lh0- (level-1 headers)\n");
}

}  // namespace

int main(int argc, char** argv) {
  using namespace kzcli;
  PrepareStandardStreams();
  const std::vector<std::string> args = ProgramArguments(argc, argv);
  const ParseResult parsed = ParseCommandLine(args);
  if (!parsed.ok()) {
    std::fprintf(stderr, "kzlha: %s\nTry 'kzlha --help' for more information.\n", parsed.error.c_str());
    return kExitUsage;
  }
  const Options& options = parsed.options;
  if (options.help) {
    std::fputs(UsageText(), stdout);
    return kExitOk;
  }
  if (options.version) {
    PrintVersion();
    return kExitOk;
  }
  if (!options.quiet) {
    for (const std::string& note : parsed.notes) std::fprintf(stderr, "kzlha: note: %s\n", note.c_str());
  }
  Engine engine;
  std::string failedPath, error;
  if (!LoadEngine(options.modulePath, &engine, &failedPath, &error)) {
    std::fprintf(stderr, "kzlha: %s: %s\n", failedPath.c_str(), error.c_str());
    return kExitUsage;
  }
  InstallInterruptHandler();
  const int code = RunCommand(engine.Api, options);
  // Unloading now would only unmap what the exit unmaps (about 3% of a
  // short run). The modules' destructors still run at exit.
  engine.Module->KeepLoaded();
  return code;
}
