/// \file
/// This machine's names and network adapters, the look-up of host names, and IPv4 addresses as texts and numbers.
///
/// Every function may be called from any thread; nothing is cached, each call asks the system afresh. An IPv4 number is
/// an `unsigned long` in host byte order, the first dotted number the high byte; what an `unsigned long` holds above 32
/// bits is left out. On Windows the host name and the texts of addresses come from Windows Sockets: InitQsSocket(1)
/// comes first.
#ifndef QSBASE_NET_HOSTINFO_H
#define QSBASE_NET_HOSTINFO_H

#include <string>
#include <vector>

#include <QSbase/export.h>

/// A network adapter.
struct QsAdapterInfoEx {
  /// The system's name of it: "eth0" on Linux, a GUID in braces on Windows.
  std::string adapterName;
  /// Each unicast address as text, IPv4 and IPv6 alike, in the system's order. A link-local IPv6 address has its scope
  /// behind it: "fe80::1%eth0" on Linux, "fe80::1%4" on Windows.
  std::vector<std::string> addresses;
  /// The hardware address, two lower-case hex digits a byte: "00-1a-2b-3c-4d-5e". Empty when the adapter has none.
  std::string macAddress;
};

/// The host name as the system has it, at most 255 bytes; it may or may not hold a domain.
/// "127.0.0.1" when the system does not tell, with a warning (flag word 0x20000003) "gethostname failed - setting
/// hostname to '127.0.0.1' (%s)" and the text of the socket error.
QSBASE_API std::string QsGetHostName();

/// Exactly what QsGetHostName() returns: no domain is looked up.
QSBASE_API std::string QsGetFQDName();

/// The name of the user that the process runs as (on Linux of its effective user id), else "anon".
QSBASE_API std::string QsGetUserName();

/// The computer's name: on Linux the host name up to its first ".", on Windows the NetBIOS name of at most 15
/// characters. Else "anon".
QSBASE_API std::string QsGetComputerName();

/// Replaces `adapters` by the Ethernet and Wi-Fi adapters that have at least one unicast address, in the system's
/// order. Loopback, tunnels and other kinds are left out; what the system presents as Ethernet (bridges, virtual pairs)
/// is not.
/// \returns false when the system does not tell, with `adapters` empty. No adapter at all is still true.
QSBASE_API bool QsGetAdapterInfoEx(std::vector<QsAdapterInfoEx>& adapters);

/// Whether `ip` is, as text, an address of an adapter that QsGetAdapterInfoEx() lists. "127.0.0.1" is without looking;
/// other addresses of the loopback are not.
QSBASE_API bool QsIsOwnIPAddress(const std::string& ip);

/// The name of the first adapter that has the address `ip` (compared as text), empty when none has.
QSBASE_API std::string QsGetDevFromIP(const std::string& ip);

/// The first address of the first adapter of this name, empty when there is none. It may be an IPv6 address.
QSBASE_API std::string QsGetIPFromDev(const std::string& dev);

/// Looks up the IPv4 addresses of a host name, as the system is configured to: hosts file, search domains and name
/// servers (on Linux `/etc/hosts`, then what `/etc/resolv.conf` says). Aliases are followed. Blocks until the name
/// servers have answered or are given up.
///
/// On Linux QsThread::Kill() ends a thread that waits here for a server, whose socket stays open. Mind: in the moments
/// before and after the wait the C library holds a lock of its own, and a thread that is killed in one leaves every
/// later look-up of the process waiting.
///
/// A dotted address ("10.0.0.1", and the shorter and other forms that `inet_addr` takes) is not looked up.
///
/// \returns an array of 20 numbers, to be released with FreeDNSQuery(): up to 19 addresses in network byte order, in
///   the order of the answer, then zeros. All zero when there is none, or on a failure: **who takes the first number
///   unseen gets 0, any address**. Null only for a null `name` or without memory.
///
/// Log texts: at log level 3 or more, as info of level 3, "DNS: host %s is already an IP address", "DNS: A record for
/// %s: %s", "DNS: No records found for %s", and "DNS: %s - %s" for the codes 9003 (there is no such name) and 9501
/// (it has no address); any other failure is always logged as an error (flag word 0x40000003) "DNS: %s - %s". On Linux
/// its code is 9001, 9002, 9004 or 9005 as the server said, 9502 for an answer that cannot be read, 9560 for what
/// cannot be a name, or the system's error when no server answers. QsErrorMessage() has all their texts. The other
/// codes of servers, 9006 to 9015, are no answer to a query and have none.
///
/// \code
/// int* addresses = DNSQuery("www.example.com");
/// for (int i = 0; addresses != nullptr && addresses[i] != 0; ++i) {
///   ...  // addresses[i] is what sockaddr_in::sin_addr takes
/// }
/// FreeDNSQuery(addresses);
/// \endcode
QSBASE_API int* DNSQuery(const char* name);

/// Releases what DNSQuery() returned; null is taken too.
QSBASE_API void FreeDNSQuery(int* result);

/// "192.168.0.1" for 3232235521.
QSBASE_API std::string IPAddress2String(const unsigned long& ip);

/// 3232235521 for "192.168.0.1". Four decimal numbers up to 255, with leading zeros or without, joined by ".". An empty
/// one counts as 0: "1..2.3" is 1.0.2.3, and "..." is 0.0.0.0.
/// \throws ExBase "`ip` is not a valid IP address" for anything else.
QSBASE_API unsigned long IPAddress2Numeric(const std::string& ip);

/// Whether the address is in 10.0.0.0/8, 172.16.0.0/12 or 192.168.0.0/16 (RFC 1918) or 127.0.0.0/8: loopback counts as
/// private here.
QSBASE_API bool IsPrivateIP(const unsigned long& ip);

/// True for every text that IPAddress2Numeric() takes.
/// \throws ExBase as IPAddress2Numeric() does, **instead of returning false**.
QSBASE_API bool QsIsValidIP(const std::string& ip);

/// Always true: every number is an address.
QSBASE_API bool QsIsValidIP(const unsigned long& ip);

#endif
