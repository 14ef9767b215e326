// The root of one run: a private copy of the template.
#ifndef TAVO_TOOLS_APPLIANCE_ROOT_TREE_H
#define TAVO_TOOLS_APPLIANCE_ROOT_TREE_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tavo {

// A file of the host to be placed in the appliance.
struct ExtraFile {
    std::filesystem::path source;
    std::filesystem::path target;  // absolute path inside; its folder contains no links
};

// Parses SOURCE:TARGET, or SOURCE alone, whose target is the folder of the packages' service files.
// Throws if the source is not a file or the target would be outside the copy of the template in
// `share`.
ExtraFile ParseExtraFile(const std::string &text, const std::filesystem::path &share);

class RootTree {
  public:
    // A new folder, removed at the end: below $TMPDIR if that is set, else in memory if programs
    // may run there, else below /tmp.
    RootTree();
    // `folder`, which must be empty or absent, and is kept. Throws if it contains anything.
    explicit RootTree(const std::filesystem::path &folder);
    ~RootTree();
    RootTree(const RootTree &) = delete;
    RootTree &operator=(const RootTree &) = delete;

    const std::filesystem::path &Path() const { return root_; }

    // Copies the template in `share` (the tree "root" and the list "folders"), without the links to
    // programs that the host lacks.
    void Fill(const std::filesystem::path &share) const;

    // Copies a file into the tree and replaces an existing file.
    void Place(const ExtraFile &file) const;

  private:
    std::filesystem::path temporary_;  // empty if the tree is kept
    std::filesystem::path root_;
};

}  // namespace tavo

#endif
