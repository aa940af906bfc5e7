/// \file
/// Reads the answer of a name server (internal; RFC 1035, 4.1). Portable; the library needs it where the system hands
/// over the packet. Any thread.
#ifndef QSBASE_NET_DNSREPLY_H
#define QSBASE_NET_DNSREPLY_H

#include <QSbase/net/dnsrecord.h>

#include <cstddef>
#include <vector>

namespace qsbase::detail {

/// Appends the records of the answer section to \p records, in their order; a record that is not of the Internet class
/// has type 0. The packet may come from anyone: nothing outside of it is read, no compressed name is followed, and the
/// records take no more memory than a small multiple of its size.
/// \returns 0; kDnsBadPacket when it is none, or ends too early, with \p records as they were; else 9000 and the
///   server's code; kDnsNoRecords when the answer section is empty.
int ReadDnsReply(const unsigned char* reply, std::size_t size, std::vector<DnsRecord>& records);

/// The failure that the header of \p reply tells: 9000 and the server's code, 0 when it tells none or is no reply.
int DnsReplyFailure(const unsigned char* reply, std::size_t size);

}  // namespace qsbase::detail

#endif
