// Runs the launcher, either to its end or in the background.
#ifndef TAVO_TESTS_E2E_APPLIANCE_APPLIANCE_RUN_H
#define TAVO_TESTS_E2E_APPLIANCE_APPLIANCE_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {

// appliance run -- COMMAND
ProgramResult RunInside(const std::vector<std::string> &command);

// appliance run -- sh -c SCRIPT
ProgramResult RunScriptInside(const std::string &script);

// appliance ARGUMENTS
ProgramResult RunLauncher(std::vector<std::string> arguments,
                          const std::vector<std::string> &environment = {});

// Runs appliance run -- sh -c SCRIPT in the background, with a separate $TMPDIR.
class BackgroundRun {
  public:
    explicit BackgroundRun(const std::string &script);
    ~BackgroundRun();
    BackgroundRun(const BackgroundRun &) = delete;
    BackgroundRun &operator=(const BackgroundRun &) = delete;

    // The next line of its output, without the newline; "" at the end of the output.
    std::string ReadLine();
    // Waits a few seconds for the end of the output. Returns true if all processes have closed it.
    bool OutputEnds();

    // Sends a signal to the launcher.
    void Signal(int signal) const;
    // Waits for the launcher. Returns its exit status, or 128 + n if signal n ended it.
    int Wait();

    // The launcher's $TMPDIR and its entries.
    const std::string &TemporaryPath() const { return temporary_.Path(); }
    std::vector<std::string> Folders() const { return temporary_.Entries(); }

  private:
    TemporaryFolder temporary_;
    pid_t pid_ = 0;
    int output_ = -1;
};

}  // namespace tavo::test

#endif
