/// \file
/// What the look-up of host names asks of the operating system (internal). Twins: posix/dnsqueryos.cpp,
/// win32/dnsqueryos.cpp. Any thread may call these functions; they may change the last-error code.
#ifndef QSBASE_NET_DNSQUERYOS_H
#define QSBASE_NET_DNSQUERYOS_H

#include <QSbase/net/dnsrecord.h>

#include <cstdint>
#include <vector>

namespace qsbase::detail {

/// Whether `inet_addr` takes the text as an address; if so, \p address is it in network byte order.
bool OsDottedAddress(const char* text, std::uint32_t& address);

/// Appends the records of \p name to \p records: what the hosts file has, else the answer to a query of type A with
/// search domains as the system is configured. Blocks. May throw std::bad_alloc.
/// \returns 0, or why there is none, as QsErrorMessage() takes it: kDnsNoSuchName, kDnsNoRecords or another.
int OsDnsQuery(const char* name, std::vector<DnsRecord>& records);

}  // namespace qsbase::detail

#endif
