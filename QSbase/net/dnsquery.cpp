#include <QSbase/net/hostinfo.h>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/dnsqueryos.h>
#include <QSbase/net/hostinfodetail.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

using qsbase::detail::DnsRecord;

namespace {

constexpr int kDetail = 3;
constexpr unsigned int kLogInfo3 = 0x10000003;
constexpr unsigned int kLogError3 = qsbase::detail::kLogError | 3U;

bool IsDetailed() { return QsGetLogLevel() >= kDetail; }

/// What holds data of another length than an address. An alias does not count, whatever its length: the addresses of
/// its name follow it.
bool EndsList(const DnsRecord& record) {
  const bool alias = record.type == qsbase::detail::kDnsAlias || record.type == qsbase::detail::kDnsTreeAlias;
  return !alias && record.dataLength != 4;
}

void LogAddress(const char* name, std::uint32_t networkOrder) {
  if (!IsDetailed()) {
    return;
  }
  unsigned char bytes[4];
  std::memcpy(bytes, &networkOrder, sizeof bytes);
  unsigned long hostOrder = 0;
  for (const unsigned char byte : bytes) {
    hostOrder = hostOrder << 8U | byte;
  }
  QsLogMsg(kLogInfo3, "DNS: A record for %s: %s", name, IPAddress2String(hostOrder).c_str());
}

void LogFailure(const char* name, int code) {
  const bool expected = code == qsbase::detail::kDnsNoSuchName || code == qsbase::detail::kDnsNoRecords;
  if (!expected) {
    QsLogMsg(kLogError3, "DNS: %s - %s", name, QsErrorMessage(code).c_str());
  } else if (IsDetailed()) {
    QsLogMsg(kLogInfo3, "DNS: %s - %s", name, QsErrorMessage(code).c_str());
  }
}

void LookUp(const char* name, int* addresses) {
  std::vector<DnsRecord> records;
  const int code = qsbase::detail::OsDnsQuery(name, records);
  if (code != 0) {
    LogFailure(name, code);
  } else if (qsbase::detail::TakeDnsAddresses(name, records, addresses) == 0 && IsDetailed()) {
    QsLogMsg(kLogInfo3, "DNS: No records found for %s", name);
  }
}

/// False without memory for the look-up.
bool LookUpWithinMemory(const char* name, int* addresses) {
  try {
    LookUp(name, addresses);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

namespace qsbase::detail {

std::size_t TakeDnsAddresses(const char* name, const std::vector<DnsRecord>& records, int* addresses) {
  std::size_t count = 0;
  for (const DnsRecord& record : records) {
    if (EndsList(record) || count == kDnsSlots - 1) {
      break;
    }
    if (record.type == kDnsAddress && record.inAnswer) {
      addresses[count++] = static_cast<int>(record.address);
      LogAddress(name, record.address);
    }
  }
  return count;
}

}  // namespace qsbase::detail

int* DNSQuery(const char* name) {
  if (name == nullptr) {
    return nullptr;
  }
  std::unique_ptr<int[]> addresses(new (std::nothrow) int[qsbase::detail::kDnsSlots]());
  if (addresses == nullptr) {
    return nullptr;
  }
  std::uint32_t address = 0;
  if (!qsbase::detail::OsDottedAddress(name, address)) {
    return LookUpWithinMemory(name, addresses.get()) ? addresses.release() : nullptr;
  }
  addresses[0] = static_cast<int>(address);
  if (IsDetailed()) {
    QsLogMsg(kLogInfo3, "DNS: host %s is already an IP address", name);
  }
  return addresses.release();
}

void FreeDNSQuery(int* result) { delete[] result; }
