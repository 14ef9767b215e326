// Runs programs like a user does, and measures their cost.
#ifndef TAVO_BENCH_RUN_COMMAND_H
#define TAVO_BENCH_RUN_COMMAND_H

#include <string>
#include <vector>

namespace tavo::bench {

// Processor time so far of this process and of the children that it has waited for.
double ProcessorSeconds();

// Runs a program, searched on the PATH if its name has no slash, and discards its output. Returns
// the exit status; -1 if the program could not be started or was killed.
int RunSilently(const std::vector<std::string> &command);

}  // namespace tavo::bench

#endif
