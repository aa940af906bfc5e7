/// \file
/// A name server that answers by a script, on port 53 of a loopback address.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_DNSPEER_H
#define QSBASE_TESTS_INTEGRATION_COMMON_DNSPEER_H

#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <integration/common/loopback.h>

namespace qsbase::testing {

/// A query that came.
struct DnsQuestion {
  std::string packet;
  bool overTcp = false;

  /// "host.example", in lower case as the resolver sends it.
  std::string Name() const {
    std::string name;
    for (std::size_t at = 12; at < packet.size() && packet[at] != 0;) {
      const auto length = static_cast<unsigned char>(packet[at]);
      name += (name.empty() ? "" : ".");
      name += packet.substr(at + 1, length);
      at += 1U + length;
    }
    return name;
  }

  /// The header of an answer and the question. `flags` is the code of the server, 0x200 that the answer is cut.
  std::string Head(unsigned int answers, unsigned int flags = 0) const {
    std::string head = packet.substr(0, 2);
    head += Number(0x8180U | flags) + Number(1) + Number(answers) + Number(0) + Number(0);
    return head + packet.substr(12, Name().size() + 2 + 4);
  }

  /// A record of the name that was asked for.
  static std::string Record(unsigned int type, const std::string& data) {
    std::string record = "\xC0\x0C";
    record += Number(type) + Number(1) + std::string("\0\0\0\0", 4);
    return record + Number(static_cast<unsigned int>(data.size())) + data;
  }

  static std::string Number(unsigned int value) {
    return {static_cast<char>(value >> 8U), static_cast<char>(value & 0xFFU)};
  }
};

/// Gives the answer, empty for none.
using DnsScript = std::function<std::string(const DnsQuestion&)>;

class DnsPeer {
 public:
  DnsPeer(const std::string& ip, DnsScript script)
      : _script(std::move(script)), _udp(Bound(ip, SOCK_DGRAM)), _tcp(Bound(ip, SOCK_STREAM)) {
    if (listen(_tcp.Get(), 8) != 0 || pipe(_end) != 0) {
      throw std::runtime_error("cannot listen as a name server");
    }
    _thread = std::thread([this] { Serve(); });
  }

  ~DnsPeer() {
    close(_end[1]);
    _thread.join();
    close(_end[0]);
  }

  DnsPeer(const DnsPeer&) = delete;
  DnsPeer& operator=(const DnsPeer&) = delete;

  /// The names asked for, those over TCP with "tcp:" in front.
  std::vector<std::string> Asked() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _asked;
  }

 private:
  static Socket Bound(const std::string& ip, int type) {
    Socket bound(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    sockaddr_in address = LoopbackAddress(53);
    const int on = 1;
    setsockopt(bound.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1 ||
        bind(bound.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot bind " + ip + ":53");
    }
    return bound;
  }

  void Serve() {
    for (;;) {
      pollfd ready[] = {{_udp.Get(), POLLIN, 0}, {_tcp.Get(), POLLIN, 0}, {_end[0], POLLIN, 0}};
      if (poll(ready, 3, -1) < 0) {
        continue;
      }
      if (ready[2].revents != 0) {
        return;
      }
      if (ready[0].revents != 0) {
        AnswerPacket();
      }
      if (ready[1].revents != 0) {
        AnswerConnection(Socket(accept(_tcp.Get(), nullptr, nullptr)));
      }
    }
  }

  void AnswerPacket() {
    char buffer[1024];
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length =
        recvfrom(_udp.Get(), buffer, sizeof buffer, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 12) {
      return;
    }
    const std::string answer = Answer({std::string(buffer, static_cast<std::size_t>(length)), false});
    if (!answer.empty()) {
      sendto(_udp.Get(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
    }
  }

  void AnswerConnection(const Socket& client) {
    char buffer[1024];
    std::string received;
    ssize_t length = 1;
    while (length > 0 && (received.size() < 2 || received.size() < 2U + LengthOf(received))) {
      length = recv(client.Get(), buffer, sizeof buffer, 0);
      received.append(buffer, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    if (received.size() < 14) {
      return;
    }
    std::string answer = Answer({received.substr(2), true});
    answer.insert(0, DnsQuestion::Number(static_cast<unsigned int>(answer.size())));
    send(client.Get(), answer.data(), answer.size(), MSG_NOSIGNAL);
  }

  static std::size_t LengthOf(const std::string& received) {
    return static_cast<std::size_t>(static_cast<unsigned char>(received[0])) << 8U |
           static_cast<unsigned char>(received[1]);
  }

  std::string Answer(const DnsQuestion& question) {
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _asked.push_back((question.overTcp ? "tcp:" : "") + question.Name());
    }
    return _script(question);
  }

  const DnsScript _script;
  const Socket _udp;
  const Socket _tcp;
  int _end[2] = {-1, -1};
  mutable std::mutex _mutex;
  std::vector<std::string> _asked;
  std::thread _thread;
};

}  // namespace qsbase::testing

#endif
