#include <QSbase/net/hostinfoos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/killguard.h>

#include <ifaddrs.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace qsbase::detail {

namespace {

constexpr std::size_t kLongestUserRecord = std::size_t{1} << 20;

using AddressList = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

/// An entry's address, if it is of this family. Copied: the bytes need not be aligned for it.
template <class Address>
bool AddressOf(const ifaddrs& entry, int family, Address& address) {
  if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != family) {
    return false;
  }
  std::memcpy(&address, entry.ifa_addr, sizeof address);
  return true;
}

unsigned int KindOf(const sockaddr_ll& link) {
  switch (link.sll_hatype) {
    case ARPHRD_ETHER:  // what Wi-Fi adapters show, too, unless they only listen
      return kEthernetAdapter;
    case ARPHRD_IEEE80211:
    case ARPHRD_IEEE80211_PRISM:
    case ARPHRD_IEEE80211_RADIOTAP:
      return kWirelessAdapter;
    default:
      return kOtherAdapter;
  }
}

Adapter AdapterOf(const char* name, const sockaddr_ll& link) {
  Adapter adapter;
  adapter.name = name;
  adapter.kind = KindOf(link);
  const std::size_t length = std::min<std::size_t>(link.sll_halen, sizeof link.sll_addr);
  adapter.hardwareAddress.assign(link.sll_addr, link.sll_addr + length);
  return adapter;
}

std::string AddressText(const sockaddr& address, std::size_t length) {
  char text[NI_MAXHOST];
  const int result =
      getnameinfo(&address, static_cast<socklen_t>(length), text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return result == 0 ? text : "";
}

/// Empty for an entry that is no address of the two families.
std::string UnicastAddressOf(const ifaddrs& entry) {
  sockaddr_in ip4{};
  if (AddressOf(entry, AF_INET, ip4)) {
    return AddressText(*entry.ifa_addr, sizeof ip4);
  }
  sockaddr_in6 ip6{};
  return AddressOf(entry, AF_INET6, ip6) ? AddressText(*entry.ifa_addr, sizeof ip6) : "";
}

/// An address may carry a label in the place of its adapter's name: "eth0:1".
std::string AdapterNameOf(const ifaddrs& entry) {
  const std::string label = entry.ifa_name;
  return label.substr(0, label.find(':'));
}

void AddAddress(const ifaddrs& entry, std::vector<Adapter>& adapters) {
  const std::string text = UnicastAddressOf(entry);
  if (text.empty()) {
    return;
  }
  const std::string name = AdapterNameOf(entry);
  const auto named = [&name](const Adapter& adapter) { return adapter.name == name; };
  const auto adapter = std::find_if(adapters.begin(), adapters.end(), named);
  if (adapter != adapters.end()) {
    adapter->hasUnicastAddress = true;
    adapter->addresses.push_back(text);
  }
}

}  // namespace

bool OsHostName(std::string& name) {
  char buffer[256] = "";
  if (gethostname(buffer, sizeof buffer - 1) != 0) {
    return false;
  }
  name = buffer;
  return true;
}

std::string OsUserName() {
  const CancelGuard noCancellation;
  const KillGuard guard;  // the user database has locks
  std::vector<char> buffer(1024);
  passwd record{};
  passwd* found = nullptr;
  int result = getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found);
  while ((result == ERANGE && buffer.size() < kLongestUserRecord) || result == EINTR) {
    buffer.resize(result == ERANGE ? buffer.size() * 2 : buffer.size());
    result = getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found);
  }
  return result == 0 && found != nullptr ? found->pw_name : "";
}

std::string OsComputerName() {
  std::string name;
  OsHostName(name);
  return name.substr(0, name.find('.'));
}

bool OsAdapters(std::vector<Adapter>& adapters) {
  const CancelGuard noCancellation;
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    return false;
  }
  const AddressList owner(first, &freeifaddrs);
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    sockaddr_ll link{};
    if (AddressOf(*entry, AF_PACKET, link)) {
      adapters.push_back(AdapterOf(entry->ifa_name, link));
    }
  }
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    AddAddress(*entry, adapters);
  }
  return true;
}

}  // namespace qsbase::detail
