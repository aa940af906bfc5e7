/// \file
/// Records and codes of the domain name system (internal; RFC 1035).
#ifndef QSBASE_NET_DNSRECORD_H
#define QSBASE_NET_DNSRECORD_H

#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

// Types of records.
inline constexpr std::uint16_t kDnsAddress = 1;
inline constexpr std::uint16_t kDnsAlias = 5;
inline constexpr std::uint16_t kDnsTreeAlias = 39;  // DNAME, RFC 6672

// Failures, by their numbers on Windows; on Linux QsErrorMessage() has their texts, too. What a server answers is 9000
// and its code.
inline constexpr int kDnsFormatError = 9001;
inline constexpr int kDnsServerFailure = 9002;
inline constexpr int kDnsNoSuchName = 9003;
inline constexpr int kDnsNotImplemented = 9004;
inline constexpr int kDnsRefused = 9005;
inline constexpr int kDnsNoRecords = 9501;
inline constexpr int kDnsBadPacket = 9502;
inline constexpr int kDnsInvalidName = 9560;

struct DnsRecord {
  std::uint16_t type = 0;
  std::size_t dataLength = 0;
  bool inAnswer = false;      ///< in the answer section, not one of the others
  std::uint32_t address = 0;  ///< of an address record with 4 bytes of data, in network byte order
};

}  // namespace qsbase::detail

#endif
