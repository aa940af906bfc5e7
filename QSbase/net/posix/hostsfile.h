/// \file
/// Reads the hosts file (internal; hosts(5)). Any thread.
#ifndef QSBASE_NET_POSIX_HOSTSFILE_H
#define QSBASE_NET_POSIX_HOSTSFILE_H

#include <QSbase/net/dnsrecord.h>

#include <cstdio>
#include <string_view>
#include <vector>

namespace qsbase::detail {

/// Appends an address record for each line of the file that gives \p name, in whatever case, an IPv4 address; a dot at
/// the end of \p name is left out. Lines above 16 KiB are skipped, and behind the 19th address found nothing is read.
void ReadHostsFile(std::FILE* file, std::string_view name, std::vector<DnsRecord>& records);

}  // namespace qsbase::detail

#endif
