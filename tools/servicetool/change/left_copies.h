// The library copies a file to a name of its own before it puts it into its place. Where that fails
// the copy stays, for whoever wants to know why.
#ifndef TAVO_SERVICETOOL_CHANGE_LEFT_COPIES_H
#define TAVO_SERVICETOOL_CHANGE_LEFT_COPIES_H

#include <string>
#include <vector>

#include "change/installed_file.h"
#include "output/report.h"

namespace tavo::tool {

class LeftCopies {
  public:
    // To be made before the file is installed. Throws std::system_error when the folder of copies
    // cannot be listed.
    explicit LeftCopies(const InstalledFile &file);

    // Tells which copies have come since.
    void Tell(Report &report) const;

  private:
    static void Warn(const std::string &path, const std::string &what, const std::string &fix,
                     Report &report);

    std::string folder_;
    std::string beginning_;  // of their names
    std::vector<std::string> earlier_;
};

}  // namespace tavo::tool

#endif
