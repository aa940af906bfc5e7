// Sockets against ncat and socat, in both roles, and what takes the kernel seconds.
#include <QSbase/net/socket.h>
#include <QSbase/net/socketerror.h>
#include <gtest/gtest.h>

#include <sys/ioctl.h>

#include <string>
#include <thread>
#include <vector>

#include <common/noise.h>
#include <common/sockets.h>
#include <common/tempdir.h>
#include <common/waiter.h>
#include <integration/common/childprocess.h>
#include <integration/common/loopback.h>
#include <integration/common/server.h>

namespace {

using qsbase::testing::BoundSocket;
using qsbase::testing::ChildProcess;
using qsbase::testing::EndSending;
using qsbase::testing::Noise;
using qsbase::testing::PortOf;
using qsbase::testing::Server;
using qsbase::testing::Socket;
using qsbase::testing::TempDir;
using qsbase::testing::Waiter;
using qsbase::testing::WriteAll;

constexpr const char* kHost = "127.0.0.1";
constexpr int kPatience = 60;

std::string ReadToEnd(QsSocket& socket) {
  std::string bytes;
  char buffer[65536];
  while (socket.WaitForData(kPatience) == 1) {
    const int count = socket.Read(buffer, sizeof buffer);
    if (count <= 0) {
      break;
    }
    bytes.append(buffer, static_cast<std::size_t>(count));
  }
  return bytes;
}

std::string ReadSome(QsSocket& socket, std::size_t size) {
  std::string bytes(size, ' ');
  std::size_t done = 0;
  while (done < size && socket.WaitForData(kPatience) == 1) {
    const int count = socket.Read(bytes.data() + done, static_cast<int>(size - done));
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return bytes.substr(0, done);
}

class SocketPeerTest : public testing::Test {
 protected:
  SocketPeerTest() {
    EXPECT_EQ(_listener.Bind(kHost, 0), 0);
    EXPECT_EQ(_listener.Listen(5), 0);
    _port = std::to_string(PortOf(_listener.GetSocket()));
  }

  // The peer that a shell command makes connect to us.
  void Accept(QsSocket& socket) {
    ASSERT_EQ(_listener.WaitForData(kPatience), 1) << "nobody has come";
    ASSERT_EQ(_listener.Accept(socket), 0);
  }

  std::vector<std::string> Shell(const std::string& command) const { return {"sh", "-c", command}; }
  std::string Target() const { return std::string(kHost) + ":" + _port; }

  const TempDir _dir;
  QsSocket _listener;
  std::string _port;
};

// What goes to the server comes back, to the end of the stream.
void ExpectEcho(int port) {
  const std::string sent = Noise(4 << 20);
  QsSocket socket;
  ASSERT_EQ(socket.Connect(kHost, port, 0), 0);
  EXPECT_EQ(socket.GetRemoteIP(), 0x7F000001);
  std::thread writer([&] {
    EXPECT_TRUE(WriteAll(socket, sent));
    EndSending(socket.GetSocket());
  });
  const std::string received = ReadToEnd(socket);
  writer.join();
  EXPECT_TRUE(received == sent) << received.size() << " bytes";
}

// Question and answer: it does not send and receive at the same time.
TEST_F(SocketPeerTest, ClientOfNcat) {
  const Server ncat(_dir, "ncat", 1, [](const Server::Ports& ports) {
    return std::vector<std::string>{"ncat",     "--listen", "--keep-open",           "--exec",
                                    "/bin/cat", kHost,      std::to_string(ports[0])};
  });
  for (int connection = 0; connection < 2; ++connection) {
    QsSocket socket;
    ASSERT_EQ(socket.Connect(kHost, ncat.Port(), 0), 0);
    const std::string noise = Noise(64 * 1024);
    for (std::size_t at = 0; at < noise.size(); at += 1024) {
      const std::string sent = noise.substr(at, 1024);
      ASSERT_TRUE(WriteAll(socket, sent));
      ASSERT_EQ(ReadSome(socket, sent.size()), sent);
    }
    EndSending(socket.GetSocket());
    EXPECT_EQ(ReadToEnd(socket), "");
  }
}

TEST_F(SocketPeerTest, ClientOfSocat) {
  const Server socat(_dir, "socat", 1, [](const Server::Ports& ports) {
    return std::vector<std::string>{
        "socat", "TCP-LISTEN:" + std::to_string(ports[0]) + ",bind=127.0.0.1,fork,reuseaddr", "EXEC:cat"};
  });
  ExpectEcho(socat.Port());
  ExpectEcho(socat.Port());
}

TEST_F(SocketPeerTest, ServerOfNcat) {
  const std::string sent = Noise(3 << 20);
  const std::string in = _dir.Write("in", sent);
  ChildProcess ncat(Shell("exec ncat " + std::string(kHost) + " " + _port + " <" + in), _dir / "out");
  QsSocket socket;
  Accept(socket);
  EXPECT_TRUE(ReadToEnd(socket) == sent);
  EXPECT_TRUE(WriteAll(socket, sent));
  socket.Close();
  EXPECT_EQ(ncat.Wait(), 0);
  EXPECT_TRUE(ncat.Output() == sent);
}

TEST_F(SocketPeerTest, ServerOfSocat) {
  const std::string sent = Noise(3 << 20);
  ChildProcess sender({"socat", "-u", "OPEN:" + _dir.Write("in", sent), "TCP:" + Target()}, _dir / "sender.out");
  QsSocket socket;
  Accept(socket);
  EXPECT_TRUE(ReadToEnd(socket) == sent);
  EXPECT_EQ(sender.Wait(), 0) << sender.Output();

  ChildProcess receiver({"socat", "-u", "TCP:" + Target(), "CREATE:" + _dir / "received"}, _dir / "receiver.out");
  Accept(socket);
  EXPECT_TRUE(WriteAll(socket, sent));
  socket.Close();
  EXPECT_EQ(receiver.Wait(), 0) << receiver.Output();
  EXPECT_TRUE(TempDir::Read(_dir / "received") == sent);
}

TEST_F(SocketPeerTest, TellsThePeersAddress) {
  ChildProcess socat({"socat", "-u", "TCP:" + Target() + ",bind=127.9.8.7", "CREATE:" + _dir / "received"},
                     _dir / "socat.out");
  QsSocket socket;
  Accept(socket);
  EXPECT_EQ(socket.GetRemoteIP(), 0x7F090807);
}

// The peer sends its second piece when it is told that the first one has been read.
TEST_F(SocketPeerTest, ReadBytesBeginsEveryPieceAtTheStart) {
  ChildProcess socat({"socat", "TCP:" + Target() + ",nodelay", "SYSTEM:printf ab; read line; printf cd"},
                     _dir / "socat.out");
  QsSocket socket;
  Accept(socket);
  const auto waiting = [&] {
    int count = -1;
    ioctl(socket.GetSocket(), FIONREAD, &count);
    return count;
  };
  while (waiting() < 2 && socat.Running()) {
    std::this_thread::yield();
  }
  char buffer[5] = "----";
  int result = 0;
  std::thread reader([&] { result = socket.ReadBytes(buffer, 4); });
  while (waiting() > 0) {
    std::this_thread::yield();
  }
  const Socket same(dup(socket.GetSocket()));
  EXPECT_EQ(send(same.Get(), "\n", 1, 0), 1);
  reader.join();
  EXPECT_EQ(result, 4);
  EXPECT_STREQ(buffer, "cd--");
}

// Who is killed before he has read what he was sent breaks the connection off.
TEST_F(SocketPeerTest, APeerThatBreaksOffMakesTheReadFail) {
  const std::string told = _dir / "told";
  ChildProcess socat(
      Shell("socat -u PIPE TCP:" + Target() + " & while ! [ -e " + told + " ]; do sleep 0.01; done; kill -9 $!; wait"),
      _dir / "socat.out");
  QsSocket socket;
  Accept(socket);
  ASSERT_EQ(socket.Write("unread", 6), 6);
  _dir.Write("told", "");
  socat.Wait();
  char byte;
  EXPECT_EQ(socket.WaitForData(kPatience), 1);
  EXPECT_EQ(socket.Read(&byte, 1), -1);
  EXPECT_EQ(qsbase::detail::LastSocketError(), 10054);
}

// Else the connection would live as long as the program that inherited it, and the peer wait for its end.
TEST_F(SocketPeerTest, AProgramThatIsStartedKeepsNoConnection) {
  ChildProcess ncat({"ncat", "--recv-only", kHost, _port}, _dir / "ncat.out");
  QsSocket socket;
  Accept(socket);
  ChildProcess other({"sleep", "600"}, _dir / "sleep.out");
  socket.Close();
  EXPECT_EQ(ncat.Wait(), 0);
  EXPECT_TRUE(other.Running());
}

/// A listener whose queue is full: who connects to it waits until the kernel, after a second or more, tries again.
class FullListener {
 public:
  FullListener() : _listener(BoundSocket()) {
    EXPECT_EQ(listen(_listener.Get(), 0), 0);
    const sockaddr_in address = qsbase::testing::LoopbackAddress(Port());
    for (Socket& filler : _fillers) {
      filler = Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      static_cast<void>(connect(filler.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    }
  }

  int Port() const { return PortOf(_listener); }
  void Close() { _listener.Close(); }

  /// Accepts those who have come before, and one who sends something.
  Socket AcceptTalker(char& byte) {
    for (;;) {
      Socket accepted(accept(_listener.Get(), nullptr, nullptr));
      for (const Socket& filler : _fillers) {
        EndSending(filler.Get());
      }
      if (recv(accepted.Get(), &byte, 1, 0) == 1) {
        return accepted;
      }
    }
  }

 private:
  Socket _listener;
  Socket _fillers[2];
};

TEST(SocketConnect, GoesOnAfterASignal) {
  FullListener listener;
  QsSocket socket;
  int result = -9;
  int written = -9;
  Waiter client([&] {
    result = socket.Connect(kHost, listener.Port(), 0);
    written = socket.Write("x", 1);
  });
  client.UntilAsleep();
  client.Interrupt();
  client.UntilAsleep();
  char byte = 0;
  const Socket accepted = listener.AcceptTalker(byte);
  client.Join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(written, 1);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(send(accepted.Get(), "y", 1, 0), 1);
  EXPECT_EQ(socket.Read(&byte, 1), 1);
  EXPECT_EQ(byte, 'y');
}

// The socket counts as writable then, too.
TEST(SocketConnect, IsRefusedAfterASignal) {
  FullListener listener;
  QsSocket socket;
  const int port = listener.Port();
  int result = -9;
  int error = 0;
  Waiter client([&] {
    result = socket.Connect(kHost, port, 0);
    error = qsbase::detail::LastSocketError();
  });
  client.UntilAsleep();
  client.Interrupt();
  client.UntilAsleep();
  listener.Close();
  client.Join();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(error, 10061);
  EXPECT_EQ(socket.GetSocket(), -1);
}

}  // namespace
