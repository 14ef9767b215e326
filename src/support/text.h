// Bounded texts: the one way to fill a fixed-size field, and the one way to read one.
#ifndef TAVO_SRC_SUPPORT_TEXT_H
#define TAVO_SRC_SUPPORT_TEXT_H

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace tavo {

// Copies `text` into a field, truncated to fit and always terminated.
template <std::size_t Size>
void CopyText(char (&field)[Size], std::string_view text) {
    const std::size_t length = std::min(text.size(), Size - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// The text of a field that a caller filled and may not have terminated.
template <std::size_t Size>
std::string_view FieldText(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

// The same as a C string.
template <std::size_t Size>
class FieldString {
  public:
    explicit FieldString(const char (&field)[Size]) { CopyText(text_, FieldText(field)); }
    const char *Get() const { return text_; }
    bool IsEmpty() const { return *text_ == '\0'; }

  private:
    char text_[Size + 1];
};

// Prints into a field, truncated to fit.
template <std::size_t Size>
__attribute__((format(printf, 2, 3))) void PrintText(char (&field)[Size], const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(field, Size, format, arguments) < 0) {
        field[0] = '\0';
    }
    va_end(arguments);
}

// A number in decimal.
class Decimal {
  public:
    explicit Decimal(uint64_t number) {
        *std::to_chars(text_, text_ + sizeof(text_) - 1, number).ptr = '\0';
    }
    const char *Get() const { return text_; }

  private:
    char text_[sizeof("18446744073709551615")];
};

// Cuts the piece up to the next `separator` from `rest`, in place. `rest` moves behind it, or
// becomes null after the last piece. Pieces may be empty.
inline char *CutPiece(char *&rest, char separator) {
    char *piece = rest;
    rest = std::strchr(rest, separator);
    if (rest != nullptr) {
        *rest++ = '\0';
    }
    return piece;
}

}  // namespace tavo

#endif
