#include "host.h"

#include <QSbase/log/log.h>
#include <QSbase/net/hostinfo.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "fetch.h"
#include "text.h"

namespace qs {
namespace {

// The last message of the library, which tells why a look-up gave nothing.
std::string& Message() {
  static std::string message;
  return message;
}

void KeepMessage(unsigned int /*flags*/, const char* text) { Message() = text; }

// An address in network byte order.
std::string Dotted(int address) {
  unsigned char bytes[sizeof address];
  std::memcpy(bytes, &address, sizeof address);
  unsigned long number = 0;
  for (const unsigned char byte : bytes) {
    number = number << 8U | byte;
  }
  return IPAddress2String(number);
}

int LookUp(const std::string& name) {
  constexpr int kReasons = 3;  // the level at which the library tells all of them
  QsSetLogLevel(kReasons);
  SetLogCallback(&KeepMessage);
  const std::unique_ptr<int[], decltype(&FreeDNSQuery)> addresses(DNSQuery(name.c_str()), &FreeDNSQuery);
  DisableLogCallback(&KeepMessage);
  if (addresses == nullptr || addresses[0] == 0) {
    return Fail(Printable(Message()));
  }
  for (const int* address = addresses.get(); *address != 0; ++address) {
    std::printf("%s\n", Dotted(*address).c_str());
  }
  return kExitGood;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += joined.empty() ? "" : "  ";
    joined += text;
  }
  return joined;
}

int ShowAdapters() {
  std::vector<QsAdapterInfoEx> adapters;
  if (!QsGetAdapterInfoEx(adapters)) {
    return Fail("the system does not tell its network adapters");
  }
  std::size_t width = std::strlen("Adapter");
  for (QsAdapterInfoEx& adapter : adapters) {
    adapter.adapterName = Printable(adapter.adapterName);
    width = std::max(width, adapter.adapterName.size());
  }
  const int column = static_cast<int>(width);
  std::printf("\n%-*s  %-17s  %s\n", column, "Adapter", "Hardware address", "Addresses");
  for (const QsAdapterInfoEx& adapter : adapters) {
    std::printf("%-*s  %-17s  %s\n", column, adapter.adapterName.c_str(), adapter.macAddress.c_str(),
                Joined(adapter.addresses).c_str());
  }
  return kExitGood;
}

int ShowMachine() {
  std::printf("Host      %s\n", Printable(QsGetHostName()).c_str());
  std::printf("Computer  %s\n", Printable(QsGetComputerName()).c_str());
  std::printf("User      %s\n", Printable(QsGetUserName()).c_str());
  return ShowAdapters();
}

}  // namespace

int RunHost(const HostOptions& options) {
  const int exitCode = options.name ? LookUp(*options.name) : ShowMachine();
  return FlushOutput() ? exitCode : kExitFailed;
}

}  // namespace qs
