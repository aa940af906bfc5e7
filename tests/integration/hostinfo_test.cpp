// Host information in a network of the test's own: look-ups from a real and from a scripted name server, adapters that
// the test makes.
#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/net/hostinfo.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <common/logcapture.h>
#include <common/sanitized.h>
#include <common/tempdir.h>
#include <integration/common/childprocess.h>
#include <integration/common/dnspeer.h>
#include <integration/common/loopback.h>
#include <integration/common/ownnetwork.h>

#ifdef QSBASE_TESTS_SANITIZED
// The C library keeps its table of resolver configurations under a lock of its own, which ThreadSanitizer does not see.
extern "C" const char* __tsan_default_suppressions() { return "race:__libc_dynarray_emplace_enlarge\n"; }
#endif

using namespace qsbase::testing;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

constexpr unsigned int kInfo3 = 0x10000003;
constexpr unsigned int kError3 = 0x40000003;

/// The addresses up to the first 0; behind it nothing else may stand.
std::vector<std::string> Addresses(const std::string& name) {
  const std::unique_ptr<int[], decltype(&FreeDNSQuery)> result(DNSQuery(name.c_str()), &FreeDNSQuery);
  std::vector<std::string> texts;
  if (result == nullptr) {
    ADD_FAILURE() << "null";
    return texts;
  }
  const int* const first = result.get();
  const int* const end = first + 20;
  const int* const last = std::find(first, end, 0);
  EXPECT_NE(last, end) << "the last number is always 0";
  EXPECT_THAT(std::vector<int>(last, end), Each(0));
  for (const int* address = first; address != last; ++address) {
    char text[INET_ADDRSTRLEN];
    texts.emplace_back(inet_ntop(AF_INET, address, text, sizeof text));
  }
  return texts;
}

class HostLookUp : public OwnNetwork {
 protected:
  /// The real server, for the zone "example"; it refuses what is outside.
  void StartServer() {
    std::string configuration =
        "port=53\nlisten-address=127.0.0.1\nbind-interfaces\nno-resolv\nno-hosts\nno-round-robin\nuser=root\n"
        "local=/example/\n"
        "host-record=one.example,10.1.0.1\n"
        "host-record=high.example,200.255.0.128\n"
        "host-record=six.example,fd00::1\n"
        "host-record=both.example,10.1.0.2,fd00::2\n"
        "txt-record=text.example,nothing else\n"
        "cname=alias.example,one.example\n"
        "cname=chain.example,alias.example\n"
        "cname=dead-end.example,six.example\n"
        "server=/broken.example/127.0.0.2\n";
    for (const char* const ip : {"10.2.0.3", "10.2.0.1", "10.2.0.2"}) {
      configuration += std::string("host-record=several.example,") + ip + "\n";
    }
    for (int i = 1; i <= 60; ++i) {
      configuration += "host-record=many.example,10.3.0." + std::to_string(i) + "\n";
    }
    const std::vector<std::string> command = {
        "dnsmasq", "--keep-in-foreground", "--pid-file=", "--conf-file=" + _dir.Write("dnsmasq.conf", configuration)};
    _server = std::make_unique<ChildProcess>(command, _dir / "dnsmasq.out");
    while (!Accepts(53)) {
      if (!_server->Running()) {
        throw std::runtime_error("dnsmasq ended: " + _server->Output());
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    SetResolver("nameserver 127.0.0.1\n");
  }

  void StopServer() { _server.reset(); }

  /// What is logged of one look-up at log level 3, which gives no address.
  static std::vector<LogCapture::Message> FailureOf(const std::string& name, int level = 3) {
    LogCapture log;
    QsSetLogLevel(level);
    log.Clear();
    EXPECT_THAT(Addresses(name), IsEmpty()) << name;
    const std::vector<LogCapture::Message> messages = log.Messages();
    QsSetLogLevel(0);
    return messages;
  }

  static void ExpectFailure(const std::string& name, unsigned int flags, const std::string& text) {
    const auto messages = FailureOf(name);
    ASSERT_THAT(messages, SizeIs(1)) << name;
    EXPECT_EQ(messages[0].flags, flags) << name;
    EXPECT_EQ(messages[0].text, "DNS: " + name + " - " + text);
    // What is no error of the system is not told without being asked for.
    EXPECT_THAT(FailureOf(name, 2), SizeIs(flags == kError3 ? 1 : 0)) << name;
  }

 private:
  std::unique_ptr<ChildProcess> _server;
};

std::string Address(int last) { return {'\x0A', '\0', '\0', static_cast<char>(last)}; }

}  // namespace

TEST_F(HostLookUp, GivesTheAddressOfAName) {
  StartServer();
  EXPECT_THAT(Addresses("one.example"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(Addresses("ONE.Example"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(Addresses("one.example."), ElementsAre("10.1.0.1"));
  EXPECT_THAT(Addresses("high.example"), ElementsAre("200.255.0.128"));
  EXPECT_THAT(Addresses("both.example"), ElementsAre("10.1.0.2"));
}

TEST_F(HostLookUp, KeepsTheOrderOfTheAnswer) {
  StartServer();
  // This server orders them as it likes, the scripted one as told.
  EXPECT_THAT(Addresses("several.example"), ::testing::UnorderedElementsAre("10.2.0.1", "10.2.0.2", "10.2.0.3"));
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) {
    std::string answer = question.Head(5);
    for (const int last : {9, 1, 5, 200, 2}) {
      answer += DnsQuestion::Record(1, Address(last));
    }
    return answer;
  });
  SetResolver("nameserver 127.0.0.2\n");
  EXPECT_THAT(Addresses("order.example"), ElementsAre("10.0.0.9", "10.0.0.1", "10.0.0.5", "10.0.0.200", "10.0.0.2"));
}

TEST_F(HostLookUp, FollowsAliases) {
  StartServer();
  EXPECT_THAT(Addresses("alias.example"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(Addresses("chain.example"), ElementsAre("10.1.0.1"));
}

TEST_F(HostLookUp, LogsEachAddress) {
  StartServer();
  LogCapture log;
  QsSetLogLevel(3);
  log.Clear();
  EXPECT_THAT(Addresses("chain.example"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(log.Texts(), ElementsAre("DNS: A record for chain.example: 10.1.0.1"));
}

TEST_F(HostLookUp, ANameThatIsNotThereIsNoError) {
  StartServer();
  ExpectFailure("nobody.example", kInfo3, QsErrorMessage(9003));
  EXPECT_EQ(QsErrorMessage(9003), "DNS name does not exist.");
}

TEST_F(HostLookUp, ANameWithoutAddressIsNoError) {
  StartServer();
  ExpectFailure("six.example", kInfo3, QsErrorMessage(9501));
  ExpectFailure("text.example", kInfo3, QsErrorMessage(9501));
  EXPECT_EQ(QsErrorMessage(9501), "No records found for given DNS query.");
}

TEST_F(HostLookUp, AnAliasOfANameWithoutAddressHasNone) {
  StartServer();
  const auto messages = FailureOf("dead-end.example");
  ASSERT_THAT(messages, SizeIs(1));
  EXPECT_EQ(messages[0].flags, kInfo3);
  EXPECT_EQ(messages[0].text, "DNS: No records found for dead-end.example");
}

TEST_F(HostLookUp, WhatAServerRefusesIsAnError) {
  StartServer();
  ExpectFailure("www.elsewhere", kError3, "DNS operation refused.");
}

TEST_F(HostLookUp, AServersFailureIsAnError) {
  for (const auto& [code, text] :
       {std::pair(1U, "DNS server unable to interpret format."), std::pair(2U, "DNS server failure."),
        std::pair(4U, "DNS request not supported by name server."), std::pair(5U, "DNS operation refused.")}) {
    const unsigned int answered = code;
    const DnsPeer peer("127.0.0.2", [answered](const DnsQuestion& question) { return question.Head(0, answered); });
    SetResolver("nameserver 127.0.0.2\n");
    ExpectFailure("www.example", kError3, text);
  }
}

TEST_F(HostLookUp, AServersFailureComesThroughTheRealServer) {
  StartServer();
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) { return question.Head(0, 2); });
  ExpectFailure("www.broken.example", kError3, "DNS server failure.");
  EXPECT_THAT(peer.Asked(), Contains("www.broken.example"));
}

TEST_F(HostLookUp, AnotherServerIsAskedWhenOneFails) {
  StartServer();
  const DnsPeer broken("127.0.0.2", [](const DnsQuestion& question) { return question.Head(0, 2); });
  SetResolver("nameserver 127.0.0.2\nnameserver 127.0.0.1\n");
  EXPECT_THAT(Addresses("one.example"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(broken.Asked(), Contains("one.example"));
}

TEST_F(HostLookUp, AnotherServerIsAskedWhenOneIsSilent) {
  StartServer();
  const DnsPeer silent("127.0.0.2", [](const DnsQuestion&) { return std::string(); });
  SetResolver("nameserver 127.0.0.2\nnameserver 127.0.0.1\noptions timeout:1\n");
  EXPECT_THAT(Addresses("one.example"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(silent.Asked(), Contains("one.example"));
}

TEST_F(HostLookUp, ASilentServerIsGivenUp) {
  const DnsPeer silent("127.0.0.2", [](const DnsQuestion&) { return std::string(); });
  SetResolver("nameserver 127.0.0.2\noptions timeout:1 attempts:1\n");
  ExpectFailure("www.example", kError3, "Connection timed out");
  EXPECT_THAT(silent.Asked(), ElementsAre("www.example", "www.example")) << "asked for at both log levels";
}

TEST_F(HostLookUp, WithoutAServerItFailsAtOnce) {
  SetResolver("nameserver 127.0.0.3\n");
  ExpectFailure("www.example", kError3, "Connection refused");
}

TEST_F(HostLookUp, LongAnswersComeOverTcp) {
  StartServer();
  const std::vector<std::string> addresses = Addresses("many.example");
  EXPECT_THAT(addresses, SizeIs(19));
  EXPECT_THAT(addresses, Each(::testing::StartsWith("10.3.0.")));
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) {
    if (!question.overTcp) {
      return question.Head(0, 0x200);
    }
    std::string answer = question.Head(3000);
    for (int i = 0; i < 3000; ++i) {
      answer += DnsQuestion::Record(1, Address(i % 50 + 1));
    }
    return answer;
  });
  SetResolver("nameserver 127.0.0.2\n");
  const std::vector<std::string> overTcp = Addresses("long.example");
  EXPECT_THAT(peer.Asked(), ElementsAre("long.example", "tcp:long.example"));
  ASSERT_THAT(overTcp, SizeIs(19));
  EXPECT_EQ(overTcp.front(), "10.0.0.1");
  EXPECT_EQ(overTcp.back(), "10.0.0.19");
}

TEST_F(HostLookUp, SearchDomainsCompleteShortNames) {
  StartServer();
  SetResolver("nameserver 127.0.0.1\nsearch empty.example example\n");
  EXPECT_THAT(Addresses("one"), ElementsAre("10.1.0.1"));
  EXPECT_THAT(Addresses("one.example"), ElementsAre("10.1.0.1"));
  ExpectFailure("one.", kError3, "DNS operation refused.");
  ExpectFailure("nobody.example", kInfo3, QsErrorMessage(9003));
}

TEST_F(HostLookUp, TheHostsFileComesFirst) {
  StartServer();
  SetHosts("127.0.0.1 localhost\n10.9.0.2 one.example\n10.9.0.1 one.example local\n::1 both.example\n");
  EXPECT_THAT(Addresses("localhost"), ElementsAre("127.0.0.1"));
  EXPECT_THAT(Addresses("local"), ElementsAre("10.9.0.1"));
  EXPECT_THAT(Addresses("one.example"), ElementsAre("10.9.0.2", "10.9.0.1"));
  EXPECT_THAT(Addresses("both.example"), ElementsAre("10.1.0.2")) << "an IPv6 address there is none";
  StopServer();
  EXPECT_THAT(Addresses("LOCALHOST"), ElementsAre("127.0.0.1")) << "it needs no server";
}

TEST_F(HostLookUp, AChangedConfigurationCountsAtOnce) {
  StartServer();
  SetResolver("nameserver 127.0.0.3\n");
  EXPECT_THAT(Addresses("one.example"), IsEmpty());
  SetResolver("nameserver 127.0.0.1\n");
  EXPECT_THAT(Addresses("one.example"), ElementsAre("10.1.0.1"));
}

TEST_F(HostLookUp, DottedAddressesAskNoServer) {
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) { return question.Head(0, 3); });
  SetResolver("nameserver 127.0.0.2\n");
  EXPECT_THAT(Addresses("10.0.0.1"), ElementsAre("10.0.0.1"));
  EXPECT_THAT(peer.Asked(), IsEmpty());
  EXPECT_THAT(Addresses("255.255.255.255"), IsEmpty()) << "which inet_addr does not take";
  EXPECT_THAT(peer.Asked(), Not(IsEmpty()));
}

TEST_F(HostLookUp, WhatIsNoNameIsNotAskedFor) {
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) { return question.Head(0, 3); });
  SetResolver("nameserver 127.0.0.2\n");
  for (const std::string& name :
       {std::string("a..b"), std::string(64, 'a') + ".example", std::string(300, 'a'), std::string(".") + "a"}) {
    ExpectFailure(name, kError3, "DNS name contains an invalid character.");
  }
  EXPECT_THAT(Addresses(std::string(100000, 'a')), IsEmpty());
  EXPECT_THAT(peer.Asked(), IsEmpty());
}

TEST_F(HostLookUp, AHostileAnswerIsAnError) {
  const std::vector<DnsScript> scripts = {
      [](const DnsQuestion& question) { return question.Head(1); },  // a record short
      [](const DnsQuestion& question) { return question.Head(65535) + DnsQuestion::Record(1, Address(1)); },
      [](const DnsQuestion& question) { return question.Head(1) + DnsQuestion::Record(1, Address(1)).substr(0, 15); },
      [](const DnsQuestion& question) {
        return question.Head(2) + DnsQuestion::Record(1, Address(1)) +
               "\x3F"
               "a";
      },
      [](const DnsQuestion& question) { return question.Head(1) + std::string(400, '\x01'); },
  };
  for (const DnsScript& script : scripts) {
    const DnsPeer peer("127.0.0.2", script);
    SetResolver("nameserver 127.0.0.2\noptions timeout:1 attempts:1\n");
    ExpectFailure("www.example", kError3, "Bad DNS packet.");
  }
}

TEST_F(HostLookUp, NamesThatPointInCirclesDoNotMatter) {
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) {
    const std::string here = DnsQuestion::Number(static_cast<unsigned int>(0xC000U + question.Head(0).size()));
    return question.Head(2) + here + DnsQuestion::Record(5, here).substr(2) + DnsQuestion::Record(1, Address(7));
  });
  SetResolver("nameserver 127.0.0.2\n");
  EXPECT_THAT(Addresses("www.example"), ElementsAre("10.0.0.7"));
}

TEST_F(HostLookUp, WhatIsNoAddressEndsTheList) {
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) {
    return question.Head(4) + DnsQuestion::Record(1, Address(1)) + DnsQuestion::Record(99, Address(9)) +
           DnsQuestion::Record(28, std::string(16, '\1')) + DnsQuestion::Record(1, Address(2));
  });
  SetResolver("nameserver 127.0.0.2\n");
  EXPECT_THAT(Addresses("www.example"), ElementsAre("10.0.0.1"));
}

TEST_F(HostLookUp, OtherSectionsDoNotCount) {
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) {
    std::string answer = question.Head(1) + DnsQuestion::Record(1, Address(1)) + DnsQuestion::Record(1, Address(2)) +
                         DnsQuestion::Record(1, Address(3));
    answer[9] = '\1';   // one record of authority
    answer[11] = '\1';  // one more
    return answer;
  });
  SetResolver("nameserver 127.0.0.2\n");
  EXPECT_THAT(Addresses("www.example"), ElementsAre("10.0.0.1"));
}

TEST_F(HostLookUp, AnswersToAnotherQuestionAreNotTaken) {
  const DnsPeer peer("127.0.0.2", [](const DnsQuestion& question) {
    std::string answer = question.Head(1) + DnsQuestion::Record(1, Address(6));
    answer[question.packet[0] == 'x' ? 1 : 0] ^= '\x55';  // another id
    return answer;
  });
  SetResolver("nameserver 127.0.0.2\noptions timeout:1 attempts:1\n");
  ExpectFailure("www.example", kError3, "Connection timed out");
}

TEST_F(HostLookUp, SeveralThreadsMayAskAtOnce) {
  StartServer();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 25; ++round) {
        EXPECT_THAT(Addresses("one.example"), ElementsAre("10.1.0.1"));
        EXPECT_THAT(Addresses("high.example"), ElementsAre("200.255.0.128"));
        EXPECT_THAT(Addresses("nobody.example"), IsEmpty());
        EXPECT_THAT(Addresses("localhost"), ElementsAre("127.0.0.1"));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

namespace {

class HostAdapters : public OwnNetwork {
 protected:
  static std::vector<QsAdapterInfoEx> Adapters() {
    std::vector<QsAdapterInfoEx> adapters;
    EXPECT_TRUE(QsGetAdapterInfoEx(adapters));
    return adapters;
  }

  static std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const QsAdapterInfoEx& adapter : Adapters()) {
      names.push_back(adapter.adapterName);
    }
    return names;
  }

  static QsAdapterInfoEx Named(const std::string& name) {
    for (const QsAdapterInfoEx& adapter : Adapters()) {
      if (adapter.adapterName == name) {
        return adapter;
      }
    }
    ADD_FAILURE() << "no " << name;
    return {};
  }
};

}  // namespace

TEST_F(HostAdapters, NoneIsAnAnswer) {
  EXPECT_THAT(Names(), IsEmpty());
  EXPECT_TRUE(QsIsOwnIPAddress("127.0.0.1"));
  EXPECT_FALSE(QsIsOwnIPAddress("::1"));
}

TEST_F(HostAdapters, TellTheirAddressesInTheSystemsOrder) {
  Ip("link add lan0 address 00:1a:2b:3c:4d:5e type veth peer name lan1 address fe:ff:00:01:0a:f0");
  Ip("link set lan0 addrgenmode none && ip link set lan1 addrgenmode none");
  Ip("address add 10.5.0.1/24 dev lan0 && ip address add 10.6.0.1/24 dev lan0 label lan0:second");
  Ip("address add fd00::5/64 dev lan0 nodad && ip address add fe80::5/64 dev lan0 nodad");
  Ip("link set lan0 up");
  const QsAdapterInfoEx adapter = Named("lan0");
  EXPECT_THAT(adapter.addresses, ::testing::UnorderedElementsAre("10.5.0.1", "10.6.0.1", "fd00::5", "fe80::5%lan0"));
  EXPECT_THAT(std::vector<std::string>(adapter.addresses.begin(), adapter.addresses.begin() + 2),
              ElementsAre("10.5.0.1", "10.6.0.1"));
  EXPECT_EQ(adapter.macAddress, "00-1a-2b-3c-4d-5e");
  EXPECT_THAT(Names(), ElementsAre("lan0")) << "the other end has no address";
  Ip("address add 10.5.0.2/24 dev lan1");
  EXPECT_EQ(Named("lan1").macAddress, "fe-ff-00-01-0a-f0");

  for (const std::string& ip : adapter.addresses) {
    EXPECT_TRUE(QsIsOwnIPAddress(ip)) << ip;
    EXPECT_EQ(QsGetDevFromIP(ip), "lan0") << ip;
  }
  EXPECT_EQ(QsGetDevFromIP("10.5.0.2"), "lan1");
  EXPECT_EQ(QsGetIPFromDev("lan0"), "10.5.0.1");
  EXPECT_EQ(QsGetIPFromDev("lan1"), "10.5.0.2");
  EXPECT_EQ(QsGetIPFromDev("lan0:second"), "") << "a label is no adapter";
  EXPECT_FALSE(QsIsOwnIPAddress("10.5.0.3"));
}

TEST_F(HostAdapters, AreSeenAfreshByEachCall) {
  Ip("link add lan0 type veth peer name lan1 && ip address add 10.5.0.1/24 dev lan0");
  EXPECT_THAT(Names(), ElementsAre("lan0"));
  Ip("address del 10.5.0.1/24 dev lan0");
  EXPECT_THAT(Names(), IsEmpty());
  Ip("address add 10.5.0.9/24 dev lan1");
  EXPECT_THAT(Names(), ElementsAre("lan1"));
  Ip("link del lan0");
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(HostAdapters, OtherKindsAreLeftOut) {
  Ip("address add 10.8.0.1/32 dev lo");
  Ip("tuntap add dev tunnel0 mode tun && ip address add 10.8.0.2/24 dev tunnel0 && ip link set tunnel0 up");
  EXPECT_THAT(Names(), IsEmpty());
  EXPECT_FALSE(QsIsOwnIPAddress("10.8.0.2"));
  EXPECT_EQ(QsGetIPFromDev("tunnel0"), "");
  EXPECT_EQ(QsGetIPFromDev("lo"), "");
  Ip("tuntap add dev tap0 mode tap && ip address add 10.8.0.3/24 dev tap0");
  EXPECT_THAT(Names(), ElementsAre("tap0")) << "it is Ethernet to the system";
}

TEST_F(HostAdapters, ThereMayBeMany) {
  std::vector<std::string> expected;
  std::string commands = "link show lo";
  for (int i = 0; i < 50; ++i) {
    const std::string number = std::to_string(i);
    commands += " && ip link add many" + number + " type veth peer name peer" + number + " && ip address add 10.7." +
                number + ".1/24 dev many" + number;
    expected.push_back("many" + number);
  }
  Ip(commands);
  EXPECT_EQ(Names(), expected);
  EXPECT_EQ(QsGetDevFromIP("10.7.49.1"), "many49");
}

TEST_F(HostAdapters, TheHostNameMayHoldADomain) {
  const auto rename = [](const std::string& name) { ASSERT_EQ(sethostname(name.c_str(), name.size()), 0); };
  rename("box.example.org");
  EXPECT_EQ(QsGetHostName(), "box.example.org");
  EXPECT_EQ(QsGetFQDName(), "box.example.org");
  EXPECT_EQ(QsGetComputerName(), "box");
  rename("plain");
  EXPECT_EQ(QsGetHostName(), "plain");
  EXPECT_EQ(QsGetComputerName(), "plain");
  rename(std::string(64, 'x'));
  EXPECT_EQ(QsGetHostName(), std::string(64, 'x'));
  rename(".org");
  EXPECT_EQ(QsGetComputerName(), "anon");
}
