/// \file
/// A server that no fault hits.
#ifndef QSBASE_TESTS_RELIABILITY_COMMON_PEERPROCESS_H
#define QSBASE_TESTS_RELIABILITY_COMMON_PEERPROCESS_H

#include <functional>
#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <integration/common/loopback.h>

namespace qsbase::testing {

/// Serves one connection after the other in a process of its own, which no fault hits and whose memory and descriptors
/// nobody counts.
class PeerProcess {
 public:
  using Serve = std::function<void(Socket)>;

  explicit PeerProcess(const Serve& serve) {
    Socket listener = qsbase::testing::BoundSocket();
    _port = qsbase::testing::PortOf(listener);
    const pid_t parent = getpid();
    if (listen(listener.Get(), 64) != 0 || (_process = fork()) == -1) {
      throw std::runtime_error("no peer");
    }
    if (_process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      while (getppid() == parent) {
        Accept(listener, serve);
      }
      _exit(0);
    }
  }

  ~PeerProcess() {
    kill(_process, SIGKILL);
    waitpid(_process, nullptr, 0);
  }

  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  int Port() const { return _port; }

 private:
  static void Accept(const Socket& listener, const Serve& serve) {
    Socket accepted(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    const int on = 1;
    setsockopt(accepted.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    serve(std::move(accepted));
  }

  int _port = 0;
  pid_t _process = -1;
};

}  // namespace qsbase::testing

#endif
