/// \file
/// What host information asks of the operating system (internal). Twins: posix/hostinfoos.cpp, win32/hostinfoos.cpp.
/// Every function may be called from any thread, may change the last-error code and may throw std::bad_alloc.
#ifndef QSBASE_NET_HOSTINFOOS_H
#define QSBASE_NET_HOSTINFOOS_H

#include <string>
#include <vector>

namespace qsbase::detail {

/// Kinds of network adapters, by their numbers in the registry of interface types.
inline constexpr unsigned int kEthernetAdapter = 6;
inline constexpr unsigned int kWirelessAdapter = 71;  // IEEE 802.11
inline constexpr unsigned int kOtherAdapter = 1;

struct Adapter {
  std::string name;
  unsigned int kind = kOtherAdapter;
  bool hasUnicastAddress = false;
  std::vector<std::string> addresses;  ///< those of IPv4 and IPv6, in the system's order
  std::vector<unsigned char> hardwareAddress;
};

/// The host name. False on failure, LastSocketError() then has the reason.
bool OsHostName(std::string& name);

/// The name of the process's user, empty on failure.
std::string OsUserName();

/// The computer's name, empty on failure.
std::string OsComputerName();

/// Appends every network adapter. False on failure.
bool OsAdapters(std::vector<Adapter>& adapters);

}  // namespace qsbase::detail

#endif
