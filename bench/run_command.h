// Runs programs as a user starts them, and measures what they cost.
#ifndef TAVO_BENCH_RUN_COMMAND_H
#define TAVO_BENCH_RUN_COMMAND_H

#include <string>
#include <vector>

namespace tavo::bench {

// Processor time so far of this process and of the children that it has waited for.
double ProcessorSeconds();

// Runs a program, looked up on the PATH when its name has no slash, and discards its output. The
// exit status; -1 where it could not be started or was killed.
int RunSilently(const std::vector<std::string> &command);

}  // namespace tavo::bench

#endif
