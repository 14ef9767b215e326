// Splitting, trimming, lowering and growing of strings. All functions work on bytes and ASCII only,
// so that a file has the same meaning in every locale.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "config_lines.h"
#include "core_support.h"

namespace {

// Iterates over the pieces of a text between any of the separators, including empty ones.
class PieceWalker {
  public:
    PieceWalker(const char *text, const char *separators) : rest_(text), separators_(separators) {}

    bool Next(std::string_view &piece) {
        if (rest_ == nullptr) {
            return false;
        }
        piece = {rest_, std::strcspn(rest_, separators_)};
        const char *end = rest_ + piece.size();
        rest_ = *end == '\0' ? nullptr : end + 1;
        return true;
    }

  private:
    const char *rest_;
    const char *separators_;
};

int PushPieces(const char *text, const char *separators, TLIBCSzList **list, bool keep_empty) {
    if (text == nullptr || separators == nullptr || list == nullptr || *list == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const int before = TLIBCSzListCount(*list);
    PieceWalker pieces(text, separators);
    for (std::string_view piece; pieces.Next(piece);) {
        if (piece.empty() && !keep_empty) {
            continue;
        }
        if (tavo::ListPush(*list, piece) < 0) {
            tavo::ListShorten(*list, before);
            return -1;
        }
    }
    return TLIBCSzListCount(*list) - before;
}

// Copies `text`, which may be in the buffer itself.
void Store(std::string_view text, char *buffer) {
    if (!text.empty()) {
        std::memmove(buffer, text.data(), text.size());
    }
    buffer[text.size()] = '\0';
}

bool Fits(std::string_view text, int size) {
    return text.size() < static_cast<std::size_t>(size);
}

// The length of the text in a block of `size` bytes; -1 if it is not terminated.
int TextLength(const char *block, int size) {
    if (block == nullptr) {
        return 0;
    }
    const void *end = size < 1 ? nullptr : std::memchr(block, '\0', static_cast<std::size_t>(size));
    return end == nullptr ? -1 : static_cast<int>(static_cast<const char *>(end) - block);
}

}  // namespace

namespace tavo {

MallocPtr<char> CopyText(std::string_view text) {
    MallocPtr<char> copy(static_cast<char *>(std::malloc(text.size() + 1)));
    if (copy) {
        Store(text, copy.get());
    }
    return copy;
}

}  // namespace tavo

int TLIBCStrTok(const char *szText, const char *szSeparators, TLIBCSzList **ppList) {
    return PushPieces(szText, szSeparators, ppList, false);
}

int TLIBCStrSep(const char *szText, const char *szSeparators, TLIBCSzList **ppList) {
    return PushPieces(szText, szSeparators, ppList, true);
}

int TLIBCStrTokIndex(const char *szText, const char *szSeparators, int nIndex, char *szBuf,
                     int cbBuf) {
    if (szText == nullptr || szSeparators == nullptr || nIndex < 0 || szBuf == nullptr ||
        cbBuf < 1) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    PieceWalker pieces(szText, szSeparators);
    for (std::string_view piece; pieces.Next(piece);) {
        if (piece.empty() || nIndex-- > 0) {
            continue;
        }
        if (!Fits(piece, cbBuf)) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_BUFFER_TOO_SMALL);
        }
        Store(piece, szBuf);
        return 1;
    }
    *szBuf = '\0';
    return 0;
}

int TLIBCStrTrimSpace(char *szText) {
    if (szText == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const std::string_view text(szText);
    if (!text.empty() && (tavo::IsBlank(text.front()) || tavo::IsBlank(text.back()))) {
        Store(tavo::TrimBlanks(text), szText);
    }
    return 0;
}

int TLIBCStrCaseLower(const char *szText, char *szBuf, int cbBuf) {
    if (szText == nullptr || szBuf == nullptr || cbBuf < 1) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const std::string_view text(szText);
    if (!Fits(text, cbBuf)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BUFFER_TOO_SMALL);
    }
    std::transform(text.begin(), text.end(), szBuf, tavo::Lowered);
    szBuf[text.size()] = '\0';
    return 0;
}

int TLIBCStrCat(char **pszBuffer, int *pcbBuffer, const char *szText) {
    if (pszBuffer == nullptr || pcbBuffer == nullptr || szText == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const int size = *pszBuffer == nullptr ? 0 : *pcbBuffer;
    const int length = TextLength(*pszBuffer, size);
    if (length < 0) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const std::string_view added(szText);
    if (added.size() >= static_cast<std::size_t>(INT_MAX - length)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    const int needed = length + static_cast<int>(added.size()) + 1;
    tavo::MallocPtr<char> outgrown;  // freed last: szText may be in it
    if (*pszBuffer == nullptr || needed > size) {
        char *block = nullptr;
        const int room = std::max(needed, tavo::Doubled(size));
        if (!tavo::Resize(block, room)) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
        }
        Store({*pszBuffer, static_cast<std::size_t>(length)}, block);
        outgrown.reset(std::exchange(*pszBuffer, block));
        *pcbBuffer = room;
    }
    Store(added, *pszBuffer + length);
    return 0;
}

char *TLIBCStrGet(const char *szFormat, ...) {
    if (szFormat == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, szFormat);
    const int length = vasprintf(&text, szFormat, arguments);
    va_end(arguments);
    if (length < 0) {
        return TAVO_PLATFORM_FAIL(errno == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_BAD_PARAMETER);
    }
    return text;
}

void TLIBCStrPut(char *szText) {
    std::free(szText);
}
