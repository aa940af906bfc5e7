/// \file
/// A small HTTP server on 127.0.0.1, in a thread of its own, that serves the files it was given by name.
#ifndef QS_ORIGIN_H
#define QS_ORIGIN_H

#include <QSbase/net/socket.h>

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <thread>

namespace qs {

/// Answers GET and HEAD, whole or one byte range (RFC 9110), one request a connection. Nothing but the given files can
/// be reached. While it lives the sockets of the library are started (InitQsSocket).
class Origin {
 public:
  /// \param files the path of each file by the name that it is served under.
  explicit Origin(std::map<std::string, std::string> files);
  Origin(const Origin&) = delete;
  Origin& operator=(const Origin&) = delete;
  /// Ends the thread.
  ~Origin();

  /// Takes a free port and starts the thread. \returns what went wrong, empty for success.
  std::string Start();

  /// The URL of one of its files.
  std::string UrlOf(const std::string& name) const;

 private:
  void Serve();
  void Answer(QsSocket& connection) const;
  std::string ResponseTo(std::string_view request) const;

  std::map<std::string, std::string> _files;
  QsSocket _listener;
  unsigned short _port = 0;
  std::atomic<bool> _stop{false};
  std::thread _thread;
};

}  // namespace qs

#endif
