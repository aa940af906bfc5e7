#include <QSbase/net/socket.h>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/hostinfo.h>
#include <QSbase/net/socketerror.h>
#include <QSbase/net/socketos.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <string>

using qsbase::detail::kLogError;
using qsbase::detail::kNoSocket;
using qsbase::detail::LastSocketError;
using qsbase::detail::SocketAddress;
using qsbase::detail::SocketEvent;
using qsbase::detail::SocketHandle;

namespace {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;

constexpr std::chrono::seconds kConnectTime(30);

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

// The first address in network order; none for a name without one, which DNSQuery() gives as zero.
std::optional<std::uint32_t> FirstAddress(const char* host) {
  const std::unique_ptr<int, void (*)(int*)> addresses(DNSQuery(host), &FreeDNSQuery);
  if (!addresses || *addresses == 0) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*addresses);
}

std::optional<std::uint32_t> Resolve(const char* host) {
  if (IsEmpty(host) || std::strcmp(host, "0.0.0.0") == 0) {
    return 0;
  }
  const std::optional<std::uint32_t> address = FirstAddress(host);
  if (!address) {
    errno = EINVAL;
    QsLogMsg(kLogError, std::string("could not resolve hostname ") + host);
  }
  return address;
}

bool IsPort(int port) { return port >= 0 && port <= std::numeric_limits<std::uint16_t>::max(); }

SocketAddress AddressOf(std::uint32_t networkAddress, int port) {
  return qsbase::detail::OsSocketAddress(networkAddress, static_cast<std::uint16_t>(port));
}

int MillisecondsUntil(const Deadline& deadline) {
  if (!deadline) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

// A signal makes the wait go on with the time that is left.
template <typename Poll>
SocketEvent WaitUntil(const Deadline& deadline, Poll poll) {
  for (;;) {
    const int milliseconds = MillisecondsUntil(deadline);
    const SocketEvent event = poll(milliseconds);
    if (event != SocketEvent::None || milliseconds == 0) {
      return event;
    }
  }
}

bool GoesOn(int connectError) {
  return connectError == qsbase::detail::kSocketInProgress || connectError == qsbase::detail::kSocketInterrupted;
}

// Writable is a refused connection too.
bool MakeConnection(SocketHandle socket, const SocketAddress& address) {
  if (!qsbase::detail::OsConnect(socket, address) && !GoesOn(LastSocketError())) {
    return false;
  }
  const SocketEvent event = WaitUntil(Clock::now() + kConnectTime, [&](int milliseconds) {
    return qsbase::detail::OsPollForRoom(socket, milliseconds);
  });
  return event == SocketEvent::Ready && qsbase::detail::OsIsConnected(socket);
}

// The piece is always at the same place: kept.
template <typename Transfer>
int RepeatUntil(int length, Transfer transfer) {
  int total = 0;
  while (total < length) {
    const int count = transfer(length - total);
    if (count < 0) {
      return count;
    }
    if (count == 0) {
      break;
    }
    total += count;
  }
  return total;
}

}  // namespace

struct QsSocket::SocketRecord {
  SocketHandle handle = kNoSocket;
  std::int32_t type = qsbase::detail::kStreamSocket;
  SocketAddress address{};
  std::uint8_t flags[2] = {};

  bool IsOpen() const { return handle != kNoSocket; }

  void Close() {
    if (IsOpen()) {
      qsbase::detail::OsCloseSocket(handle);
    }
    handle = kNoSocket;
    address = {};
    std::fill(std::begin(flags), std::end(flags), std::uint8_t{0});
  }
};

QsSocket::QsSocket() : _record(new (std::nothrow) SocketRecord) {}

QsSocket::~QsSocket() { Close(); }

int QsSocket::Bind(const char* host, int port) {
  if (!_record) {
    return -1;
  }
  if (host != nullptr && *host == '\0') {
    return -5;
  }
  const std::optional<std::uint32_t> address = Resolve(host);
  if (!address) {
    return -2;
  }
  Close();
  if (!IsPort(port)) {
    return qsbase::detail::kSocketInvalidArgument;
  }
  _record->handle = qsbase::detail::OsOpenSocket(_record->type, true);
  if (!_record->IsOpen()) {
    return LastSocketError();
  }
  _record->address = AddressOf(*address, port);
  qsbase::detail::OsAllowReuse(_record->handle);
  if (qsbase::detail::OsBind(_record->handle, _record->address)) {
    return 0;
  }
  Close();
  return LastSocketError();
}

int QsSocket::Listen(int backlog) {
  if (!_record || !_record->IsOpen()) {
    return -1;
  }
  const int most = backlog < 0 ? std::numeric_limits<int>::max() : backlog;
  while (!qsbase::detail::OsListen(_record->handle, most)) {
    const int error = LastSocketError();
    if (error != qsbase::detail::kSocketInterrupted) {
      return error;
    }
  }
  return 0;
}

int QsSocket::Accept(QsSocket& client) {
  if (!_record || !client._record) {
    return -1;
  }
  client.Close();
  client._record->handle = qsbase::detail::OsAccept(_record->handle, client._record->address);
  return client._record->IsOpen() ? 0 : -2;
}

int QsSocket::Connect(const char* host, int port, int /*timeout*/) {
  if (!_record) {
    return -1;
  }
  Close();
  const std::optional<std::uint32_t> address = Resolve(host);
  if (!address || !IsPort(port)) {
    return -1;
  }
  _record->handle = qsbase::detail::OsOpenSocket(_record->type, false);
  if (!_record->IsOpen()) {
    return -1;
  }
  _record->address = AddressOf(*address, port);
  qsbase::detail::OsSetNoDelay(_record->handle);
  if (MakeConnection(_record->handle, _record->address)) {
    return 0;
  }
  Close();
  return -1;
}

int QsSocket::WaitForData(int seconds) {
  if (!_record || !_record->IsOpen()) {
    return -2;
  }
  const Deadline deadline = seconds < 0 ? Deadline() : Clock::now() + std::chrono::seconds(seconds);
  const SocketEvent event = WaitUntil(
      deadline, [this](int milliseconds) { return qsbase::detail::OsPollForData(_record->handle, milliseconds); });
  if (event == SocketEvent::None) {
    return 0;
  }
  return event == SocketEvent::Ready ? 1 : -1;
}

int QsSocket::GetRemoteIP() const {
  std::uint32_t address = 0;
  if (!_record || !qsbase::detail::OsPeerAddress(_record->handle, address)) {
    return 0;
  }
  return static_cast<int>(address);
}

int QsSocket::GetSocket() const { return static_cast<int>(_record ? _record->handle : kNoSocket); }

int QsSocket::Read(void* buffer, int length) {
  if (!_record || !_record->IsOpen()) {
    return -1;
  }
  if (buffer == nullptr) {
    return -3;
  }
  if (length < 1) {
    return 0;
  }
  const int count = qsbase::detail::OsReceive(_record->handle, buffer, length);
  if (count < 0) {
    QsLogMsg(kLogError, "read from socket failed (%s)", qsbase::detail::SocketErrorText(LastSocketError()));
  }
  return count;
}

int QsSocket::ReadBytes(void* buffer, int length) {
  return RepeatUntil(length, [&](int rest) { return Read(buffer, rest); });
}

int QsSocket::Write(const void* buffer, int length) {
  if (!_record || !_record->IsOpen()) {
    return -1;
  }
  if (length < 1) {
    return 0;
  }
  const int count = qsbase::detail::OsSend(_record->handle, buffer, length);
  if (count < 0) {
    QsLogMsg(kLogError, "write to socket failed (%s)", qsbase::detail::SocketErrorText(LastSocketError()));
  }
  return count;
}

int QsSocket::WriteBytes(const void* buffer, int length) {
  return RepeatUntil(length, [&](int rest) { return Write(buffer, rest); });
}

void QsSocket::Close() {
  if (_record) {
    _record->Close();
  }
}
