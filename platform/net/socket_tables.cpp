// A table is a header and a line for each socket:
//
//    sl  local_address rem_address   st tx_queue rx_queue ...
//     0: 00000000:0016 00000000:0000 0A 00000000:00000000 ...
//
// The addresses have 8 hexadecimal digits for IPv4 and 32 for IPv6. The kernel returns one page at
// a time, so the table is read in pieces and never stored completely, whatever its size.
#include "socket_tables.h"

#include <fcntl.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "base/descriptor.h"

namespace tavo {
namespace {

constexpr char kBlanks[] = " \t";

// Removes the first word from the line; empty if there is none.
std::string_view TakeWord(std::string_view &line) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    return word;
}

bool IsHex(std::string_view digits) {
    return digits.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

// The value of exactly `width` hexadecimal digits.
std::optional<unsigned int> Hex(std::string_view digits, std::size_t width) {
    unsigned int value = 0;
    if (digits.size() != width || !IsHex(digits)) {
        return std::nullopt;
    }
    std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return value;
}

// The port of ADDRESS:PORT.
std::optional<unsigned int> PortOf(std::string_view word) {
    const std::size_t colon = word.find(':');
    if ((colon != 8 && colon != 32) || !IsHex(word.substr(0, colon))) {
        return std::nullopt;
    }
    return Hex(word.substr(colon + 1), 4);
}

void MarkLine(std::string_view line, PortSet &ports) {
    const std::optional<SocketEntry> entry = ParseSocketLine(line);
    if (entry && entry->state != TCP_TIME_WAIT) {
        ports[entry->port] = true;
    }
}

// Assembles the lines of a table. The kernel writes no line that is longer than the buffer; such a
// line is ignored.
class LineReader {
  public:
    explicit LineReader(PortSet &ports) : ports_(ports) {}

    // Reads the table to its end. Returns false on failure.
    bool ReadAll(int table) {
        for (;;) {
            const ssize_t got = Uninterrupted(
                [&] { return read(table, buffer_ + used_, sizeof(buffer_) - used_); });
            if (got <= 0) {
                TakeLine({buffer_, used_});  // the last line, if it has no newline
                return got == 0;
            }
            used_ += static_cast<std::size_t>(got);
            TakeLines();
        }
    }

  private:
    // Processes the complete lines and moves the rest to the start of the buffer.
    void TakeLines() {
        std::string_view rest(buffer_, used_);
        for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos;) {
            TakeLine(rest.substr(0, end));
            rest.remove_prefix(end + 1);
        }
        const bool too_long = rest.size() == sizeof(buffer_);
        used_ = too_long ? 0 : rest.size();
        passing_over_ = passing_over_ || too_long;
        std::memmove(buffer_, rest.data(), used_);
    }

    void TakeLine(std::string_view line) {
        if (!passing_over_) {
            MarkLine(line, ports_);
        }
        passing_over_ = false;
    }

    PortSet &ports_;
    std::size_t used_ = 0;
    bool passing_over_ = false;
    char buffer_[8192];
};

enum class Table { kRead, kAbsent, kUnreadable };

Table ReadTable(const char *path, PortSet &ports) {
    const Descriptor table(Uninterrupted([&] { return open(path, O_RDONLY | O_CLOEXEC); }));
    if (!table.IsOpen()) {
        return errno == ENOENT ? Table::kAbsent : Table::kUnreadable;
    }
    return LineReader(ports).ReadAll(table.Get()) ? Table::kRead : Table::kUnreadable;
}

}  // namespace

std::optional<SocketEntry> ParseSocketLine(std::string_view line) {
    if (!TakeWord(line).ends_with(':')) {
        return std::nullopt;
    }
    const auto local = PortOf(TakeWord(line));
    const auto remote = PortOf(TakeWord(line));
    const auto state = Hex(TakeWord(line), 2);
    if (!local || !remote || !state) {
        return std::nullopt;
    }
    return SocketEntry{static_cast<std::uint16_t>(*local), *state};
}

bool ReadSocketTables(const SocketTables &tables, PortSet &ports) {
    const Table ipv4 = ReadTable(tables.ipv4, ports);
    const Table ipv6 = ReadTable(tables.ipv6, ports);
    if (ipv4 == Table::kUnreadable || ipv6 == Table::kUnreadable) {
        return false;
    }
    return ipv4 == Table::kRead || ipv6 == Table::kRead;
}

}  // namespace tavo
