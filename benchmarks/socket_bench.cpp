// Echo round trips over loopback: QsSocket at both ends beside the system's calls at both ends.
#include <QSbase/net/socket.h>
#include <benchmark/benchmark.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace {

constexpr int kLargest = 65536;

/// Each kind of socket under the names that the measurements use.
struct Library {
  QsSocket socket;

  int Read(char* buffer, int length) { return socket.Read(buffer, length); }
  int Write(const char* buffer, int length) { return socket.Write(buffer, length); }
  bool Wait(int seconds) { return socket.WaitForData(seconds) == 1; }
};

struct Raw {
  int socket = -1;

  Raw() = default;
  ~Raw() { close(socket); }
  Raw(const Raw&) = delete;
  Raw& operator=(const Raw&) = delete;

  int Read(char* buffer, int length) {
    return static_cast<int>(recv(socket, buffer, static_cast<std::size_t>(length), 0));
  }
  int Write(const char* buffer, int length) {
    return static_cast<int>(send(socket, buffer, static_cast<std::size_t>(length), MSG_NOSIGNAL));
  }
  bool Wait(int seconds) {
    pollfd entry{socket, POLLIN | POLLPRI, 0};
    return poll(&entry, 1, seconds * 1000) == 1;
  }
};

[[noreturn]] void Fail(const char* what) {
  std::cerr << what << '\n';
  std::exit(1);
}

int PortOf(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

void Connect(Library& client, Library& server) {
  QsSocket listener;
  if (listener.Bind("127.0.0.1", 0) != 0 || listener.Listen(1) != 0 ||
      client.socket.Connect("127.0.0.1", PortOf(listener.GetSocket()), 0) != 0 || listener.Accept(server.socket) != 0) {
    Fail("no connection");
  }
}

void Connect(Raw& client, Raw& server) {
  Raw listener;
  listener.socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  client.socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(client.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener.socket, generic, length) != 0 || listen(listener.socket, 1) != 0 ||
      getsockname(listener.socket, generic, &length) != 0 || connect(client.socket, generic, length) != 0 ||
      (server.socket = accept4(listener.socket, nullptr, nullptr, SOCK_CLOEXEC)) == -1) {
    Fail("no connection");
  }
}

template <typename Socket>
bool ReadAll(Socket& socket, char* buffer, int length, bool waits) {
  for (int done = 0; done < length;) {
    const int count = waits && !socket.Wait(10) ? -1 : socket.Read(buffer + done, length - done);
    if (count <= 0) {
      return false;
    }
    done += count;
  }
  return true;
}

template <typename Socket>
bool WriteAll(Socket& socket, const char* buffer, int length) {
  for (int done = 0; done < length;) {
    const int count = socket.Write(buffer + done, length - done);
    if (count <= 0) {
      return false;
    }
    done += count;
  }
  return true;
}

/// A connection to a thread that sends back what it is sent.
template <typename Socket>
class Echo {
 public:
  Echo() {
    Connect(*_client, _server);
    _thread = std::thread([this] {
      std::string buffer(kLargest, ' ');
      int count = 0;
      while ((count = _server.Read(buffer.data(), kLargest)) > 0 && WriteAll(_server, buffer.data(), count)) {
      }
    });
  }
  ~Echo() {
    _client.reset();
    _thread.join();
  }

  bool RoundTrip(const std::string& sent, std::string& received, bool waits) {
    const int length = static_cast<int>(sent.size());
    return WriteAll(*_client, sent.data(), length) && ReadAll(*_client, received.data(), length, waits);
  }

 private:
  std::unique_ptr<Socket> _client = std::make_unique<Socket>();
  Socket _server;
  std::thread _thread;
};

template <typename Socket>
void RoundTrips(benchmark::State& state) {
  Echo<Socket> echo;
  const std::string sent(static_cast<std::size_t>(state.range(0)), 'x');
  const bool waits = state.range(1) != 0;
  std::string received(sent.size(), ' ');
  if (!echo.RoundTrip(sent, received, waits) || received != sent) {
    Fail("no echo");
  }
  for (auto _ : state) {
    if (!echo.RoundTrip(sent, received, waits)) {
      Fail("no echo");
    }
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"bytes", "waits"})->UseRealTime();
  for (const int bytes : {1, 1024, kLargest}) {
    benchmark->Args({bytes, 0})->Args({bytes, 1});
  }
}

BENCHMARK_TEMPLATE(RoundTrips, Library)->Apply(Sizes);
BENCHMARK_TEMPLATE(RoundTrips, Raw)->Apply(Sizes);

}  // namespace
