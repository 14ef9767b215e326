// Copies of texts, which live as long as the records that point to them.
#ifndef TAVO_SRC_SUPPORT_KEPT_TEXTS_H
#define TAVO_SRC_SUPPORT_KEPT_TEXTS_H

#include <cstdlib>
#include <cstring>

#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

class KeptTexts {
  public:
    KeptTexts() = default;
    ~KeptTexts() {
        for (char *text : texts_) {
            std::free(text);
        }
    }
    KeptTexts(KeptTexts &&other) = default;
    KeptTexts &operator=(KeptTexts &&other) = default;
    KeptTexts(const KeptTexts &) = delete;
    KeptTexts &operator=(const KeptTexts &) = delete;

    // Returns null when out of memory.
    const char *Keep(const char *text) {
        OwnedText copy(strdup(text));
        return copy != nullptr && texts_.Append(copy.get()) ? copy.release() : nullptr;
    }

  private:
    GrowingArray<char *> texts_;
};

}  // namespace tavo

#endif
