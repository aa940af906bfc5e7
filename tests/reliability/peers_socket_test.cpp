// A socket whose peer says nothing, drips, ends or resets the connection at every byte, or takes nothing.
#include <QSbase/net/socket.h>

#include <latch>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <QSbase/net/socketerror.h>

#include <common/logcapture.h>
#include <integration/common/scriptedserver.h>
#include <reliability/common/peers.h>

using namespace qsbase::testing;

namespace {

constexpr const char* kHost = "127.0.0.1";
constexpr int kReset = 10054;

class PeersSocket : public PeerTest {
 protected:
  const LogCapture _log;
};

// All that comes, and the result of the last read.
std::string ReadAll(QsSocket& socket, int& last) {
  std::string bytes;
  char buffer[7];
  while (socket.WaitForData(60) != 0 && (last = socket.Read(buffer, sizeof buffer)) > 0) {
    bytes.append(buffer, static_cast<std::size_t>(last));
  }
  return bytes;
}

}  // namespace

TEST_F(PeersSocket, AnEndAtEveryByte) {
  const std::string message = "twenty bytes of text";
  for (std::size_t size = 0; size <= message.size(); ++size) {
    for (const bool reset : {false, true}) {
      std::latch connected(1);  // a reset before that is a failure to connect
      const ScriptedServer server(
          [&](Connection& connection) {
            connected.wait();
            connection.EndAfter(size, reset);
            connection.Send(message + "!");
          },
          false);
      QsSocket socket;
      EXPECT_EQ(socket.Connect(kHost, server.Port(), 0), 0);
      connected.count_down();
      int last = 1;
      EXPECT_EQ(ReadAll(socket, last), message.substr(0, size));
      EXPECT_EQ(last, reset ? -1 : 0) << size;
      EXPECT_TRUE(!reset || qsbase::detail::LastSocketError() == kReset) << size;
    }
  }
}

TEST_F(PeersSocket, WhatDripsIsReadAsItComes) {
  const ScriptedServer server([](Connection& connection) { connection.SendSlowly("slow but sure", milliseconds(10)); },
                              false);
  QsSocket socket;
  ASSERT_EQ(socket.Connect(kHost, server.Port(), 0), 0);
  int last = 1;
  EXPECT_EQ(ReadAll(socket, last), "slow but sure");
  EXPECT_EQ(last, 0);
  char byte = 0;
  EXPECT_EQ(socket.ReadBytes(&byte, 1), 0) << "nothing more comes";
}

TEST_F(PeersSocket, SilenceIsWaitedForNoLongerThanAsked) {
  const ScriptedServer server([](Connection& connection) { connection.WaitForClose(); }, false);
  QsSocket socket;
  ASSERT_EQ(socket.Connect(kHost, server.Port(), 0), 0);
  const Cost cost = CostOf([&] { EXPECT_EQ(socket.WaitForData(1), 0); });
  Tell("socket: says nothing, waited for a second", cost, "0");
  EXPECT_GE(cost.time, milliseconds(900));
  ExpectBounded("silence", cost);
}

// The reset ends the write that waits for room, and raises no signal.
TEST_F(PeersSocket, APeerThatTakesNothingAndGoesMakesTheWriteFail) {
  const std::string much(64 << 20, 'x');
  std::latch connected(1);
  const ScriptedServer server(
      [&](Connection& connection) {
        connected.wait();
        std::this_thread::sleep_for(milliseconds(50));
        connection.Reset();
      },
      false);
  QsSocket socket;
  EXPECT_EQ(socket.Connect(kHost, server.Port(), 0), 0);
  connected.count_down();
  const Cost cost = CostOf([&] { EXPECT_EQ(socket.WriteBytes(much.data(), static_cast<int>(much.size())), -1); });
  Tell("socket: takes nothing and resets", cost, "-1");
  ExpectBounded("write", cost);
}
