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
    explicit Listing(const char *directory)
        : count_(scandir(directory, &entries_, nullptr, alphasort)) {}
    ~Listing() {
        for (int i = 0; i < count_; ++i) {
            std::free(entries_[i]);
        }
        std::free(entries_);
    }
    Listing(const Listing &) = delete;
    Listing &operator=(const Listing &) = delete;

    bool Failed() const { return count_ < 0; }
    dirent **begin() const { return entries_; }
    dirent **end() const { return entries_ + (count_ > 0 ? count_ : 0); }

  private:
    dirent **entries_ = nullptr;
    int count_;
};

}  // namespace tavo

#endif
