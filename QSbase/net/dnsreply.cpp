#include <QSbase/net/dnsreply.h>

#include <cstring>

namespace qsbase::detail {

namespace {

constexpr std::uint16_t kInternet = 1;
constexpr int kServerFailures = 9000;

/// Walks over a packet. Beyond its end everything is 0, and IsGood() is false from then on.
class PacketReader {
 public:
  PacketReader(const unsigned char* data, std::size_t size) : _data(data), _size(size) {}

  bool IsGood() const { return _good; }

  const unsigned char* Bytes(std::size_t count) {
    if (!_good || count > _size - _position) {
      _good = false;
      return nullptr;
    }
    const unsigned char* const bytes = _data + _position;
    _position += count;
    return bytes;
  }

  unsigned int Byte() {
    const unsigned char* const byte = Bytes(1);
    return byte != nullptr ? *byte : 0U;
  }

  std::uint16_t Number() {
    const unsigned int high = Byte();
    return static_cast<std::uint16_t>(high << 8U | Byte());
  }

  /// Where a name goes on elsewhere it is not followed.
  void SkipName() {
    for (unsigned int length = Byte(); length != 0; length = Byte()) {
      const unsigned int kind = length & 0xC0U;
      if (kind == 0xC0U) {
        Byte();
        return;
      }
      _good = _good && kind == 0;
      Bytes(length);
    }
  }

 private:
  const unsigned char* _data;
  std::size_t _size;
  std::size_t _position = 0;
  bool _good = true;
};

struct Header {
  bool isReply = false;
  int code = 0;
  unsigned int questions = 0;
  unsigned int answers = 0;
};

Header ReadHeader(PacketReader& packet) {
  packet.Number();  // the id, which the sender of the query has compared
  const unsigned int flags = packet.Number();
  Header header;
  header.questions = packet.Number();
  header.answers = packet.Number();
  packet.Bytes(4);  // the numbers of records in the other sections
  header.isReply = packet.IsGood() && (flags & 0x8000U) != 0;
  header.code = static_cast<int>(flags & 0xFU);
  return header;
}

DnsRecord ReadRecord(PacketReader& packet) {
  packet.SkipName();
  const std::uint16_t type = packet.Number();
  const bool internet = packet.Number() == kInternet;
  packet.Bytes(4);  // time to live
  DnsRecord record;
  record.type = internet ? type : std::uint16_t{0};
  record.inAnswer = true;
  record.dataLength = packet.Number();
  const unsigned char* const data = packet.Bytes(record.dataLength);
  if (data != nullptr && record.type == kDnsAddress && record.dataLength == sizeof record.address) {
    std::memcpy(&record.address, data, sizeof record.address);
  }
  return record;
}

}  // namespace

int DnsReplyFailure(const unsigned char* reply, std::size_t size) {
  PacketReader packet(reply, size);
  const Header header = ReadHeader(packet);
  return header.isReply && header.code != 0 ? kServerFailures + header.code : 0;
}

int ReadDnsReply(const unsigned char* reply, std::size_t size, std::vector<DnsRecord>& records) {
  PacketReader packet(reply, size);
  const Header header = ReadHeader(packet);
  if (!header.isReply) {
    return kDnsBadPacket;
  }
  if (header.code != 0) {
    return kServerFailures + header.code;
  }
  for (unsigned int i = 0; i < header.questions && packet.IsGood(); ++i) {
    packet.SkipName();
    packet.Bytes(4);  // type and class
  }
  std::vector<DnsRecord> answer;
  for (unsigned int i = 0; i < header.answers && packet.IsGood(); ++i) {
    answer.push_back(ReadRecord(packet));
  }
  if (!packet.IsGood()) {
    return kDnsBadPacket;
  }
  records.insert(records.end(), answer.begin(), answer.end());
  return answer.empty() ? kDnsNoRecords : 0;
}

}  // namespace qsbase::detail
