// The valid lines are those that sscanf accepts. sscanf would take as long as the rest of a check,
// though, so a line in the form that kernels write is parsed by hand, and sscanf reads only the
// others.
#include "check/socket_tables.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace tavo {
namespace {

constexpr int kFieldsKept = 3;

bool ScanLine(const char *line, RawSocketInfo &info) {
    unsigned short port = 0;
    unsigned int state = 0;
    unsigned long inode = 0;
    const int field_count = std::sscanf(line,
                                        "%*d: %*64[0-9A-Fa-f]:%hx %*64[0-9A-Fa-f]:%*X %X %*X:%*X "
                                        "%*X:%*X %*X %*d %*d %lu ",
                                        &port, &state, &inode);
    if (field_count != kFieldsKept) {
        return false;
    }
    info.uPort = port;
    info.uState = state;
    info.ulInode = inode;
    return true;
}

constexpr int HexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                  : -1;
}

// Reads the fields of a line one after the other. After the first unexpected field, IsGood is false
// and the line is not read further.
class FieldReader {
  public:
    explicit FieldReader(const char *line) : at_(line) {}

    bool IsGood() const { return good_; }

    void Blanks() {
        while (*at_ == ' ') {
            ++at_;
        }
    }

    void Char(char c) {
        good_ = good_ && *at_ == c;
        at_ += good_ ? 1 : 0;
    }

    // Reads a number of at most `max_digits` digits and the character after it.
    uint64_t Hex(int max_digits, char end) { return Number(16, max_digits, end); }
    uint64_t Decimal(int max_digits, char end) { return Number(10, max_digits, end); }

  private:
    uint64_t Number(uint64_t base, int max_digits, char end) {
        uint64_t value = 0;
        int digit_count = 0;
        for (; good_; ++at_, ++digit_count) {
            const int digit = HexDigit(*at_);
            if (digit < 0 || static_cast<uint64_t>(digit) >= base) {
                break;
            }
            good_ = digit_count < max_digits;
            value = value * base + static_cast<uint64_t>(digit);
        }
        good_ = good_ && digit_count > 0;
        Char(end);
        return value;
    }

    const char *at_;
    bool good_ = true;
};

// The numbers of digits that are sure to fit each type.
constexpr int kWordDigits = 8;      // 32 bits, hexadecimal
constexpr int kPortDigits = 4;      // 16 bits, hexadecimal
constexpr int kAddressDigits = 32;  // an IPv6 address
constexpr int kCountDigits = 9;     // 32 bits, decimal
constexpr int kInodeDigits = 19;    // 64 bits, decimal

bool ReadKernelLine(const char *line, RawSocketInfo &info) {
    FieldReader reader(line);
    reader.Blanks();
    reader.Decimal(kCountDigits, ':');  // slot
    reader.Char(' ');
    reader.Hex(kAddressDigits, ':');  // local address
    const uint64_t port = reader.Hex(kPortDigits, ' ');
    reader.Hex(kAddressDigits, ':');  // remote address and port
    reader.Hex(kPortDigits, ' ');
    const uint64_t state = reader.Hex(kWordDigits, ' ');
    reader.Hex(kWordDigits, ':');  // queues
    reader.Hex(kWordDigits, ' ');
    reader.Hex(kWordDigits, ':');  // timer
    reader.Hex(kWordDigits, ' ');
    reader.Hex(kWordDigits, ' ');  // retransmissions
    reader.Blanks();
    reader.Decimal(kCountDigits, ' ');  // uid
    reader.Blanks();
    reader.Decimal(kCountDigits, ' ');  // timeout
    const uint64_t inode = reader.Decimal(kInodeDigits, ' ');
    if (!reader.IsGood()) {
        return false;
    }
    info.uPort = static_cast<uint16_t>(port);
    info.uState = static_cast<uint32_t>(state);
    info.ulInode = inode;
    return true;
}

}  // namespace

bool SocketTableExists(const Place &here, const char *path) {
    if (path != nullptr && TLIBCFileExist(path) != 0) {
        return true;
    }
    TAVO_FAIL_AT(here, path == nullptr ? TLIBC_ERR_BAD_PARAMETER : TLIBC_ERR_NO_FILE,
                 "Failed to access File: %s (Not Exist)", path == nullptr ? "(null)" : path);
    return false;
}

OwnedNames ReadSocketTable(const Place &here, const char *path) {
    constexpr int kLines = 512;  // initial capacity
    TLIBCSzList *list = TLIBCSzListAlloc(kLines);
    if (list == nullptr) {
        TAVO_FAIL_ALLOC_AT(here, "pNetRecords");
        return nullptr;
    }
    const int read = TLIBCFileReadLines(path, &list);
    OwnedNames lines(list);
    if (read >= 0) {
        return lines;
    }
    if (TLIBCErrGet() == TLIBC_ERR_FILE_UNUSABLE) {
        TAVO_LOG_AT(here, "Failed to open File: %s\n", path);
    } else {
        TAVO_LOG_AT(here, "Failed to parse File: %s.[0x%04X]", path, TLIBCErrGet());
    }
    return nullptr;
}

bool ReadSocketLine(const char *line, RawSocketInfo &info) {
    return ReadKernelLine(line, info) || ScanLine(line, info);
}

// The kernel prints the 32-bit words of an address as numbers in host byte order. In memory the
// words are in network order.
SocketAddress ReadSocketAddress(const char *line) {
    constexpr std::size_t kWords = sizeof(in6_addr) / sizeof(uint32_t);
    SocketAddress address = {AF_UNSPEC, {}};
    const char *text = std::strchr(line, ':') + 1;
    text += std::strspn(text, " \t\r\n\v\f");
    const std::size_t digits = std::strcspn(text, ":");
    if (digits != kWordDigits && digits != kAddressDigits) {
        return address;
    }
    uint32_t words[kWords] = {};
    for (std::size_t i = 0; i < digits; ++i) {
        uint32_t &word = words[i / kWordDigits];
        word = word << 4 | static_cast<uint32_t>(HexDigit(text[i]));
    }
    std::memcpy(&address.bytes, words, sizeof(words));
    address.family = digits == kWordDigits ? AF_INET : AF_INET6;
    return address;
}

}  // namespace tavo
