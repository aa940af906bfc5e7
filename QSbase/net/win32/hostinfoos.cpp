#include <QSbase/net/hostinfoos.h>

#include <QSbase/win32/windowsapi.h>

#include <winsock2.h>

#include <ws2tcpip.h>

#include <iphlpapi.h>

#include <memory>
#include <new>

namespace qsbase::detail {

namespace {

/// The system's list of adapters, empty pointer on failure. What it needs may grow between two calls.
std::unique_ptr<unsigned char[]> AdapterList() {
  constexpr int kAttempts = 3;
  ULONG size = 15000;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::unique_ptr<unsigned char[]> list(new (std::nothrow) unsigned char[size]);
    if (list == nullptr) {
      return nullptr;
    }
    const ULONG result =
        GetAdaptersAddresses(AF_UNSPEC, 0, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(list.get()), &size);
    if (result == ERROR_SUCCESS) {
      return list;
    }
    if (result != ERROR_BUFFER_OVERFLOW) {
      return nullptr;
    }
  }
  return nullptr;
}

bool IsOfInternet(const SOCKET_ADDRESS& address) {
  const sockaddr* const content = address.lpSockaddr;
  return content != nullptr && (content->sa_family == AF_INET || content->sa_family == AF_INET6);
}

/// Empty when Windows Sockets has not been started.
std::string AddressText(const SOCKET_ADDRESS& address) {
  char text[1025];
  DWORD length = sizeof text;
  const auto size = static_cast<DWORD>(address.iSockaddrLength);
  return WSAAddressToStringA(address.lpSockaddr, size, nullptr, text, &length) == 0 ? text : "";
}

Adapter AdapterOf(const IP_ADAPTER_ADDRESSES& entry) {
  Adapter adapter;
  adapter.name = entry.AdapterName;
  adapter.kind = entry.IfType;
  adapter.hardwareAddress.assign(entry.PhysicalAddress, entry.PhysicalAddress + entry.PhysicalAddressLength);
  adapter.hasUnicastAddress = entry.FirstUnicastAddress != nullptr;
  for (const auto* unicast = entry.FirstUnicastAddress; unicast != nullptr; unicast = unicast->Next) {
    const std::string text = IsOfInternet(unicast->Address) ? AddressText(unicast->Address) : std::string();
    if (!text.empty()) {
      adapter.addresses.push_back(text);
    }
  }
  return adapter;
}

}  // namespace

bool OsHostName(std::string& name) {
  char buffer[256] = "";
  if (gethostname(buffer, sizeof buffer) != 0) {
    return false;
  }
  name = buffer;
  return true;
}

std::string OsUserName() {
  char name[257];
  DWORD size = sizeof name;
  return GetUserNameA(name, &size) != 0 ? name : "";
}

std::string OsComputerName() {
  char name[16];
  DWORD size = sizeof name;
  return GetComputerNameA(name, &size) != 0 ? name : "";
}

bool OsAdapters(std::vector<Adapter>& adapters) {
  const std::unique_ptr<unsigned char[]> list = AdapterList();
  if (list == nullptr) {
    return false;
  }
  for (const auto* entry = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(list.get()); entry != nullptr;
       entry = entry->Next) {
    adapters.push_back(AdapterOf(*entry));
  }
  return true;
}

}  // namespace qsbase::detail
