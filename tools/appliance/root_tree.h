// The root of one run: a copy of the template that belongs to the run alone.
#ifndef TAVO_TOOLS_APPLIANCE_ROOT_TREE_H
#define TAVO_TOOLS_APPLIANCE_ROOT_TREE_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tavo {

// A file of the host to be placed into the appliance.
struct ExtraFile {
    std::filesystem::path source;
    std::filesystem::path target;  // absolute, as seen inside, its folder without links
};

// Reads SOURCE:TARGET, or a SOURCE alone, which goes where packages keep their service files.
// Throws where the source is no file or the target would not end up in the copy of the template in
// `share`.
ExtraFile ParseExtraFile(const std::string &text, const std::filesystem::path &share);

class RootTree {
  public:
    // A fresh folder, removed at the end: below $TMPDIR where that is set, else in memory where
    // programs may run there, else below /tmp.
    RootTree();
    // `folder`, empty or absent, which stays. Throws where it holds anything.
    explicit RootTree(const std::filesystem::path &folder);
    ~RootTree();
    RootTree(const RootTree &) = delete;
    RootTree &operator=(const RootTree &) = delete;

    const std::filesystem::path &Path() const { return root_; }

    // Copies the template in `share` (the tree "root" and the list "folders"), without the links to
    // programs that the host lacks.
    void Fill(const std::filesystem::path &share) const;

    // Copies a file in, in place of what has its name.
    void Place(const ExtraFile &file) const;

  private:
    std::filesystem::path temporary_;  // empty when the tree is to stay
    std::filesystem::path root_;
};

}  // namespace tavo

#endif
