#include <QSbase/net/hostinfo.h>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/hostinfodetail.h>
#include <QSbase/net/hostinfoos.h>
#include <QSbase/net/socketerror.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <utility>

using qsbase::detail::Adapter;

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kUnknownName = "anon";

constexpr std::uint32_t Quad(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  return a << 24U | b << 16U | c << 8U | d;
}

/// One number of a dotted address: digits only, at most 255. None at all are 0.
bool ParseQuadPiece(const std::string& piece, std::uint32_t& number) {
  number = 0;
  for (const char c : piece) {
    if (c < '0' || c > '9') {
      return false;
    }
    number = number * 10 + static_cast<std::uint32_t>(c - '0');
    if (number > 255) {
      return false;
    }
  }
  return true;
}

bool ParseDottedQuad(const std::string& text, std::uint32_t& ip) {
  std::vector<std::string> pieces;
  if (SplitString(text, ".", pieces, true) != 4) {
    return false;
  }
  ip = 0;
  for (const std::string& piece : pieces) {
    std::uint32_t number = 0;
    if (!ParseQuadPiece(piece, number)) {
      return false;
    }
    ip = ip << 8U | number;
  }
  return true;
}

bool IsInRange(const std::string& ip, const std::string& low, const std::string& high) {
  if (ip == low || ip == high) {
    return true;
  }
  const unsigned long number = IPAddress2Numeric(ip);
  return number >= IPAddress2Numeric(low) && number <= IPAddress2Numeric(high);
}

bool IsListed(const Adapter& adapter) {
  return adapter.hasUnicastAddress &&
         (adapter.kind == qsbase::detail::kEthernetAdapter || adapter.kind == qsbase::detail::kWirelessAdapter);
}

std::string HardwareAddressText(const std::vector<unsigned char>& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%s%.2x", text.empty() ? "" : "-", static_cast<unsigned int>(byte));
    text += digits;
  }
  return text;
}

bool HasAddress(const QsAdapterInfoEx& adapter, const std::string& ip) {
  return std::find(adapter.addresses.begin(), adapter.addresses.end(), ip) != adapter.addresses.end();
}

/// Empty, too, when the system does not tell.
std::vector<QsAdapterInfoEx> KnownAdapters() {
  std::vector<QsAdapterInfoEx> adapters;
  QsGetAdapterInfoEx(adapters);
  return adapters;
}

std::string NameOrAnon(const std::string& name) { return name.empty() ? kUnknownName : name; }

}  // namespace

namespace qsbase::detail {

std::vector<QsAdapterInfoEx> ListedAdapters(std::vector<Adapter> adapters) {
  std::vector<QsAdapterInfoEx> listed;
  for (Adapter& adapter : adapters) {
    if (IsListed(adapter)) {
      listed.push_back(
          {std::move(adapter.name), std::move(adapter.addresses), HardwareAddressText(adapter.hardwareAddress)});
    }
  }
  return listed;
}

}  // namespace qsbase::detail

std::string QsGetHostName() {
  std::string name;
  if (qsbase::detail::OsHostName(name)) {
    return name;
  }
  constexpr unsigned int kFlags = qsbase::detail::kLogWarning | 3U;
  QsLogMsg(kFlags, "gethostname failed - setting hostname to '127.0.0.1' (%s)",
           qsbase::detail::SocketErrorText(qsbase::detail::LastSocketError()));
  return kLoopback;
}

std::string QsGetFQDName() { return QsGetHostName(); }

std::string QsGetUserName() { return NameOrAnon(qsbase::detail::OsUserName()); }

std::string QsGetComputerName() { return NameOrAnon(qsbase::detail::OsComputerName()); }

bool QsGetAdapterInfoEx(std::vector<QsAdapterInfoEx>& adapters) {
  adapters.clear();
  std::vector<Adapter> all;
  if (!qsbase::detail::OsAdapters(all)) {
    return false;
  }
  adapters = qsbase::detail::ListedAdapters(std::move(all));
  return true;
}

bool QsIsOwnIPAddress(const std::string& ip) { return ip == kLoopback || !QsGetDevFromIP(ip).empty(); }

std::string QsGetDevFromIP(const std::string& ip) {
  for (const QsAdapterInfoEx& adapter : KnownAdapters()) {
    if (HasAddress(adapter, ip)) {
      return adapter.adapterName;
    }
  }
  return {};
}

std::string QsGetIPFromDev(const std::string& dev) {
  for (const QsAdapterInfoEx& adapter : KnownAdapters()) {
    if (adapter.adapterName == dev && !adapter.addresses.empty()) {
      return adapter.addresses.front();
    }
  }
  return {};
}

std::string IPAddress2String(const unsigned long& ip) {
  const auto part = [&ip](unsigned int shift) { return static_cast<unsigned int>(ip >> shift & 0xFFU); };
  char text[16];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", part(24), part(16), part(8), part(0));
  return text;
}

unsigned long IPAddress2Numeric(const std::string& ip) {
  std::uint32_t number = 0;
  if (!ParseDottedQuad(ip, number)) {
    throw ExBase(ip + " is not a valid IP address");
  }
  return number;
}

bool IsPrivateIP(const unsigned long& ip) {
  const auto number = static_cast<std::uint32_t>(ip);
  return (number & Quad(255, 0, 0, 0)) == Quad(10, 0, 0, 0) || (number & Quad(255, 0, 0, 0)) == Quad(127, 0, 0, 0) ||
         (number & Quad(255, 240, 0, 0)) == Quad(172, 16, 0, 0) ||
         (number & Quad(255, 255, 0, 0)) == Quad(192, 168, 0, 0);
}

bool QsIsValidIP(const std::string& ip) { return IsInRange(ip, "0.0.0.0", "255.255.255.255"); }

bool QsIsValidIP(const unsigned long& ip) { return QsIsValidIP(IPAddress2String(ip)); }
