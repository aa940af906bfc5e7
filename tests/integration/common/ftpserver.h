/// \file
/// FTP peers on 127.0.0.1: a real server as a child, and a scripted one that answers as the test says.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_FTPSERVER_H
#define QSBASE_TESTS_INTEGRATION_COMMON_FTPSERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <netinet/tcp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/net/ftp.h>
#include <QSbase/net/ftptransfer.h>

#include <common/tempdir.h>
#include <integration/common/loopback.h>
#include <integration/common/scriptedserver.h>
#include <integration/common/server.h>

namespace qsbase::testing {

/// vsftpd with the one user "anonymous", whose password is "secret". It serves the folder ftp of `dir`, in which "in"
/// may be written to and "closed" may not. As root it serves as the system's user ftp, else as whoever runs the test.
class FtpServer {
 public:
  explicit FtpServer(const TempDir& dir)
      : _dir(dir), _server(Prepare(dir), "vsftpd", 1, [&](const Server::Ports& ports) {
          dir.Write("vsftpd.conf", Configuration(dir, ports[0]));
          return std::vector<std::string>{"vsftpd", dir / "vsftpd.conf"};
        }) {}

  QsFTPServer Login(const std::string& directory = "") const {
    return {"127.0.0.1", std::to_string(_server.Port()), "anonymous", "secret", directory};
  }

  /// The path of what the server knows by that name.
  std::string File(const std::string& name) const { return _dir / ("ftp/" + name); }

  /// How often this stands in the server's log.
  std::size_t Logged(const std::string& what) const {
    const std::string log = TempDir::Read(_dir / "vsftpd.log");
    std::size_t count = 0;
    for (std::size_t at = log.find(what); at != std::string::npos; at = log.find(what, at + 1)) {
      ++count;
    }
    return count;
  }

 private:
  static const TempDir& Prepare(const TempDir& dir) {
    dir.Write("ftp/in/readme.txt", "in\n");
    dir.Write("ftp/closed/there", "closed\n");
    dir.Write("empty/x", "");
    dir.Write("passwords", "secret\n");
    chmod((dir / "ftp/in").c_str(), 0777);
    chmod((dir / "ftp/closed").c_str(), 0555);
    return dir;
  }

  static std::string Configuration(const TempDir& dir, int port) {
    const bool isRoot = geteuid() == 0;
    return "listen=YES\nlisten_address=127.0.0.1\nlisten_port=" + std::to_string(port) +
           "\nbackground=NO\nanonymous_enable=YES\nlocal_enable=NO\nwrite_enable=YES\nanon_upload_enable=YES\n"
           "anon_mkdir_write_enable=YES\nanon_other_write_enable=YES\nanon_umask=022\nanon_world_readable_only=NO\n"
           "anon_root=" +
           dir / "ftp" +
           "\nallow_writeable_chroot=YES\nsecure_email_list_enable=YES\nemail_password_file=" + dir / "passwords" +
           "\nsecure_chroot_dir=" + dir / "empty" + "\nnopriv_user=nobody\nseccomp_sandbox=NO\nisolate=NO\n" +
           "isolate_network=NO\nlog_ftp_protocol=YES\nxferlog_enable=YES\nvsftpd_log_file=" + dir / "vsftpd.log" +
           "\ndelay_failed_login=0\nftpd_banner=Here is the server\nrun_as_launching_user=" + (isRoot ? "NO" : "YES") +
           "\n";
  }

  const TempDir& _dir;
  Server _server;
};

/// While it lives, a transfer in which nothing moves is given up early.
class ShortPatience {
 public:
  ShortPatience() : _before(detail::ftpStallSeconds.exchange(1)) {}
  ~ShortPatience() { detail::ftpStallSeconds = _before; }
  ShortPatience(const ShortPatience&) = delete;
  ShortPatience& operator=(const ShortPatience&) = delete;

 private:
  const long _before;
};

/// A control connection and its passive data connections, for a script that speaks FTP by hand.
class FtpConnection {
 public:
  explicit FtpConnection(Socket control) : _control(std::move(control)) {}

  Connection& Control() { return _control; }

  bool Say(const std::string& line) {
    said += line.size() + 2;
    return pause.count() > 0 ? _control.SendSlowly(line + "\r\n", pause) : _control.Send(line + "\r\n");
  }

  /// The client's next command line, empty when it is gone.
  std::string Hear() {
    std::size_t end = std::string::npos;
    while ((end = _heard.find("\r\n")) == std::string::npos) {
      if (!_control.Receive(_heard)) {
        return {};
      }
    }
    const std::string line = _heard.substr(0, end);
    _heard.erase(0, end + 2);
    commands.push_back(line);
    return line;
  }

  /// Greets, logs in whoever comes, takes uploads, gives `listing` and says yes to all else, up to a command that
  /// begins with `what`, which the script answers. False when the client goes before that.
  bool ServeUntil(const std::string& what) {
    if (!_greeted) {
      _greeted = Say("220 Scripted");
    }
    for (std::string line = Hear(); !line.empty(); line = Hear()) {
      if (line.compare(0, what.size(), what) == 0) {
        return true;
      }
      Answer(line.substr(0, line.find(' ')));
    }
    return false;
  }

  /// The same until the client goes.
  void ServeToTheEnd() { ServeUntil("\n"); }

  /// Awaits a data connection at a port that it gives.
  int OpenDoor() {
    _door = BoundSocket();
    listen(_door.Get(), 1);
    return PortOf(_door);
  }

  /// The data connection that the client has made, or is about to.
  Connection Data() { return Connection(Socket(accept4(_door.Get(), nullptr, nullptr, SOCK_CLOEXEC))); }

  std::string listing;
  std::chrono::milliseconds pause{};  ///< behind every byte that is said
  std::size_t said = 0;               ///< bytes
  std::vector<std::string> stored;    ///< the content of every upload taken
  std::vector<std::string> commands;

 private:
  void Answer(const std::string& command) {
    if (command == "USER") {
      Say("331 Password?");
    } else if (command == "PASS") {
      Say("230 Logged in");
    } else if (command == "PWD") {
      Say("257 \"/\" is here");
    } else if (command == "EPSV") {
      Say("229 Entering (|||" + std::to_string(OpenDoor()) + "|)");
    } else if (command == "STOR") {
      TakeFile();
    } else if (command == "NLST") {
      GiveListing();
    } else {
      Say(command == "QUIT" ? "221 Bye" : "200 Fine");
    }
  }

  void TakeFile() {
    Say("150 Send it");
    Connection data = Data();
    stored.emplace_back();
    while (data.Receive(stored.back())) {
    }
    Say("226 Stored");
  }

  void GiveListing() {
    Say("150 Here it comes");
    Data().Send(listing);
    Say("226 Listed");
  }

  Connection _control;
  Socket _door;
  std::string _heard;
  bool _greeted = false;
};

/// Serves one control connection after the other on a thread of its own by the script, and records the commands.
class ScriptedFtpServer {
 public:
  using Script = std::function<void(FtpConnection&)>;

  explicit ScriptedFtpServer(Script script)
      : _script(std::move(script)), _listener(BoundSocket()), _port(PortOf(_listener)) {
    if (listen(_listener.Get(), 64) != 0) {
      throw std::runtime_error("cannot listen on loopback");
    }
    _thread = std::thread([this] { Serve(); });
  }

  ~ScriptedFtpServer() {
    shutdown(_listener.Get(), SHUT_RDWR);
    _thread.join();
  }

  ScriptedFtpServer(const ScriptedFtpServer&) = delete;
  ScriptedFtpServer& operator=(const ScriptedFtpServer&) = delete;

  QsFTPServer Login() const { return {"127.0.0.1", std::to_string(_port), "joe", "secret", ""}; }

  /// What was heard on the connections that are over.
  std::vector<std::string> Commands() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _commands;
  }

  /// What was stored on the connections that are over.
  std::vector<std::string> Stored() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _stored;
  }

 private:
  void Serve() {
    for (;;) {
      Socket accepted(accept4(_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (accepted.Get() == -1) {
        return;
      }
      const int on = 1;
      setsockopt(accepted.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      FtpConnection connection(std::move(accepted));
      _script(connection);
      const std::lock_guard<std::mutex> lock(_mutex);
      _commands.insert(_commands.end(), connection.commands.begin(), connection.commands.end());
      _stored.insert(_stored.end(), connection.stored.begin(), connection.stored.end());
    }
  }

  const Script _script;
  Socket _listener;
  const int _port;
  mutable std::mutex _mutex;
  std::vector<std::string> _commands;
  std::vector<std::string> _stored;
  std::thread _thread;
};

}  // namespace qsbase::testing

#endif
