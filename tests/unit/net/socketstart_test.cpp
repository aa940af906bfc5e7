#include <QSbase/net/socket.h>
#include <QSbase/net/socketstart.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/resource.h>
#endif

#include <map>
#include <string>
#include <vector>

#include <common/logcapture.h>

namespace {

using qsbase::detail::ReportSocketStart;
using qsbase::detail::ReportSocketStop;
using qsbase::detail::SocketSystem;
using qsbase::testing::LogCapture;

constexpr unsigned int kInfo1 = 0x10000001;
constexpr unsigned int kAlert = 0x40000505;  // an error of level 5 with alert number 5

const char* const kFound = "WinSock DLL 2.2 or higher found";

void ExpectOne(const LogCapture& log, unsigned int flags, const std::string& text) {
  const std::vector<LogCapture::Message> messages = log.Messages();
  ASSERT_EQ(messages.size(), 1U) << text;
  EXPECT_EQ(messages[0].flags, flags) << text;
  EXPECT_EQ(messages[0].text, text);
}

TEST(InitQsSocket, SaysWhatTheSystemHas) {
  LogCapture log;
  InitQsSocket(1);
  InitQsSocket(2);
  const std::vector<LogCapture::Message> messages = log.Messages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].flags, kInfo1);
#ifdef _WIN32
  EXPECT_EQ(messages[0].text.rfind("WinSock Description: WinSock 2.0, Systemstatus: Running, MaxSockets: ", 0), 0U)
      << messages[0].text;
#else
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(messages[0].text,
            "WinSock Description: BSD sockets, Systemstatus: Running, MaxSockets: " + std::to_string(limit.rlim_cur));
#endif
  EXPECT_EQ(messages[1].flags, kInfo1);
  EXPECT_EQ(messages[1].text, kFound);
}

TEST(InitQsSocket, OtherPhasesDoNothing) {
  LogCapture log;
  for (const int phase : {-1, 0, 3, 100}) {
    InitQsSocket(phase);
  }
  EXPECT_TRUE(log.Texts().empty());
}

TEST(InitQsSocket, MayBeStoppedWithoutAStart) {
  LogCapture log;
  InitQsSocket(2);
#ifdef _WIN32
  ExpectOne(log, kAlert, "Windows Sockets not initialized");
#else
  EXPECT_TRUE(log.Texts().empty());
#endif
}

TEST(SocketStart, NamesTheCauseOfAFailure) {
  const std::map<int, std::string> causes = {
      {10014, "Pointer to the WSADATA struct is invalid"},
      {10036, "A blocking Windows Sockets 1.1 operation is in progress"},
      {10067, "Limit of taks supported by this Windows Socket implementation has reached"},
      {10091, "Network subsystem not ready for network communication"},
      {10092, "Requested version not provided by this Windows Sockets implementation"}};
  for (const auto& [code, text] : causes) {
    LogCapture log;
    ReportSocketStart(code, {});
    ExpectOne(log, kAlert, text);
  }
  LogCapture log;
  for (const int silent : {1, 10050, 10093, 11001}) {
    ReportSocketStart(silent, {"x", "x", 1, true});
  }
  EXPECT_TRUE(log.Texts().empty());
}

TEST(SocketStart, SaysWhenTheVersionIsAnother) {
  LogCapture log;
  ReportSocketStart(0, {"100% new", "on", 7, false});
  const std::vector<LogCapture::Message> messages = log.Messages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].flags, kInfo1);
  EXPECT_EQ(messages[0].text, "WinSock Description: 100% new, Systemstatus: on, MaxSockets: 7");
  EXPECT_EQ(messages[1].flags, kAlert);
  EXPECT_EQ(messages[1].text, "Your WinSock DLL does not Support 2.2");
}

TEST(SocketStart, NamesTheCauseOfAStopThatFails) {
  const std::map<int, std::string> causes = {
      {10036,
       "A blocking Windows Sockets 1.1 call is in progress, or the service provider is still processing a callback "
       "function"},
      {10050, "The network subsystem has failed"},
      {10093, "Windows Sockets not initialized"}};
  for (const auto& [code, text] : causes) {
    LogCapture log;
    ReportSocketStop(code);
    ExpectOne(log, kAlert, text);
  }
  LogCapture log;
  for (const int silent : {0, 1, 10014, 10091}) {
    ReportSocketStop(silent);
  }
  EXPECT_TRUE(log.Texts().empty());
}

}  // namespace
