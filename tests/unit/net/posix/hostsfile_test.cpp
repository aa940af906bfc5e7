#include <QSbase/net/posix/hostsfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using qsbase::detail::DnsRecord;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> Addresses(std::string content, std::string_view name) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(content.data(), content.size(), "r"),
                                                             &std::fclose);
  std::vector<DnsRecord> records;
  qsbase::detail::ReadHostsFile(file.get(), name, records);
  std::vector<std::string> texts;
  for (const DnsRecord& record : records) {
    EXPECT_EQ(record.type, qsbase::detail::kDnsAddress);
    EXPECT_EQ(record.dataLength, 4U);
    EXPECT_TRUE(record.inAnswer);
    char text[INET_ADDRSTRLEN];
    texts.emplace_back(inet_ntop(AF_INET, &record.address, text, sizeof text));
  }
  return texts;
}

const std::string kHosts =
    "# a comment with box.example\n"
    "127.0.0.1\tlocalhost\n"
    "::1 localhost six\n"
    "  10.0.0.2   box.example box \t alias # 10.0.0.9 hidden\r\n"
    "\n"
    "10.0.0.1 box.example\n"
    "010.0.0.3 octal\n"
    "10.0.0 short\n"
    "10.0.0.5\n"
    "10.0.0.6 last";

TEST(HostsFile, GivesEveryLineOfTheNameInTheirOrder) {
  EXPECT_THAT(Addresses(kHosts, "box.example"), ElementsAre("10.0.0.2", "10.0.0.1"));
  EXPECT_THAT(Addresses(kHosts, "localhost"), ElementsAre("127.0.0.1"));
}

TEST(HostsFile, KnowsAliases) {
  EXPECT_THAT(Addresses(kHosts, "box"), ElementsAre("10.0.0.2"));
  EXPECT_THAT(Addresses(kHosts, "alias"), ElementsAre("10.0.0.2"));
}

TEST(HostsFile, NeedsNoLineBreakAtItsEnd) { EXPECT_THAT(Addresses(kHosts, "last"), ElementsAre("10.0.0.6")); }

TEST(HostsFile, CaseIsNoDifference) { EXPECT_THAT(Addresses(kHosts, "LocalHost"), ElementsAre("127.0.0.1")); }

TEST(HostsFile, ADotAtTheEndIsNoDifference) { EXPECT_THAT(Addresses(kHosts, "box."), ElementsAre("10.0.0.2")); }

TEST(HostsFile, OtherNamesHaveNoAddress) {
  for (const char* const name : {"", ".", "bo", "hidden", "six", "octal", "short", "10.0.0.5", "comment"}) {
    EXPECT_THAT(Addresses(kHosts, name), IsEmpty()) << name;
  }
}

TEST(HostsFile, OverlongLinesAreSkipped) {
  const std::string names(20000, 'a');
  EXPECT_THAT(Addresses("10.0.0.1 host " + names + "\n10.0.0.2 host\n", "host"), ElementsAre("10.0.0.2"));
  EXPECT_THAT(Addresses("10.0.0.1 " + names + "\n10.0.0.2 host\n", "host"), ElementsAre("10.0.0.2"));
  // What follows the first piece must not be taken for a line.
  EXPECT_THAT(Addresses("#" + std::string(16382, ' ') + "10.0.0.1 host\n10.0.0.2 host\n", "host"),
              ElementsAre("10.0.0.2"));
  const std::string fits = "10.0.0.1 host " + std::string(16383 - 15, 'a') + "\n";
  EXPECT_THAT(Addresses(fits + "10.0.0.2 host\n", "host"), ElementsAre("10.0.0.1", "10.0.0.2"));
  EXPECT_THAT(Addresses("10.0.0.1 host " + names, "host"), IsEmpty());
}

TEST(HostsFile, OverlongLinesAreSkippedWithZeroBytesInThem) {
  const std::string zero(1, '\0');
  const std::string blanks(16381, ' ');
  EXPECT_THAT(Addresses("#" + zero + blanks + "10.0.0.1 host\n10.0.0.2 host\n", "host"), ElementsAre("10.0.0.2"));
  EXPECT_THAT(Addresses("#" + blanks + zero + "10.0.0.1 host\n10.0.0.2 host\n", "host"), ElementsAre("10.0.0.2"));
  EXPECT_THAT(Addresses("10.0.0.1 host #" + std::string(20000, '\0') + "\n10.0.0.2 host\n", "host"),
              ElementsAre("10.0.0.2"));
}

TEST(HostsFile, GivesNineteenAddresses) {
  std::string content;
  for (int i = 1; i <= 30; ++i) {
    content += "10.0.0." + std::to_string(i) + " host\n";
  }
  const std::vector<std::string> addresses = Addresses(content, "host");
  ASSERT_EQ(addresses.size(), 19U);
  EXPECT_EQ(addresses.back(), "10.0.0.19");
}

TEST(HostsFile, ZeroBytesEndALine) {
  EXPECT_THAT(Addresses(std::string("10.0.0.1 a\0 host\n10.0.0.2 host\n", 31), "host"), ElementsAre("10.0.0.2"));
}

}  // namespace
