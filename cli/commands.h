// The commands, one function each; every one returns the exit status.
#pragma once

#include "cli/args.h"
#include "cli/engine.h"

namespace kzcli {

class Session;

int ListCommand(Session& session);                       // l, v
int ExtractCommand(Session& session);                    // x, e
int TestCommand(Session& session);                       // t
int PrintCommand(Session& session);                      // p
int AddCommand(Session& session);                        // a, c, u, m
int DeleteCommand(Session& session);                     // d

// Opens the archive and runs the command the options name.
int RunCommand(const EngineApi& api, const Options& options);

}  // namespace kzcli
