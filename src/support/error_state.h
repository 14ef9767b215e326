// Saves the error state across calls that change it.
#ifndef TAVO_SRC_SUPPORT_ERROR_STATE_H
#define TAVO_SRC_SUPPORT_ERROR_STATE_H

#include "support/text.h"
#include "tavocore.h"

namespace tavo {

// The error state at the time of construction.
class ErrorState {
  public:
    ErrorState() : code_(TLIBCErrGet()), line_(TLIBCErrorGetLine()) {
        CopyText(file_, TLIBCErrorGetFile());
    }

    void Restore() const { TLIBCErrSetEx(code_, file_, line_); }

  private:
    unsigned int code_;
    int line_;
    char file_[256];
};

}  // namespace tavo

#endif
