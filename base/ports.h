// Limits of port numbers, which have 16 bits in TCP (RFC 9293) and UDP (RFC 768).
#ifndef TAVO_BASE_PORTS_H
#define TAVO_BASE_PORTS_H

namespace tavo {

inline constexpr unsigned int kHighestPort = 65535;
inline constexpr int kPortCount = int{kHighestPort} + 1;

}  // namespace tavo

#endif
