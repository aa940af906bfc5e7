#include <QSbase/errors.h>
#include <QSbase/net/socket.h>
#include <QSbase/net/socketerror.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <dlfcn.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <csignal>
#endif

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <common/cancellation.h>
#include <common/failingallocation.h>
#include <common/logcapture.h>
#include <common/noise.h>
#include <common/platform.h>
#include <common/sockets.h>
#include <common/waiter.h>

#ifndef _WIN32
namespace {

// The next calls of this thread that the system does not get to see: how many they are, and how they fail.
thread_local int callsThatFail = 0;
thread_local int errorOfCalls = 0;
thread_local int lastBacklog = 0;  // that a listen was asked for

bool Fails() {
  if (callsThatFail == 0) {
    return false;
  }
  --callsThatFail;
  errno = errorOfCalls;
  return true;
}

// Not the bare system call: a sanitizer's own function may come between.
template <typename Function>
Function* Next(Function* /*own*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int listen(int socket, int backlog) noexcept {
  lastBacklog = backlog;
  return Fails() ? -1 : Next(&listen, "listen")(socket, backlog);
}

ssize_t recv(int socket, void* buffer, size_t size, int flags) {
  return Fails() ? -1 : Next(&recv, "recv")(socket, buffer, size, flags);
}

ssize_t send(int socket, const void* data, size_t size, int flags) {
  return Fails() ? -1 : Next(&send, "send")(socket, data, size, flags);
}
}
#endif

namespace {

using qsbase::detail::LastSocketError;
using qsbase::testing::AddressOf;
using qsbase::testing::BreakOffAtClose;
using qsbase::testing::CloseBehindItsBack;
using qsbase::testing::EndSending;
using qsbase::testing::IsInheritedSocket;
using qsbase::testing::kOnWindows;
using qsbase::testing::LocalAddress;
using qsbase::testing::LogCapture;
using qsbase::testing::Noise;
using qsbase::testing::PortOf;
using qsbase::testing::SendUrgent;
using qsbase::testing::Waiter;
using qsbase::testing::WriteAll;

constexpr const char* kHost = "127.0.0.1";
constexpr int kLoopback = 0x7F000001;

// No name server need be asked: a label has at most 63 characters.
const std::string kNoHost = std::string(64, 'a') + ".invalid";

constexpr int kRefused = 10061;
constexpr int kNotASocket = kOnWindows ? 10038 : 10009;

constexpr const char* kBreaksAreLost = "Wine gives the end of the stream for a connection that the peer broke off";

/// Both ends of a connection.
struct Pair {
  QsSocket listener;
  QsSocket client;
  QsSocket server;

  Pair() {
    EXPECT_EQ(listener.Bind(kHost, 0), 0);
    EXPECT_EQ(listener.Listen(5), 0);
    EXPECT_EQ(client.Connect(kHost, PortOf(listener.GetSocket()), 0), 0);
    EXPECT_EQ(listener.Accept(server), 0);
  }

  // The client's end is gone, and has taken the connection with it.
  void BreakOff() {
    BreakOffAtClose(client.GetSocket());
    client.Close();
  }
};

// As users must do it.
bool ReadAll(QsSocket& socket, char* buffer, int length) {
  int done = 0;
  while (done < length) {
    const int count = socket.Read(buffer + done, length - done);
    if (count <= 0) {
      return false;
    }
    done += count;
  }
  return true;
}

class SocketTest : public testing::Test {
 protected:
  SocketTest() { InitQsSocket(1); }
  ~SocketTest() override { InitQsSocket(2); }
};

TEST_F(SocketTest, IsNoneAtFirst) {
  LogCapture log;
  QsSocket socket;
  QsSocket client;
  char buffer[4] = "abc";
  EXPECT_EQ(socket.GetSocket(), -1);
  EXPECT_EQ(socket.GetRemoteIP(), 0);
  EXPECT_EQ(socket.Listen(1), -1);
  EXPECT_EQ(socket.Accept(client), -2);
  EXPECT_EQ(client.GetSocket(), -1);
  EXPECT_EQ(socket.WaitForData(0), -2);
  EXPECT_EQ(socket.WaitForData(-1), -2);
  EXPECT_EQ(socket.Read(buffer, 3), -1);
  EXPECT_EQ(socket.Read(nullptr, 3), -1);
  EXPECT_EQ(socket.Read(buffer, 0), -1);
  EXPECT_EQ(socket.ReadBytes(buffer, 3), -1);
  EXPECT_EQ(socket.Write(buffer, 3), -1);
  EXPECT_EQ(socket.Write(buffer, 0), -1);
  EXPECT_EQ(socket.WriteBytes(buffer, 3), -1);
  EXPECT_STREQ(buffer, "abc");
  socket.Close();
  EXPECT_EQ(socket.GetSocket(), -1);
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketTest, WithoutARecordEverythingGivesTheValueForNone) {
  LogCapture log;
  qsbase::testing::failingAllocation = 1;
  QsSocket socket;
  ASSERT_EQ(qsbase::testing::failingAllocation, 0) << "the record was not allocated that way";
  char buffer[4];
  EXPECT_EQ(socket.Bind(kHost, 0), -1);
  EXPECT_EQ(socket.Bind("", 0), -1);
  EXPECT_EQ(socket.Listen(1), -1);
  EXPECT_EQ(socket.Connect(kHost, 1, 0), -1);
  EXPECT_EQ(socket.WaitForData(0), -2);
  EXPECT_EQ(socket.GetRemoteIP(), 0);
  EXPECT_EQ(socket.GetSocket(), -1);
  EXPECT_EQ(socket.Read(buffer, 4), -1);
  EXPECT_EQ(socket.ReadBytes(buffer, 4), -1);
  EXPECT_EQ(socket.Write(buffer, 4), -1);
  EXPECT_EQ(socket.WriteBytes(buffer, 4), -1);
  socket.Close();

  Pair pair;
  EXPECT_EQ(pair.listener.Accept(socket), -1);
  EXPECT_EQ(socket.Accept(pair.client), -1);
  EXPECT_NE(pair.client.GetSocket(), -1) << "nothing was done to it";
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketTest, BindWantsAHost) {
  QsSocket socket;
  EXPECT_EQ(socket.Bind("", 0), -5);
  EXPECT_EQ(socket.GetSocket(), -1) << "nothing is created";
  ASSERT_EQ(socket.Bind(kHost, 0), 0);
  const LocalAddress address = AddressOf(socket.GetSocket());
  EXPECT_EQ(address.address, 0x7F000001U);
  EXPECT_NE(address.port, 0);
  EXPECT_EQ(socket.Bind("", 0), -5);
  EXPECT_EQ(PortOf(socket.GetSocket()), address.port) << "the one that is there stays";
}

TEST_F(SocketTest, BindTakesAnyAddressForNullAndZero) {
  for (const char* const host : {static_cast<const char*>(nullptr), "0.0.0.0"}) {
    QsSocket socket;
    ASSERT_EQ(socket.Bind(host, 0), 0);
    EXPECT_EQ(AddressOf(socket.GetSocket()).address, 0U);
    EXPECT_NE(PortOf(socket.GetSocket()), 0);
  }
}

TEST_F(SocketTest, ANameWithoutAddressIsNotAnyAddress) {
  for (const bool binds : {true, false}) {
    LogCapture log;
    QsSocket socket;
    errno = 0;
    EXPECT_EQ(binds ? socket.Bind(kNoHost.c_str(), 0) : socket.Connect(kNoHost.c_str(), 80, 0), binds ? -2 : -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(socket.GetSocket(), -1);
    ASSERT_FALSE(log.Messages().empty());
    EXPECT_EQ(log.Messages().back().text, "could not resolve hostname " + kNoHost);
    EXPECT_EQ(log.Messages().back().flags, 0x40000000U);
  }
}

TEST_F(SocketTest, BindGivesTheReasonAsAWinsockNumber) {
  Pair pair;
  LogCapture log;
  QsSocket socket;
  EXPECT_EQ(socket.Bind(kHost, PortOf(pair.listener.GetSocket())), 10048);
  EXPECT_EQ(LastSocketError(), 10048);
  EXPECT_EQ(socket.GetSocket(), -1);
  EXPECT_EQ(socket.Bind("192.0.2.1", 0), 10049);  // for documentation, nobody's (RFC 5737)
  EXPECT_EQ(socket.GetSocket(), -1);
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketTest, APortMustBeOne) {
  for (const int port : {-1, 65536, 65536 + 80, INT_MAX, INT_MIN}) {
    QsSocket socket;
    EXPECT_EQ(socket.Bind(kHost, port), 10022) << port;
    EXPECT_EQ(socket.Connect(kHost, port, 0), -1) << port;
    EXPECT_EQ(socket.GetSocket(), -1);
  }
}

TEST_F(SocketTest, BindTakesAnAddressThatOnlyEndedConnectionsUse) {
  Pair pair;
  const int port = PortOf(pair.listener.GetSocket());
  pair.server.Close();  // who closes first waits for late packets
  char byte;
  EXPECT_EQ(pair.client.Read(&byte, 1), 0);
  pair.client.Close();
  pair.listener.Close();
  QsSocket again;
  EXPECT_EQ(again.Bind(kHost, port), 0);
  EXPECT_EQ(again.Listen(1), 0);
}

TEST_F(SocketTest, BindAgainClosesTheFirst) {
  Pair pair;
  const int port = PortOf(pair.listener.GetSocket());
  ASSERT_EQ(pair.listener.Bind(kHost, 0), 0);
  EXPECT_NE(PortOf(pair.listener.GetSocket()), port);
  QsSocket other;
  EXPECT_EQ(other.Connect(kHost, port, 0), -1) << "nobody listens there any more";
}

TEST_F(SocketTest, ListensWithAnyBacklog) {
  for (const int backlog : {-1, INT_MIN, 0, 1, INT_MAX}) {
    QsSocket listener;
    ASSERT_EQ(listener.Bind(kHost, 0), 0);
    EXPECT_EQ(listener.Listen(backlog), 0) << backlog;
    QsSocket client;
    EXPECT_EQ(client.Connect(kHost, PortOf(listener.GetSocket()), 0), 0) << backlog;
  }
}

TEST_F(SocketTest, ListenGivesTheReasonAsAWinsockNumber) {
  Pair pair;
  CloseBehindItsBack(pair.listener.GetSocket());
  EXPECT_EQ(pair.listener.Listen(1), kNotASocket);
}

TEST_F(SocketTest, AcceptGivesTheConnectionAndItsPeer) {
  Pair pair;
  EXPECT_EQ(pair.server.GetRemoteIP(), kLoopback);
  EXPECT_EQ(pair.client.GetRemoteIP(), kLoopback);
  EXPECT_EQ(pair.listener.GetRemoteIP(), 0) << "it has no peer";
  EXPECT_NE(pair.server.GetSocket(), pair.listener.GetSocket());
  EXPECT_EQ(PortOf(pair.server.GetSocket()), PortOf(pair.listener.GetSocket()));
}

TEST_F(SocketTest, AcceptClosesAClientThatIsOpen) {
  Pair pair;
  QsSocket second;
  ASSERT_EQ(second.Connect(kHost, PortOf(pair.listener.GetSocket()), 0), 0);
  ASSERT_EQ(pair.listener.Accept(pair.server), 0);
  char byte = 0;
  EXPECT_EQ(pair.client.Read(&byte, 1), 0) << "its connection has ended";
  EXPECT_EQ(pair.server.Write("x", 1), 1);
  EXPECT_EQ(second.Read(&byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

TEST_F(SocketTest, AcceptFailsOnWhatDoesNotListen) {
  Pair pair;
  LogCapture log;
  EXPECT_EQ(pair.client.Accept(pair.server), -2);
  EXPECT_EQ(pair.server.GetSocket(), -1);
  EXPECT_EQ(pair.listener.Accept(pair.listener), -2) << "closed before it could accept";
  EXPECT_EQ(pair.listener.GetSocket(), -1);
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketTest, ConnectIsRefusedWhereNobodyListens) {
  QsSocket bound;
  ASSERT_EQ(bound.Bind(kHost, 0), 0);
  LogCapture log;
  QsSocket socket;
  EXPECT_EQ(socket.Connect(kHost, PortOf(bound.GetSocket()), 30), -1);
  EXPECT_EQ(LastSocketError(), kRefused);
  EXPECT_EQ(socket.GetSocket(), -1);
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketTest, ConnectFindsNames) {
  if (qsbase::testing::IsWine()) {
    GTEST_SKIP() << "Wine's DNS client does not read the hosts file";
  }
  Pair pair;
  QsSocket socket;
  EXPECT_EQ(socket.Connect("localhost", PortOf(pair.listener.GetSocket()), 0), 0);
  EXPECT_EQ(socket.GetRemoteIP(), kLoopback);
}

TEST_F(SocketTest, ConnectClosesWhatIsOpen) {
  Pair pair;
  EXPECT_EQ(pair.client.Connect(kHost, -1, 0), -1);
  EXPECT_EQ(pair.client.GetSocket(), -1);
  char byte;
  EXPECT_EQ(pair.server.Read(&byte, 1), 0);
}

TEST_F(SocketTest, ConnectSendsSmallPiecesAtOnce) {
  Pair pair;
  EXPECT_TRUE(qsbase::testing::IsOn(pair.client.GetSocket(), IPPROTO_TCP, TCP_NODELAY));
}

TEST_F(SocketTest, ReadsAndWritesWhatIsThere) {
  Pair pair;
  const std::string sent("a\0b\r\n\x1a\xff", 7);
  EXPECT_EQ(pair.client.Write(sent.data(), 7), 7);
  char buffer[100];
  EXPECT_EQ(pair.server.Read(buffer, sizeof buffer), 7);
  EXPECT_EQ(std::string(buffer, 7), sent);
  EXPECT_EQ(pair.server.Write("xyz", 2), 2);
  EXPECT_EQ(pair.client.Read(buffer, 1), 1);
  EXPECT_EQ(pair.client.Read(buffer + 1, 50), 1);
  EXPECT_EQ(std::string(buffer, 2), "xy");
  EndSending(pair.client.GetSocket());
  EXPECT_EQ(pair.server.Read(buffer, 1), 0) << "the end of the stream";
}

// There is nothing to read, so a call that went to the system would wait for good.
TEST_F(SocketTest, ReadWantsABufferAndALength) {
  Pair pair;
  LogCapture log;
  char buffer[4] = "abc";
  EXPECT_EQ(pair.server.Read(nullptr, 4), -3);
  EXPECT_EQ(pair.server.Read(nullptr, 0), -3);
  EXPECT_EQ(pair.server.ReadBytes(nullptr, 4), -3);
  for (const int length : {0, -1, INT_MIN}) {
    EXPECT_EQ(pair.server.Read(buffer, length), 0) << length;
    EXPECT_EQ(pair.server.ReadBytes(buffer, length), 0) << length;
    EXPECT_EQ(pair.server.Write(buffer, length), 0) << length;
    EXPECT_EQ(pair.server.WriteBytes(buffer, length), 0) << length;
  }
  EXPECT_STREQ(buffer, "abc");
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketTest, WriteHandsANullBufferToTheSystem) {
  Pair pair;
  LogCapture log;
  EXPECT_EQ(pair.client.Write(nullptr, 4), -1);
  EXPECT_EQ(LastSocketError(), 10014);
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].flags, 0x40000000U);
  EXPECT_EQ(log.Messages()[0].text, "write to socket failed (Bad address)");
}

TEST_F(SocketTest, AFailedReadIsLogged) {
  QsSocket socket;
  ASSERT_EQ(socket.Bind(kHost, 0), 0);
  LogCapture log;
  char buffer[4];
  EXPECT_EQ(socket.Read(buffer, 4), -1);
  EXPECT_EQ(LastSocketError(), 10057);
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].flags, 0x40000000U);
  EXPECT_EQ(log.Messages()[0].text, "read from socket failed (Socket is not connected)");
  EXPECT_NE(socket.GetSocket(), -1) << "it stays open";
  EXPECT_EQ(socket.ReadBytes(buffer, 4), -1);
}

TEST_F(SocketTest, ABrokenConnectionFailsToBeRead) {
  if (qsbase::testing::IsWine()) {
    GTEST_SKIP() << kBreaksAreLost;
  }
  Pair pair;
  pair.BreakOff();
  LogCapture log;
  char buffer[4];
  EXPECT_EQ(pair.server.Read(buffer, 4), -1);
  EXPECT_EQ(LastSocketError(), 10054);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{"read from socket failed (Connection reset by peer)"});
}

// The first write after the break gives the reset, the ones behind it what raises SIGPIPE where it is not held back;
// this program has left that at its default, which ends it.
TEST_F(SocketTest, WritesToABrokenConnectionFailQuietly) {
  Pair pair;
  pair.BreakOff();
  LogCapture log;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(pair.server.Write("x", 1), -1);
    EXPECT_EQ(pair.server.WriteBytes("x", 1), -1);
  }
  ASSERT_EQ(log.Texts().size(), 6U);
  for (const std::string& text : log.Texts()) {
    EXPECT_TRUE(text == "write to socket failed (Connection reset by peer)" ||
                (kOnWindows && text == "write to socket failed (Software caused connection abort)"))
        << text;
  }
}

// A read ends where urgent data was sent, so the pieces stay two however they travel.
TEST_F(SocketTest, ReadBytesBeginsEveryPieceAtTheStart) {
  Pair pair;
  ASSERT_EQ(pair.client.Write("ab", 2), 2);
  ASSERT_TRUE(SendUrgent(pair.client.GetSocket(), '!'));
  ASSERT_EQ(pair.client.Write("cd", 2), 2);
  char buffer[5] = "----";
  EXPECT_EQ(pair.server.ReadBytes(buffer, 4), 4);
  EXPECT_STREQ(buffer, "cd--");
}

TEST_F(SocketTest, ReadBytesEndsWithTheStream) {
  Pair pair;
  ASSERT_EQ(pair.client.Write("abc", 3), 3);
  EndSending(pair.client.GetSocket());
  char buffer[10] = "---------";
  EXPECT_EQ(pair.server.ReadBytes(buffer, 9), 3);
  EXPECT_STREQ(buffer, "abc------");
  EXPECT_EQ(pair.server.ReadBytes(buffer, 9), 0);
}

// The piece that has come is told by nobody: kept.
TEST_F(SocketTest, ReadBytesGivesAFailureAtOnce) {
  if (qsbase::testing::IsWine()) {
    GTEST_SKIP() << kBreaksAreLost;
  }
  Pair pair;
  ASSERT_EQ(pair.client.Write("ab", 2), 2);
  LogCapture log;
  char buffer[4];
  int result = 0;
  Waiter reader([&] { result = pair.server.ReadBytes(buffer, 4); });
  reader.UntilAsleep();
  pair.BreakOff();
  reader.Join();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{"read from socket failed (Connection reset by peer)"});
}

TEST_F(SocketTest, MegabytesTravelInPieces) {
  constexpr int kSize = 8 << 20;
  const std::string sent = Noise(kSize);
  Pair pair;
  bool isSent = false;
  std::thread writer([&] { isSent = WriteAll(pair.client, sent); });
  std::string received(kSize, ' ');
  EXPECT_TRUE(ReadAll(pair.server, received.data(), kSize));
  writer.join();
  EXPECT_TRUE(isSent);
  EXPECT_TRUE(received == sent);
}

TEST_F(SocketTest, ALengthBeyondWhatComesIsFine) {
  Pair pair;
  ASSERT_EQ(pair.client.Write("abc", 3), 3);
  std::vector<char> buffer(INT_MAX / 16);
  EXPECT_EQ(pair.server.Read(buffer.data(), INT_MAX / 16), 3);
  EXPECT_EQ(std::string(buffer.data(), 3), "abc");
}

TEST_F(SocketTest, WaitForDataTellsWhatThereIs) {
  Pair pair;
  EXPECT_EQ(pair.server.WaitForData(0), 0);
  EXPECT_EQ(pair.listener.WaitForData(0), 0);
  QsSocket second;
  ASSERT_EQ(second.Connect(kHost, PortOf(pair.listener.GetSocket()), 0), 0);
  EXPECT_EQ(pair.listener.WaitForData(60), 1) << "somebody to accept";
  ASSERT_EQ(pair.client.Write("a", 1), 1);
  EXPECT_EQ(pair.server.WaitForData(60), 1);
  EXPECT_EQ(pair.server.WaitForData(-1), 1);
  EXPECT_EQ(pair.server.WaitForData(INT_MAX), 1);
  EXPECT_EQ(pair.server.WaitForData(INT_MIN), 1);
  char byte;
  EXPECT_EQ(pair.server.Read(&byte, 1), 1);
  EXPECT_EQ(pair.server.WaitForData(0), 0);
  EndSending(pair.client.GetSocket());
  EXPECT_EQ(pair.server.WaitForData(60), 1) << "the end of the stream";
  EXPECT_EQ(pair.server.Read(&byte, 1), 0);
}

TEST_F(SocketTest, WaitForDataSeesABrokenConnectionAsReadable) {
  Pair pair;
  pair.BreakOff();
  EXPECT_EQ(pair.server.WaitForData(60), 1);
}

TEST_F(SocketTest, WaitForDataTellsOfUrgentData) {
  Pair pair;
  ASSERT_TRUE(SendUrgent(pair.client.GetSocket(), '!'));
  EXPECT_EQ(pair.server.WaitForData(60), -1);
  ASSERT_EQ(pair.client.Write("a", 1), 1);
  EXPECT_EQ(pair.server.WaitForData(60), -1) << "it goes before data";
}

TEST_F(SocketTest, WaitForDataWithoutLimitWaits) {
  Pair pair;
  int result = 0;
  Waiter waiter([&] { result = pair.server.WaitForData(-1); });
  waiter.UntilAsleep();
  EXPECT_FALSE(waiter.HasEnded());
  EXPECT_EQ(pair.client.Write("a", 1), 1);
  waiter.Join();
  EXPECT_EQ(result, 1);
}

TEST_F(SocketTest, WaitForDataWithoutLimitEndsWithUrgentData) {
  Pair pair;
  int result = 0;
  Waiter waiter([&] { result = pair.server.WaitForData(-1); });
  waiter.UntilAsleep();
  EXPECT_TRUE(SendUrgent(pair.client.GetSocket(), '!'));
  waiter.Join();
  EXPECT_EQ(result, -1);
}

TEST_F(SocketTest, WaitForDataFailsOnASocketThatIsGone) {
  Pair pair;
  CloseBehindItsBack(pair.server.GetSocket());
  EXPECT_EQ(pair.server.WaitForData(60), -1);
  EXPECT_EQ(pair.server.GetRemoteIP(), 0);
}

TEST_F(SocketTest, CloseEndsTheConnection) {
  Pair pair;
  pair.client.Close();
  EXPECT_EQ(pair.client.GetSocket(), -1);
  EXPECT_EQ(pair.client.GetRemoteIP(), 0);
  char byte;
  EXPECT_EQ(pair.client.Read(&byte, 1), -1);
  EXPECT_EQ(pair.server.Read(&byte, 1), 0);
  pair.client.Close();
  EXPECT_EQ(pair.client.Connect(kHost, PortOf(pair.listener.GetSocket()), 0), 0) << "it can be used again";
}

TEST_F(SocketTest, TheDestructorCloses) {
  Pair pair;
  auto socket = std::make_unique<QsSocket>();
  ASSERT_EQ(socket->Connect(kHost, PortOf(pair.listener.GetSocket()), 0), 0);
  ASSERT_EQ(pair.listener.Accept(pair.server), 0);
  socket.reset();
  char byte;
  EXPECT_EQ(pair.server.Read(&byte, 1), 0);
}

TEST_F(SocketTest, CloseKeepsTheLastError) {
  Pair pair;
  QsSetLastError(42);
  pair.client.Close();
  EXPECT_EQ(QsGetLastError(), 42);
}

TEST_F(SocketTest, IsNotInherited) {
  Pair pair;
  EXPECT_FALSE(IsInheritedSocket(pair.listener.GetSocket()));
  EXPECT_FALSE(IsInheritedSocket(pair.client.GetSocket()));
  EXPECT_FALSE(IsInheritedSocket(pair.server.GetSocket()));
}

TEST_F(SocketTest, EveryThreadMayHaveItsOwn) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 100;
  std::vector<int> echoed(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&echoed, t] {
      Pair pair;
      for (int round = 0; round < kRounds; ++round) {
        const std::string sent = std::to_string(t) + ":" + std::to_string(round);
        const int size = static_cast<int>(sent.size());
        std::string received(sent.size(), ' ');
        const bool isEchoed = WriteAll(pair.client, sent) && ReadAll(pair.server, received.data(), size) &&
                              WriteAll(pair.server, received) && pair.client.WaitForData(60) == 1 &&
                              ReadAll(pair.client, received.data(), size);
        echoed[static_cast<std::size_t>(t)] += isEchoed && received == sent;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(std::accumulate(echoed.begin(), echoed.end(), 0), kThreads * kRounds);
}

#ifdef _WIN32

class SocketWindowsTest : public SocketTest {};

TEST_F(SocketWindowsTest, WantsAStart) {
  InitQsSocket(2);
  QsSocket socket;
  EXPECT_EQ(socket.Bind(kHost, 0), 10093);
  InitQsSocket(1);
}

#else

class SocketLinuxTest : public SocketTest {};
class SocketSignalTest : public SocketTest {};

TEST_F(SocketSignalTest, ReadGoesOn) {
  Pair pair;
  char byte = 0;
  int result = 0;
  Waiter waiter([&] { result = pair.server.Read(&byte, 1); });
  waiter.UntilAsleep();
  waiter.Interrupt();
  waiter.UntilAsleep();  // again: the signal has come before the data
  EXPECT_EQ(pair.client.Write("a", 1), 1);
  waiter.Join();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(byte, 'a');
}

TEST_F(SocketSignalTest, AcceptGoesOn) {
  Pair pair;
  int result = -9;
  Waiter waiter([&] { result = pair.listener.Accept(pair.server); });
  waiter.UntilAsleep();
  waiter.Interrupt();
  waiter.UntilAsleep();  // again: the signal has come before the data
  QsSocket second;
  EXPECT_EQ(second.Connect(kHost, PortOf(pair.listener.GetSocket()), 0), 0);
  waiter.Join();
  EXPECT_EQ(result, 0);
}

TEST_F(SocketSignalTest, WaitForDataGoesOn) {
  for (const int seconds : {-1, 3600}) {
    Pair pair;
    int result = -9;
    Waiter waiter([&] { result = pair.server.WaitForData(seconds); });
    waiter.UntilAsleep();
    waiter.Interrupt();
    waiter.UntilAsleep();  // again: the signal has come before the data
    EXPECT_EQ(pair.client.Write("a", 1), 1);
    waiter.Join();
    EXPECT_EQ(result, 1) << seconds;
  }
}

TEST_F(SocketSignalTest, WaitForDataGoesOnForTheTimeThatIsLeft) {
  Pair pair;
  int result = -9;
  Waiter waiter([&] { result = pair.server.WaitForData(1); });
  waiter.UntilAsleep();
  waiter.Interrupt();
  waiter.Join();
  EXPECT_EQ(result, 0);
}

// A write that is interrupted tells what the system has taken, and the rest begins at the start again.
TEST_F(SocketSignalTest, WriteBytesBeginsEveryPieceAtTheStart) {
  constexpr int kCount = 4 << 20;
  constexpr int kSize = kCount * static_cast<int>(sizeof(std::uint32_t));  // more than the system takes at once
  std::vector<std::uint32_t> sent(kCount);
  std::iota(sent.begin(), sent.end(), 0U);
  Pair pair;
  int result = 0;
  Waiter writer([&] { result = pair.client.WriteBytes(sent.data(), kSize); });
  writer.UntilAsleep();
  writer.Interrupt();
  // Asleep in its second write: nobody reads yet.
  std::string received(kSize, ' ');
  EXPECT_TRUE(ReadAll(pair.server, received.data(), kSize));
  writer.Join();
  EXPECT_EQ(result, kSize);
  const std::string all(reinterpret_cast<const char*>(sent.data()), kSize);
  const auto differs = std::mismatch(received.begin(), received.end(), all.begin()).first;
  ASSERT_NE(differs, received.end()) << "the write was not interrupted";
  // The start again; its zero bytes may have agreed with what would have come.
  const std::size_t restart = received.find(all.substr(0, 64), 1);
  ASSERT_NE(restart, std::string::npos);
  EXPECT_LE(restart, static_cast<std::size_t>(differs - received.begin()));
  EXPECT_EQ(received.substr(restart), all.substr(0, all.size() - restart));
}

TEST_F(SocketLinuxTest, ACancellationWaitsForTheDestructor) {
  int port = 0;
  EXPECT_TRUE(qsbase::testing::EndsCancelled([&port] {
    QsSocket socket;
    EXPECT_EQ(socket.Bind(kHost, 0), 0);
    EXPECT_EQ(socket.Listen(1), 0);
    port = PortOf(socket.GetSocket());
    pthread_cancel(pthread_self());
  }));
  QsSocket socket;
  EXPECT_EQ(socket.Bind(kHost, port), 0) << "it was closed";
}

TEST_F(SocketLinuxTest, DescriptorsAboveThoseOfSelect) {
  constexpr int kPairs = 300;
  constexpr rlim_t kNeeded = 1100 + 3 * kPairs;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max < kNeeded) {
    GTEST_SKIP() << "the system grants this process too few descriptors";
  }
  limit.rlim_cur = std::max(limit.rlim_cur, kNeeded);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<int> fillers;
  do {
    fillers.push_back(dup(STDIN_FILENO));
    ASSERT_NE(fillers.back(), -1);
  } while (fillers.back() < FD_SETSIZE);
  std::vector<std::unique_ptr<Pair> > pairs;
  for (int i = 0; i < kPairs; ++i) {
    pairs.push_back(std::make_unique<Pair>());
    ASSERT_GT(pairs.back()->client.GetSocket(), FD_SETSIZE);
  }
  for (const auto& pair : pairs) {
    EXPECT_EQ(pair->server.WaitForData(0), 0);
    EXPECT_EQ(pair->client.Write("a", 1), 1);
    EXPECT_EQ(pair->server.WaitForData(60), 1);
  }
  pairs.clear();
  for (const int filler : fillers) {
    close(filler);
  }
}

TEST_F(SocketLinuxTest, AnErrorThatTheTableDoesNotHaveIsLoggedWithoutText) {
  Pair pair;
  LogCapture log;
  char byte;
  callsThatFail = 2;
  errorOfCalls = ENONET;
  EXPECT_EQ(pair.server.Read(&byte, 1), -1);
  EXPECT_EQ(LastSocketError(), ENONET);
  EXPECT_EQ(pair.server.Write("a", 1), -1);
  EXPECT_EQ(callsThatFail, 0);
  EXPECT_EQ(log.Texts(), (std::vector<std::string>{"read from socket failed ()", "write to socket failed ()"}));
}

TEST_F(SocketLinuxTest, ANegativeBacklogReachesTheSystemAsTheLargest) {
  QsSocket socket;
  ASSERT_EQ(socket.Bind(kHost, 0), 0);
  for (const int backlog : {-1, INT_MIN}) {
    EXPECT_EQ(socket.Listen(backlog), 0);
    EXPECT_EQ(lastBacklog, 0x7FFFFFFF) << backlog;
  }
  EXPECT_EQ(socket.Listen(7), 0);
  EXPECT_EQ(lastBacklog, 7);
}

TEST_F(SocketLinuxTest, ListenReadAndWriteGoOnWhenTheyAreInterrupted) {
  QsSocket listener;
  ASSERT_EQ(listener.Bind(kHost, 0), 0);
  errorOfCalls = EINTR;
  callsThatFail = 3;
  EXPECT_EQ(listener.Listen(1), 0);
  EXPECT_EQ(callsThatFail, 0);
  Pair pair;
  LogCapture log;
  callsThatFail = 3;
  ASSERT_EQ(pair.client.Write("ab", 2), 2);
  EXPECT_EQ(callsThatFail, 0);
  char buffer[2];
  callsThatFail = 3;
  EXPECT_EQ(pair.server.Read(buffer, 2), 2);
  EXPECT_EQ(callsThatFail, 0);
  EXPECT_EQ(std::string(buffer, 2), "ab");
  EXPECT_TRUE(log.Texts().empty());
}

TEST_F(SocketLinuxTest, TwoMayBeBoundUntilOneListens) {
  QsSocket first;
  QsSocket second;
  ASSERT_EQ(first.Bind(kHost, 0), 0);
  ASSERT_EQ(second.Bind(kHost, PortOf(first.GetSocket())), 0);
  EXPECT_EQ(first.Listen(1), 0);
  EXPECT_EQ(second.Listen(1), 10048);
}

TEST_F(SocketLinuxTest, TheDescriptorsMayRunOut) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  Pair pair;
  QsSocket second;
  ASSERT_EQ(second.Connect(kHost, PortOf(pair.listener.GetSocket()), 0), 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  QsSocket socket;
  EXPECT_EQ(socket.Bind(kHost, 0), 10024);
  EXPECT_EQ(socket.Connect(kHost, 1, 0), -1);
  EXPECT_EQ(LastSocketError(), 10024);
  EXPECT_EQ(pair.listener.Accept(socket), -2);
  EXPECT_EQ(socket.GetSocket(), -1);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(pair.listener.Accept(socket), 0);
}

TEST_F(SocketLinuxTest, AnEmptyHostIsThisMachineForAConnection) {
  Pair pair;
  for (const char* const host : {"", static_cast<const char*>(nullptr)}) {
    QsSocket socket;
    EXPECT_EQ(socket.Connect(host, PortOf(pair.listener.GetSocket()), 0), 0);
  }
}

#endif

}  // namespace
