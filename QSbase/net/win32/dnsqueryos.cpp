#include <QSbase/net/dnsqueryos.h>

#include <QSbase/win32/windowsapi.h>

#include <winsock2.h>

#include <windns.h>

#include <memory>

namespace qsbase::detail {

namespace {

DnsRecord RecordOf(const DNS_RECORDA& entry) {
  DnsRecord record;
  record.type = entry.wType;
  record.dataLength = entry.wDataLength;
  record.inAnswer = entry.Flags.S.Section == DnsSectionAnswer;
  if (record.type == kDnsAddress && record.dataLength == sizeof record.address) {
    record.address = entry.Data.A.IpAddress;
  }
  return record;
}

}  // namespace

bool OsDottedAddress(const char* text, std::uint32_t& address) {
  address = inet_addr(text);
  return address != INADDR_NONE;
}

int OsDnsQuery(const char* name, std::vector<DnsRecord>& records) {
  DNS_RECORDA* list = nullptr;
  const DNS_STATUS status =
      DnsQuery_A(name, DNS_TYPE_A, DNS_QUERY_STANDARD, nullptr, reinterpret_cast<DNS_RECORD**>(&list), nullptr);
  const auto release = [](DNS_RECORDA* first) { DnsFree(first, DnsFreeRecordList); };
  const std::unique_ptr<DNS_RECORDA, decltype(release)> owner(list, release);
  if (status != 0) {
    return static_cast<int>(status);
  }
  for (const DNS_RECORDA* entry = list; entry != nullptr; entry = entry->pNext) {
    records.push_back(RecordOf(*entry));
  }
  return 0;
}

}  // namespace qsbase::detail
