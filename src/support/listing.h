// The entries of a directory, sorted by name.
//
// glob(3) could do the same with a pattern, but it frees the names twice when memory runs out.
#ifndef TAVO_SRC_SUPPORT_LISTING_H
#define TAVO_SRC_SUPPORT_LISTING_H

#include <dirent.h>

#include <cstdlib>

namespace tavo {

// The result of scandir, which sets errno on failure.
class Listing {
  public:
    explicit Listing(const char *szDirectory)
        : nEntries_(scandir(szDirectory, &ppEntries_, nullptr, alphasort)) {}
    ~Listing() {
        for (int i = 0; i < nEntries_; ++i) {
            std::free(ppEntries_[i]);
        }
        std::free(ppEntries_);
    }
    Listing(const Listing &) = delete;
    Listing &operator=(const Listing &) = delete;

    bool Failed() const { return nEntries_ < 0; }
    dirent **begin() const { return ppEntries_; }
    dirent **end() const { return ppEntries_ + (nEntries_ > 0 ? nEntries_ : 0); }

  private:
    dirent **ppEntries_ = nullptr;
    int nEntries_;
};

}  // namespace tavo

#endif
