// Answers of name servers.
#include <QSbase/net/dnsreply.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;
using namespace qsbase::detail;

namespace {

// ---- the same once more, from the text of RFC 1035, 4.1 ----

struct Broken {};

class SlowReader {
 public:
  explicit SlowReader(std::string_view packet) : _rest(packet) {}

  std::string Take(std::size_t count) {
    if (count > _rest.size()) {
      throw Broken();
    }
    const std::string bytes(_rest.substr(0, count));
    _rest.remove_prefix(count);
    return bytes;
  }

  unsigned int Number(int bytes) {
    unsigned int value = 0;
    for (const char c : Take(static_cast<std::size_t>(bytes))) {
      value = value * 256 + static_cast<unsigned char>(c);
    }
    return value;
  }

  void Name() {
    for (unsigned int length = Number(1); length != 0; length = Number(1)) {
      if (length >= 192) {
        Take(1);
        return;
      }
      if (length >= 64) {
        throw Broken();
      }
      Take(length);
    }
  }

 private:
  std::string_view _rest;
};

struct SlowAnswer {
  int code = 0;
  std::vector<DnsRecord> records;
};

void ReadRecords(SlowReader& reader, unsigned int questions, unsigned int answers, std::vector<DnsRecord>& records) {
  for (unsigned int i = 0; i < questions; ++i) {
    reader.Name();
    reader.Take(4);
  }
  for (unsigned int i = 0; i < answers; ++i) {
    reader.Name();
    const unsigned int type = reader.Number(2);
    const unsigned int recordClass = reader.Number(2);
    reader.Take(4);
    const std::string content = reader.Take(reader.Number(2));
    DnsRecord record{static_cast<std::uint16_t>(recordClass == 1 ? type : 0), content.size(), true, 0};
    if (record.type == 1 && content.size() == 4) {
      std::memcpy(&record.address, content.data(), 4);
    }
    records.push_back(record);
  }
}

SlowAnswer SlowRead(std::string_view packet) {
  SlowAnswer answer;
  try {
    SlowReader reader(packet);
    reader.Take(2);
    const unsigned int flags = reader.Number(2);
    const unsigned int questions = reader.Number(2);
    const unsigned int answers = reader.Number(2);
    reader.Take(4);
    if (flags < 0x8000) {
      throw Broken();
    }
    if (flags % 16 != 0) {
      return {static_cast<int>(9000 + flags % 16), {}};
    }
    ReadRecords(reader, questions, answers, answer.records);
    answer.code = answer.records.empty() ? 9501 : 0;
  } catch (const Broken&) {
    answer = {9502, {}};
  }
  return answer;
}

// ---- comparing ----

bool IsSame(const DnsRecord& a, const DnsRecord& b) {
  return a.type == b.type && a.dataLength == b.dataLength && a.inAnswer == b.inAnswer && a.address == b.address;
}

std::string Compare(const std::vector<DnsRecord>& expected, const std::vector<DnsRecord>& records) {
  if (records.size() != expected.size()) {
    return std::to_string(records.size()) + " records instead of " + std::to_string(expected.size());
  }
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (!IsSame(records[i], expected[i])) {
      return "record " + std::to_string(i) + " differs";
    }
  }
  return {};
}

/// Two copies of a growing vector of records, and those that are handed out. The time of longer packets than there are
/// would tell nothing: they are read where a shorter one ends too early.
void DemandBounds(std::string_view packet) {
  constexpr std::size_t longestPacket = 0xFFFF;
  fuzz::DemandBounds(
      "ReadDnsReply", packet,
      [](const std::string& text) {
        std::vector<DnsRecord> records;
        ReadDnsReply(reinterpret_cast<const unsigned char*>(text.data()), text.size(), records);
        return 4 * records.size() * sizeof(DnsRecord);
      },
      4 * longestPacket);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // In memory of exactly its size, and with a record that was there before.
  const std::unique_ptr<unsigned char[]> packet(new unsigned char[size]);
  std::copy_n(data, size, packet.get());
  const DnsRecord before{7, 7, false, 7};
  std::vector<DnsRecord> records{before};
  const int code = ReadDnsReply(packet.get(), size, records);

  SlowAnswer expected = SlowRead({reinterpret_cast<const char*>(data), size});
  fuzz::Demand(code == expected.code ? "" : "the code is " + std::to_string(code));
  expected.records.insert(expected.records.begin(), before);
  fuzz::Demand(Compare(expected.records, records));
  fuzz::Demand(records.size() <= 1 + size / 11 ? "" : "more records than there is room for");
  const bool isServers = expected.code > 9000 && expected.code < 9016;
  fuzz::Demand(DnsReplyFailure(packet.get(), size) == (isServers ? code : 0) ? "" : "DnsReplyFailure");
  DemandBounds({reinterpret_cast<const char*>(data), size});
  return 0;
}
