/// \file
/// The steps of host information between what the system tells and what the caller gets (internal). Any thread.
#ifndef QSBASE_NET_HOSTINFODETAIL_H
#define QSBASE_NET_HOSTINFODETAIL_H

#include <QSbase/net/dnsrecord.h>
#include <QSbase/net/hostinfo.h>
#include <QSbase/net/hostinfoos.h>

#include <cstddef>
#include <vector>

namespace qsbase::detail {

/// Those that QsGetAdapterInfoEx() tells of: Ethernet and Wi-Fi with a unicast address.
std::vector<QsAdapterInfoEx> ListedAdapters(std::vector<Adapter> adapters);

/// How many numbers DNSQuery() returns; the last is always 0.
inline constexpr std::size_t kDnsSlots = 20;

/// Puts the addresses of the records, in their order, into the kDnsSlots numbers at \p addresses and gives their count.
/// Ends before the first record whose data have another length than an address, aliases apart. Logs each address
/// as one of \p name.
std::size_t TakeDnsAddresses(const char* name, const std::vector<DnsRecord>& records, int* addresses);

}  // namespace qsbase::detail

#endif
