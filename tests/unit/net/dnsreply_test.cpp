#include <QSbase/net/dnsreply.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using qsbase::detail::DnsRecord;
using qsbase::detail::DnsReplyFailure;
using qsbase::detail::ReadDnsReply;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr int kBadPacket = 9502;
constexpr int kNoRecords = 9501;

using namespace std::string_literals;

std::string Number(unsigned int value) { return {static_cast<char>(value >> 8U), static_cast<char>(value)}; }

/// The header of a reply.
std::string Header(unsigned int questions, unsigned int answers, unsigned int code = 0) {
  return "\x12\x34"s + Number(0x8180U | code) + Number(questions) + Number(answers) + Number(0) + Number(0);
}

const std::string kName = "\4host\7example\0"s;
const std::string kPointer = "\xC0\x0C"s;  // to the name of the question
const std::string kQuestion = kName + Number(1) + Number(1);

std::string Record(const std::string& name, unsigned int type, const std::string& data, unsigned int recordClass = 1) {
  return name + Number(type) + Number(recordClass) + "\0\0\0\x3C"s + Number(static_cast<unsigned int>(data.size())) +
         data;
}

const std::string kOne = "\x0A\0\0\1"s;
const std::string kTwo = "\xC8\0\0\2"s;

/// Reads it from memory of exactly its size, so that a sanitizer sees a step beyond.
int Read(const std::string& packet, std::vector<DnsRecord>& records) {
  const std::unique_ptr<unsigned char[]> bytes(new unsigned char[packet.size()]);
  std::copy(packet.begin(), packet.end(), bytes.get());
  return ReadDnsReply(bytes.get(), packet.size(), records);
}

int CodeOf(const std::string& packet) {
  std::vector<DnsRecord> records(1);
  const int code = Read(packet, records);
  EXPECT_THAT(records, SizeIs(1)) << "of a failure nothing stays";
  return code;
}

std::vector<DnsRecord> RecordsOf(const std::string& packet) {
  std::vector<DnsRecord> records;
  EXPECT_EQ(Read(packet, records), 0);
  return records;
}

std::string AddressOf(const DnsRecord& record) {
  char bytes[4];
  std::memcpy(bytes, &record.address, sizeof bytes);
  return {bytes, sizeof bytes};
}

TEST(DnsReply, GivesTheRecordsInTheirOrder) {
  const auto records = RecordsOf(Header(1, 3) + kQuestion + Record(kPointer, 5, "\5alias"s + kPointer) +
                                 Record("\5alias"s + kPointer, 1, kTwo) + Record(kName, 1, kOne));
  ASSERT_THAT(records, SizeIs(3));
  EXPECT_EQ(records[0].type, 5);
  EXPECT_EQ(records[0].dataLength, 8U);
  EXPECT_EQ(records[1].type, 1);
  EXPECT_EQ(records[1].dataLength, 4U);
  EXPECT_TRUE(records[1].inAnswer);
  EXPECT_EQ(AddressOf(records[1]), kTwo);
  EXPECT_EQ(AddressOf(records[2]), kOne);
}

TEST(DnsReply, LeavesTheOtherSectionsAlone) {
  const std::string packet = Header(1, 1) + kQuestion + Record(kPointer, 1, kOne) + Record(kPointer, 1, kTwo);
  EXPECT_THAT(RecordsOf(packet), SizeIs(1));
  EXPECT_THAT(RecordsOf(packet + "\x01garbage"s), SizeIs(1));
}

TEST(DnsReply, AddsToWhatIsThere) {
  std::vector<DnsRecord> records(2);
  EXPECT_EQ(Read(Header(0, 1) + Record(kName, 1, kOne), records), 0);
  EXPECT_THAT(records, SizeIs(3));
}

TEST(DnsReply, NeedsNoQuestionAndTakesSeveral) {
  EXPECT_THAT(RecordsOf(Header(0, 1) + Record(kName, 1, kOne)), SizeIs(1));
  EXPECT_THAT(RecordsOf(Header(2, 1) + kQuestion + kQuestion + Record(kName, 1, kOne)), SizeIs(1));
}

TEST(DnsReply, RecordsOfOtherClassesAreOfNoType) {
  const auto records = RecordsOf(Header(0, 1) + Record(kName, 1, kOne, 3));
  EXPECT_EQ(records.at(0).type, 0);
  EXPECT_EQ(records.at(0).address, 0U);
}

TEST(DnsReply, AnAddressOfAnotherLengthIsNone) {
  for (const std::string& data : {""s, "\1\2\3"s, "\1\2\3\4\5"s, std::string(16, '\1')}) {
    const auto records = RecordsOf(Header(0, 1) + Record(kName, 1, data));
    EXPECT_EQ(records.at(0).dataLength, data.size());
    EXPECT_EQ(records.at(0).address, 0U);
  }
}

TEST(DnsReply, TheServersCodeIsAFailure) {
  for (unsigned int code = 1; code < 16; ++code) {
    const std::string packet = Header(1, 1, code) + kQuestion + Record(kPointer, 1, kOne);
    EXPECT_EQ(CodeOf(packet), 9000 + static_cast<int>(code));
    EXPECT_EQ(DnsReplyFailure(reinterpret_cast<const unsigned char*>(packet.data()), packet.size()),
              9000 + static_cast<int>(code));
  }
}

TEST(DnsReply, WithoutRecordsIsAFailure) { EXPECT_EQ(CodeOf(Header(1, 0) + kQuestion), kNoRecords); }

TEST(DnsReply, AQueryIsNone) {
  std::string packet = Header(1, 1, 2) + kQuestion + Record(kPointer, 1, kOne);
  packet[2] = '\1';
  EXPECT_EQ(CodeOf(packet), kBadPacket);
  EXPECT_EQ(DnsReplyFailure(reinterpret_cast<const unsigned char*>(packet.data()), packet.size()), 0);
}

TEST(DnsReply, CutAnywhereItIsBad) {
  const std::string packet = Header(1, 2) + kQuestion + Record(kPointer, 5, kName) + Record(kName, 1, kOne);
  EXPECT_THAT(RecordsOf(packet), SizeIs(2));
  for (std::size_t size = 0; size < packet.size(); ++size) {
    EXPECT_EQ(CodeOf(packet.substr(0, size)), kBadPacket) << size;
  }
  for (std::size_t size = 0; size < 12; ++size) {
    EXPECT_EQ(DnsReplyFailure(reinterpret_cast<const unsigned char*>(packet.data()), size), 0) << size;
  }
}

TEST(DnsReply, CountsThatThePacketDoesNotHoldAreBad) {
  EXPECT_EQ(CodeOf(Header(1, 65535) + kQuestion + Record(kPointer, 1, kOne)), kBadPacket);
  EXPECT_EQ(CodeOf(Header(65535, 1) + kQuestion + Record(kPointer, 1, kOne)), kBadPacket);
  EXPECT_EQ(CodeOf(Header(65535, 65535)), kBadPacket);
}

TEST(DnsReply, ALengthBeyondTheEndIsBad) {
  std::string packet = Header(0, 1) + Record(kName, 1, kOne);
  for (const unsigned int length : {5U, 255U, 65535U}) {
    packet.replace(packet.size() - 6, 2, Number(length));
    EXPECT_EQ(CodeOf(packet), kBadPacket) << length;
  }
}

TEST(DnsReply, NamesThatPointInCirclesAreNotFollowed) {
  const std::string self = "\xC0\x0C"s;  // where the name itself stands
  EXPECT_THAT(RecordsOf(Header(0, 1) + Record(self, 1, kOne)), SizeIs(1));
  const std::string there = "\xC0\x0E"s;  // to "back", which points here
  const std::string back = "\xC0\x0C"s;
  EXPECT_THAT(RecordsOf(Header(1, 1) + there + back + Number(1) + Record(back, 1, kOne)), SizeIs(1));
  EXPECT_THAT(RecordsOf(Header(0, 1) + Record("\3abc\xC0\x0C"s, 5, "\xC0\x0C"s)), SizeIs(1));
  EXPECT_THAT(RecordsOf(Header(0, 1) + Record("\xFF\xFF"s, 1, kOne)), SizeIs(1)) << "nor beyond the end";
}

TEST(DnsReply, LabelsOfUnknownKindAreBad) {
  EXPECT_EQ(CodeOf(Header(0, 1) + Record("\x41x\0"s, 1, kOne)), kBadPacket);
  EXPECT_EQ(CodeOf(Header(0, 1) + Record("\x80\0"s, 1, kOne)), kBadPacket);
}

TEST(DnsReply, AnyByteMayBeWrong) {
  const std::string packet = Header(1, 2) + kQuestion + Record(kPointer, 5, kName) + Record(kName, 1, kOne);
  for (std::size_t at = 0; at < packet.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = packet;
      changed[at] = static_cast<char>(byte);
      std::vector<DnsRecord> records;
      const int code = Read(changed, records);
      ASSERT_TRUE(code == 0 || code == kNoRecords || (code > 9000 && code < 9016) || code == kBadPacket) << code;
      ASSERT_EQ(code == 0, !records.empty());
      ASSERT_LE(records.size(), 2U);
    }
  }
}

TEST(DnsReply, TheLargestIsRead) {
  std::string packet = Header(0, 4095);
  for (int i = 0; i < 4095; ++i) {
    packet += Record(kPointer, 1, kOne);
  }
  EXPECT_THAT(RecordsOf(packet), SizeIs(4095));
}

}  // namespace
