#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/net/hostinfo.h>
#include <QSbase/net/hostinfodetail.h>
#include <QSbase/net/socket.h>
#include <QSbase/thread/qsthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <common/logcapture.h>
#include <common/memorylimit.h>
#include <common/openhandles.h>
#include <common/platform.h>
#include <common/sanitized.h>

#ifdef _WIN32
#include <winsock2.h>

#include <windows.h>
#else
#include <common/forbiddencall.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#endif

namespace {

using qsbase::detail::Adapter;
using qsbase::detail::DnsRecord;
using qsbase::detail::ListedAdapters;
using qsbase::detail::TakeDnsAddresses;
using qsbase::testing::LogCapture;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr unsigned int kInfo3 = 0x10000003;
constexpr unsigned int kWarning3 = 0x20000003;

std::string ErrorOf(const std::string& ip) {
  try {
    IPAddress2Numeric(ip);
  } catch (const ExBase& error) {
    return error.GetErrorText();
  }
  return "no exception";
}

TEST(IPAddress2Numeric, PutsTheFirstNumberIntoTheHighByte) {
  // As python3 gives it: int(ipaddress.IPv4Address("192.168.0.1")).
  EXPECT_EQ(IPAddress2Numeric("192.168.0.1"), 3232235521UL);
  EXPECT_EQ(IPAddress2Numeric("1.2.3.4"), 16909060UL);
  EXPECT_EQ(IPAddress2Numeric("0.0.0.0"), 0UL);
  EXPECT_EQ(IPAddress2Numeric("255.255.255.255"), 4294967295UL);
}

TEST(IPAddress2Numeric, HasNoSign) {
  EXPECT_EQ(IPAddress2Numeric("200.0.0.0"), 3355443200UL) << "not a long that fills up with ones";
  EXPECT_EQ(IPAddress2Numeric("128.0.0.0"), 2147483648UL);
}

TEST(IPAddress2Numeric, AnEmptyPieceIsZero) {
  EXPECT_EQ(IPAddress2Numeric("1..2.3"), IPAddress2Numeric("1.0.2.3"));
  EXPECT_EQ(IPAddress2Numeric("1.2.3."), IPAddress2Numeric("1.2.3.0"));
  EXPECT_EQ(IPAddress2Numeric(".1.2.3"), IPAddress2Numeric("0.1.2.3"));
  EXPECT_EQ(IPAddress2Numeric("..."), 0UL);
}

TEST(IPAddress2Numeric, NumbersAreDecimalWhateverTheyBeginWith) {
  EXPECT_EQ(IPAddress2Numeric("010.001.000.0000000000000000255"), IPAddress2Numeric("10.1.0.255"));
}

TEST(IPAddress2Numeric, ThrowsForAnythingElse) {
  for (const char* const ip : {"",
                               ".",
                               "..",
                               "....",
                               "1",
                               "1.2.3",
                               "1.2.3.4.",
                               "1.2.3.4.5",
                               "1.2.3.256",
                               "256.1.1.1",
                               "1.2.3.x",
                               "1.2.3.-4",
                               "1.2.3.+4",
                               " 1.2.3.4",
                               "1.2.3.4 ",
                               "1.2.0x3.4",
                               "::1",
                               "4294967297.0.0.0",
                               "0.0.0.4294967296",
                               "1.2.3.18446744073709551617",
                               "1,2,3,4",
                               "localhost"}) {
    EXPECT_EQ(ErrorOf(ip), std::string(ip) + " is not a valid IP address");
  }
  const std::string zero("1.2.3.4\0", 8);
  EXPECT_EQ(ErrorOf(zero), zero + " is not a valid IP address");
}

TEST(IPAddress2String, WritesTheHighByteFirst) {
  EXPECT_EQ(IPAddress2String(3232235521UL), "192.168.0.1");
  EXPECT_EQ(IPAddress2String(0), "0.0.0.0");
  EXPECT_EQ(IPAddress2String(4294967295UL), "255.255.255.255");
  EXPECT_EQ(IPAddress2String(3355443200UL), "200.0.0.0");
}

TEST(IPAddress2String, TakesTheLower32Bits) {
  EXPECT_EQ(IPAddress2String(std::numeric_limits<unsigned long>::max()), "255.255.255.255");
  EXPECT_EQ(IPAddress2String(static_cast<unsigned long>(0x123456780A000001ULL)), "10.0.0.1");
}

TEST(IPAddress2String, AndBackIsTheSameForEveryBytePosition) {
  for (unsigned int shift = 0; shift < 32; shift += 8) {
    for (unsigned long byte = 0; byte < 256; ++byte) {
      const unsigned long ip = byte << shift;
      ASSERT_EQ(IPAddress2Numeric(IPAddress2String(ip)), ip);
    }
  }
}

TEST(IsPrivateIP, KnowsTheEdgesOfEachBlock) {
  const struct {
    const char* ip;
    bool isPrivate;
  } rows[] = {
      {"0.0.0.0", false},        {"9.255.255.255", false},   {"10.0.0.0", true},         {"10.255.255.255", true},
      {"11.0.0.0", false},       {"126.255.255.255", false}, {"127.0.0.0", true},        {"127.0.0.1", true},
      {"127.255.255.255", true}, {"128.0.0.0", false},       {"172.15.255.255", false},  {"172.16.0.0", true},
      {"172.31.255.255", true},  {"172.32.0.0", false},      {"192.167.255.255", false}, {"192.168.0.0", true},
      {"192.168.255.255", true}, {"192.169.0.0", false},     {"200.0.0.0", false},       {"255.255.255.255", false}};
  for (const auto& row : rows) {
    EXPECT_EQ(IsPrivateIP(IPAddress2Numeric(row.ip)), row.isPrivate) << row.ip;
  }
}

TEST(QsIsValidIP, TakesEveryAddress) {
  EXPECT_TRUE(QsIsValidIP("0.0.0.0"));
  EXPECT_TRUE(QsIsValidIP("255.255.255.255"));
  EXPECT_TRUE(QsIsValidIP("200.0.0.1"));
  EXPECT_TRUE(QsIsValidIP("..."));
  EXPECT_TRUE(QsIsValidIP(0UL));
  EXPECT_TRUE(QsIsValidIP(std::numeric_limits<unsigned long>::max()));
}

TEST(QsIsValidIP, ThrowsForAnythingElse) {
  EXPECT_THROW(QsIsValidIP("1.2.3"), ExBase);
  EXPECT_THROW(QsIsValidIP(""), ExBase);
}

Adapter MakeAdapter(const std::string& name, unsigned int kind, std::vector<std::string> addresses) {
  Adapter adapter;
  adapter.name = name;
  adapter.kind = kind;
  adapter.hasUnicastAddress = !addresses.empty();
  adapter.addresses = std::move(addresses);
  adapter.hardwareAddress = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
  return adapter;
}

TEST(Adapters, EthernetAndWiFiWithAnAddressAreListed) {
  const auto listed = ListedAdapters({MakeAdapter("eth0", 6, {"10.0.0.1", "fe80::1%2", "10.0.0.2"}),
                                      MakeAdapter("lo", 24, {"127.0.0.1"}), MakeAdapter("tun0", 131, {"10.1.0.1"}),
                                      MakeAdapter("ppp0", 23, {"10.2.0.1"}), MakeAdapter("eth1", 6, {}),
                                      MakeAdapter("wlan0", 71, {"10.3.0.1"}), MakeAdapter("other", 1, {"10.4.0.1"})});
  ASSERT_THAT(listed, SizeIs(2));
  EXPECT_EQ(listed[0].adapterName, "eth0");
  EXPECT_THAT(listed[0].addresses, ElementsAre("10.0.0.1", "fe80::1%2", "10.0.0.2"));
  EXPECT_EQ(listed[0].macAddress, "00-1a-2b-3c-4d-5e");
  EXPECT_EQ(listed[1].adapterName, "wlan0");
}

TEST(Adapters, AHardwareAddressHasAnyLength) {
  Adapter adapter = MakeAdapter("eth0", 6, {"10.0.0.1"});
  adapter.hardwareAddress.clear();
  EXPECT_EQ(ListedAdapters({adapter}).at(0).macAddress, "");
  adapter.hardwareAddress = {0xFF};
  EXPECT_EQ(ListedAdapters({adapter}).at(0).macAddress, "ff");
  adapter.hardwareAddress = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(ListedAdapters({adapter}).at(0).macAddress, "01-02-03-04-05-06-07-08");
}

TEST(Adapters, NoneAtAllAreAList) { EXPECT_THAT(ListedAdapters({}), IsEmpty()); }

/// On Windows the names and addresses need it.
class HostTest : public ::testing::Test {
 protected:
  HostTest() { InitQsSocket(1); }
  ~HostTest() override { InitQsSocket(2); }
};

TEST_F(HostTest, AdaptersReplaceWhatWasThere) {
  std::vector<QsAdapterInfoEx> adapters(3, QsAdapterInfoEx{"stale", {"stale"}, "stale"});
  EXPECT_TRUE(QsGetAdapterInfoEx(adapters));
  for (const QsAdapterInfoEx& adapter : adapters) {
    EXPECT_NE(adapter.adapterName, "stale");
    EXPECT_NE(adapter.adapterName, "lo");
    EXPECT_THAT(adapter.addresses, ::testing::Not(IsEmpty())) << adapter.adapterName;
  }
}

TEST_F(HostTest, NamesAndAddressesOfAdaptersLeadToEachOther) {
  std::vector<QsAdapterInfoEx> adapters;
  ASSERT_TRUE(QsGetAdapterInfoEx(adapters));
  for (const QsAdapterInfoEx& adapter : adapters) {
    EXPECT_EQ(QsGetIPFromDev(adapter.adapterName), adapter.addresses.front());
    EXPECT_TRUE(QsIsOwnIPAddress(adapter.addresses.back()));
    EXPECT_NE(QsGetDevFromIP(adapter.addresses.back()), "");
  }
}

TEST_F(HostTest, OtherAddressesAreNotOnes) {
  EXPECT_TRUE(QsIsOwnIPAddress("127.0.0.1"));
  EXPECT_FALSE(QsIsOwnIPAddress("127.0.0.2"));
  EXPECT_FALSE(QsIsOwnIPAddress("127.0.0.01")) << "compared as text";
  EXPECT_FALSE(QsIsOwnIPAddress("192.0.2.1")) << "a block for documents";
  EXPECT_FALSE(QsIsOwnIPAddress(""));
  EXPECT_EQ(QsGetDevFromIP("192.0.2.1"), "");
  EXPECT_EQ(QsGetDevFromIP("127.0.0.1"), "") << "the loopback is no adapter here";
  EXPECT_EQ(QsGetDevFromIP(""), "");
  EXPECT_EQ(QsGetIPFromDev("no such adapter"), "");
  EXPECT_EQ(QsGetIPFromDev("lo"), "");
  EXPECT_EQ(QsGetIPFromDev(""), "");
}

TEST_F(HostTest, SeveralThreadsMayAsk) {
  const std::string name = QsGetHostName();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&name] {
      std::vector<QsAdapterInfoEx> adapters;
      EXPECT_TRUE(QsGetAdapterInfoEx(adapters));
      EXPECT_EQ(QsGetHostName(), name);
      EXPECT_NE(QsGetUserName(), "");
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

/// What a program of the system prints on its first line.
std::string OutputOf(const char* command) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command, "r"), &pclose);
  char line[512] = "";
  if (pipe == nullptr || std::fgets(line, sizeof line, pipe.get()) == nullptr) {
    return {};
  }
  return std::string(line).substr(0, std::strcspn(line, "\r\n"));
}

#ifdef _WIN32

TEST_F(HostTest, TheHostNameIsTheSystems) {
  char name[256] = "";
  DWORD size = sizeof name;
  ASSERT_NE(GetComputerNameExA(ComputerNamePhysicalDnsHostname, name, &size), 0);
  std::string host = QsGetHostName();
  EXPECT_EQ(_stricmp(host.c_str(), name), 0) << host << " " << name;
  EXPECT_EQ(QsGetFQDName(), host);
}

TEST(QsGetHostName, IsTheLoopbackBeforeTheSystemsSocketsAreStarted) {
  if (qsbase::testing::IsWine()) {
    GTEST_SKIP() << "Wine tells the host name without a start";
  }
  const LogCapture log;
  EXPECT_EQ(QsGetHostName(), "127.0.0.1");
  ASSERT_THAT(log.Messages(), SizeIs(1));
  EXPECT_EQ(log.Messages()[0].flags, kWarning3);
  EXPECT_EQ(log.Messages()[0].text, "gethostname failed - setting hostname to '127.0.0.1' (WSAStartup not yet called)");
}

TEST(QsGetUserName, IsTheSystems) { EXPECT_EQ(QsGetUserName(), OutputOf("echo %USERNAME%")); }

TEST(QsGetComputerName, IsTheSystems) {
  char name[MAX_COMPUTERNAME_LENGTH + 1] = "";
  DWORD size = sizeof name;
  ASSERT_NE(GetComputerNameExA(ComputerNameNetBIOS, name, &size), 0);
  EXPECT_EQ(QsGetComputerName(), name);
}

#else

TEST_F(HostTest, TheHostNameIsTheSystems) {
  utsname system{};
  ASSERT_EQ(uname(&system), 0);
  EXPECT_EQ(QsGetHostName(), system.nodename);
  EXPECT_EQ(QsGetFQDName(), system.nodename);
}

TEST(QsGetUserName, IsTheSystems) {
  const std::string name = OutputOf("id -un");
  EXPECT_EQ(QsGetUserName(), name.empty() ? "anon" : name);
}

TEST(QsGetUserName, IsTheEffectiveUsers) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become somebody else";
  }
  const uid_t nobody = static_cast<uid_t>(std::atoi(OutputOf("id -u nobody").c_str()));
  ASSERT_EQ(seteuid(nobody), 0);
  EXPECT_EQ(QsGetUserName(), "nobody");
  ASSERT_EQ(seteuid(0), 0);
  constexpr uid_t kNobodys = 3987654321;  // without a record
  ASSERT_EQ(seteuid(kNobodys), 0);
  EXPECT_EQ(QsGetUserName(), "anon");
  ASSERT_EQ(seteuid(0), 0);
}

TEST(QsGetComputerName, IsTheFirstLabelOfTheHostName) {
  EXPECT_EQ(QsGetComputerName(), OutputOf("uname -n | cut -d. -f1"));
}

TEST(QsGetHostName, IsTheLoopbackWhenTheSystemDoesNotTell) {
  if (!qsbase::testing::ForbidSystemCall(SYS_uname, EFAULT)) {
    GTEST_SKIP() << qsbase::testing::kForbidsNoCalls;
  }
  const LogCapture log;
  EXPECT_EQ(QsGetHostName(), "127.0.0.1");
  EXPECT_EQ(QsGetFQDName(), "127.0.0.1");
  EXPECT_EQ(QsGetComputerName(), "anon");
  ASSERT_THAT(log.Messages(), SizeIs(2)) << "the computer's name is asked for in silence";
  EXPECT_EQ(log.Messages()[0].flags, kWarning3);
  EXPECT_EQ(log.Messages()[0].text, "gethostname failed - setting hostname to '127.0.0.1' (Bad address)");
}

TEST(QsGetAdapterInfoEx, IsFalseWhenTheSystemDoesNotTell) {
  rlimit files{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  const rlimit none{0, files.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::vector<QsAdapterInfoEx> adapters(1);
  const bool told = QsGetAdapterInfoEx(adapters);
  const bool ownsLoopback = QsIsOwnIPAddress("127.0.0.1");
  const bool ownsAnother = QsIsOwnIPAddress("10.0.0.1");
  const std::string adapter = QsGetDevFromIP("10.0.0.1");
  const std::string ip = QsGetIPFromDev("eth0");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);  // the sanitizers need descriptors for what follows
  EXPECT_FALSE(told);
  EXPECT_THAT(adapters, IsEmpty());
  EXPECT_TRUE(ownsLoopback);
  EXPECT_FALSE(ownsAnother);
  EXPECT_EQ(adapter, "");
  EXPECT_EQ(ip, "");
}

#endif

DnsRecord Address(const std::string& ip) {
  const auto number = static_cast<std::uint32_t>(IPAddress2Numeric(ip));
  const unsigned char bytes[] = {static_cast<unsigned char>(number >> 24U), static_cast<unsigned char>(number >> 16U),
                                 static_cast<unsigned char>(number >> 8U), static_cast<unsigned char>(number)};
  DnsRecord record{qsbase::detail::kDnsAddress, 4, true, 0};
  std::memcpy(&record.address, bytes, sizeof bytes);
  return record;
}

DnsRecord OfType(std::uint16_t type, std::size_t dataLength) { return {type, dataLength, true, 0}; }

/// The 20 numbers, each as its text in network byte order.
std::vector<std::string> Texts(const int* addresses) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < qsbase::detail::kDnsSlots; ++i) {
    unsigned char bytes[4];
    std::memcpy(bytes, addresses + i, sizeof bytes);
    std::string text;
    for (const unsigned char byte : bytes) {
      text += text.empty() ? "" : ".";
      text += std::to_string(byte);
    }
    texts.push_back(text);
  }
  return texts;
}

/// The addresses taken; what stands behind them must be zero.
std::vector<std::string> Taken(const std::vector<DnsRecord>& records) {
  int addresses[qsbase::detail::kDnsSlots] = {};
  const std::size_t count = TakeDnsAddresses("host.example", records, addresses);
  std::vector<std::string> texts = Texts(addresses);
  EXPECT_THAT(std::vector<std::string>(texts.begin() + static_cast<std::ptrdiff_t>(count), texts.end()),
              Each(std::string("0.0.0.0")));
  texts.resize(count);
  return texts;
}

TEST(DnsRecords, GiveTheirAddressesInOrder) {
  EXPECT_THAT(Taken({Address("10.0.0.2"), Address("10.0.0.1"), Address("200.0.0.9")}),
              ElementsAre("10.0.0.2", "10.0.0.1", "200.0.0.9"));
  EXPECT_THAT(Taken({}), IsEmpty());
}

TEST(DnsRecords, FollowAliases) {
  for (const std::size_t length : {std::size_t{4}, std::size_t{8}, std::size_t{17}}) {
    EXPECT_THAT(Taken({OfType(5, length), OfType(39, length), OfType(5, length), Address("10.0.0.1")}),
                ElementsAre("10.0.0.1"));
  }
}

TEST(DnsRecords, EndAtOtherLengths) {
  EXPECT_THAT(Taken({Address("10.0.0.1"), OfType(28, 16), Address("10.0.0.2")}), ElementsAre("10.0.0.1"));
  EXPECT_THAT(Taken({OfType(1, 3), Address("10.0.0.2")}), IsEmpty());
  EXPECT_THAT(Taken({OfType(1, 0), Address("10.0.0.2")}), IsEmpty());
  EXPECT_THAT(Taken({OfType(99, 4), Address("10.0.0.2")}), ElementsAre("10.0.0.2")) << "not at other types";
}

TEST(DnsRecords, CountInTheAnswerOnly) {
  DnsRecord additional = Address("10.0.0.1");
  additional.inAnswer = false;
  EXPECT_THAT(Taken({additional, Address("10.0.0.2")}), ElementsAre("10.0.0.2"));
}

TEST(DnsRecords, GiveNineteenAddresses) {
  std::vector<DnsRecord> records;
  std::vector<std::string> expected;
  for (int i = 1; i <= 30; ++i) {
    const std::string ip = "10.0.0." + std::to_string(i);
    records.push_back(Address(ip));
    if (i <= 19) {
      expected.push_back(ip);
    }
  }
  EXPECT_EQ(Taken(records), expected);
}

TEST(DnsRecords, AreLoggedFromLevelThree) {
  int addresses[qsbase::detail::kDnsSlots] = {};
  LogCapture log;
  QsSetLogLevel(2);
  log.Clear();
  TakeDnsAddresses("h", {Address("200.1.2.3")}, addresses);
  EXPECT_THAT(log.Texts(), IsEmpty());
  QsSetLogLevel(3);
  log.Clear();
  TakeDnsAddresses("h", {OfType(5, 4), Address("200.1.2.3")}, addresses);
  ASSERT_THAT(log.Messages(), SizeIs(1));
  EXPECT_EQ(log.Messages()[0].flags, kInfo3);
  EXPECT_EQ(log.Messages()[0].text, "DNS: A record for h: 200.1.2.3");
}

using Result = std::unique_ptr<int[], decltype(&FreeDNSQuery)>;

Result Query(const char* name) { return {DNSQuery(name), &FreeDNSQuery}; }

TEST_F(HostTest, QueriesOfNothingGiveNull) { EXPECT_EQ(DNSQuery(nullptr), nullptr); }

TEST_F(HostTest, QueriesWithoutMemoryGiveNull) {
  qsbase::testing::largestAllocation = 79;  // 20 numbers take 80
  const int* const result = DNSQuery("10.0.0.1");
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(qsbase::testing::lastArraySize, 80U);
}

#ifndef _WIN32  // where a look-up that fails needs no memory of the library, and a kill spares nothing

TEST_F(HostTest, LookUpsWithoutMemoryGiveNull) {
  const std::string noName(64, 'a');  // no server need be asked
  for (const std::size_t most : {std::size_t{80}, std::size_t{65534}}) {
    LogCapture log;
    qsbase::testing::largestAllocation = most;
    const int* const result = DNSQuery(noName.c_str());
    qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(log.Texts(), IsEmpty());
  }
}

#ifndef QSBASE_TESTS_SANITIZED  // the sanitizers wait for killed threads for good

class Looker : public QsThread {
 public:
  Looker() : QsThread("looker", nullptr) {}
  void Execute() override {
    while (!Terminated()) {
      FreeDNSQuery(DNSQuery("localhost"));
    }
  }
};

TEST_F(HostTest, AKilledThreadLeavesTheHostsFileClosed) {
  const LogCapture log;
  const auto opened = qsbase::testing::HandlesOpenedBy([] {
    for (int i = 0; i < 50; ++i) {
      Looker looker;
      looker.Create();
      std::this_thread::sleep_for(std::chrono::microseconds(100 * (i % 10)));
      EXPECT_EQ(looker.Kill(), 0U);
    }
  });
  EXPECT_THAT(opened, IsEmpty());
  EXPECT_NE(Query("localhost"), nullptr);
}

#endif
#endif

TEST_F(HostTest, FreeingNothingIsHarmless) { FreeDNSQuery(nullptr); }

TEST_F(HostTest, DottedAddressesAreNotLookedUp) {
  const struct {
    const char* text;
    const char* ip;
  } rows[] = {{"10.0.0.1", "10.0.0.1"},     {"200.0.0.1", "200.0.0.1"},  {"0.0.0.0", "0.0.0.0"},
              {"127.1", "127.0.0.1"},       {"0x7f.0.0.1", "127.0.0.1"}, {"010.0.0.1", "8.0.0.1"},
              {"3232235521", "192.168.0.1"}};
  LogCapture log;
  QsSetLogLevel(3);
  for (const auto& row : rows) {
    log.Clear();
    const Result result = Query(row.text);
    ASSERT_NE(result, nullptr);
    std::vector<std::string> expected(20, "0.0.0.0");
    expected[0] = row.ip;
    EXPECT_EQ(Texts(result.get()), expected) << row.text;
    ASSERT_THAT(log.Messages(), SizeIs(1)) << row.text;
    EXPECT_EQ(log.Messages()[0].flags, kInfo3);
    EXPECT_EQ(log.Messages()[0].text, std::string("DNS: host ") + row.text + " is already an IP address");
  }
}

TEST_F(HostTest, DottedAddressesAreLoggedFromLevelThree) {
  LogCapture log;
  QsSetLogLevel(2);
  log.Clear();
  Query("10.0.0.1");
  EXPECT_THAT(log.Texts(), IsEmpty());
}

}  // namespace
