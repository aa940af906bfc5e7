// Archives of strangers, archives of our own, and zlib's streams.
#include <QSbase/log/log.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/zlibsupport.h>
#include <common/zipbuilder.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bounds.h"
#include "choices.h"
#include "target.h"

using namespace qsbase;

namespace {

namespace fs = std::filesystem;

// ---- where it happens ----

/// A folder of this process, in memory where there is such a place: it holds the archive, the folder to extract to and
/// a file that must stay as it is.
class Workshop {
 public:
  Workshop() {
    std::error_code none;
    const fs::path memory = "/dev/shm";
    const fs::path parent = fs::is_directory(memory, none) ? memory : fs::temp_directory_path();
    _root = parent / ("qsbase-fuzz-zip-" + std::to_string(std::random_device()()));
    fs::create_directory(_root);
    Write("a.zip", "");
    Write("neighbour", kNeighbour);
  }

  ~Workshop() {
    std::error_code none;
    fs::remove_all(_root, none);
  }

  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;

  std::string Path(const std::string& name) const { return _root.generic_string() + '/' + name; }

  void Write(const std::string& name, const std::string& content) const {
    std::ofstream(_root / name, std::ios::binary) << content;
  }

  // A narrow name: what it stands for is up to the code page, as for the library.
  static std::string Read(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

  /// Whether nothing but the folder to extract to has come in, and the neighbour is what it was.
  bool IsClean() const {
    for (const fs::directory_entry& entry : fs::directory_iterator(_root)) {
      const std::string name = entry.path().filename().string();
      if (name != "a.zip" && name != "neighbour" && name != "out") {
        return false;
      }
    }
    return Read(Path("neighbour")) == kNeighbour;
  }

 private:
  static constexpr const char* kNeighbour = "stays as it is";
  fs::path _root;
};

const Workshop& TheWorkshop() {
  static const Workshop workshop;
  return workshop;
}

struct Silence {
  Silence() { SetLogLineFormatter(nullptr); }
};

// ---- extraction ----

struct Tree {
  std::uint64_t size = 0;
  bool onlyPlain = true;  ///< no links, devices and pipes
};

Tree LookAt(const std::string& folder) {
  Tree tree;
  std::error_code none;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder, none)) {
    const fs::file_status status = entry.symlink_status();
    tree.onlyPlain = tree.onlyPlain && (fs::is_regular_file(status) || fs::is_directory(status));
    tree.size += fs::is_regular_file(status) ? entry.file_size() : 0;
  }
  return tree;
}

std::string WithSlashes(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

void DemandInside(const std::string& folder, const std::vector<std::string>& extracted) {
  for (const std::string& path : extracted) {
    fuzz::Demand(WithSlashes(path).starts_with(folder + "/") ? "" : "said to be outside: " + path);
  }
}

/// Extracts everything; gives what the archive states of its size.
int ExtractAll(std::int64_t stated, std::vector<std::string>& extracted) {
  const std::string archive = TheWorkshop().Path("a.zip");
  const std::string folder = TheWorkshop().Path("out");
  const int code = QsExtractWholeFile(archive.c_str(), folder.c_str(), &extracted, nullptr);
  DemandInside(folder, extracted);
  const Tree tree = LookAt(folder);
  fuzz::Demand(tree.size <= static_cast<std::uint64_t>(stated) ? "" : "more was written than the archive states");
  fuzz::Demand(tree.onlyPlain ? "" : "a link came out of an archive");
  fuzz::Demand(TheWorkshop().IsClean() ? "" : "something was written outside of the folder");
  return code;
}

using Content = std::unique_ptr<char, decltype(&std::free)>;

/// What names of one file have in common: "A\\.//b" and "a/b" are one where names have no case.
std::string FileOf(const std::string& name) {
  std::string file;
  for (const char c : name) {
    const bool isSeparator = c == '/' || c == '\\';
    if (isSeparator && file.ends_with("/.")) {
      file.pop_back();
    } else if (!isSeparator || !file.ends_with('/')) {
      file += isSeparator ? '/' : c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    }
    file.insert(0, file.starts_with('/') ? "" : "/");
  }
  return file;
}

/// The same into memory: what came out of the last entry of a name is in its file.
void CompareWithMemory(const std::string& name, bool isExtracted) {
  const std::string archive = TheWorkshop().Path("a.zip");
  char* buffer = nullptr;
  int size = -1;
  const int code = QsExtractFileSimple(archive.c_str(), name.c_str(), nullptr, &buffer, &size, 0);
  const Content content(buffer, &std::free);
  fuzz::Demand((code == 0) == (buffer != nullptr) ? "" : "a buffer without success, or success without one");
  fuzz::Demand(!isExtracted || code == 0 ? "" : "extracted to a file and not to memory: " + name);
  int stated = -1;
  const int asked = QsExtractFileSimple(archive.c_str(), name.c_str(), nullptr, nullptr, &stated, 0);
  fuzz::Demand(code != 0 || (asked == 1 && stated == size) ? "" : "another size than the archive states");
  if (code == 0 && isExtracted) {
    fuzz::DemandEqual({buffer, static_cast<std::size_t>(size)},
                      Workshop::Read(TheWorkshop().Path("out/" + WithSlashes(name))), "the content of an entry");
  }
}

void ReadArchive(const std::string& bytes) {
  TheWorkshop().Write("a.zip", bytes);
  const std::string archive = TheWorkshop().Path("a.zip");
  int count = -1;
  std::int64_t stated = -1;
  std::vector<std::string> names;
  const int listed = QsGetZipInfo(archive.c_str(), &count, &stated, &names);
  fuzz::Demand(static_cast<std::size_t>(count) == names.size() && stated >= 0 ? "" : "the listing contradicts itself");
  fuzz::Demand(names.size() <= bytes.size() / 46 ? "" : "more entries than there is room for");
  std::map<std::string, int> occurrences;
  for (const std::string& name : names) {
    ++occurrences[FileOf(name)];
  }
  // A sum that the archive only states may be anything; what is decoded is at most 1032 times what is there.
  std::vector<std::string> extracted;
  const int code = ExtractAll(listed == 0 ? stated : std::numeric_limits<std::int64_t>::max(), extracted);
  constexpr std::size_t kLooked = 4;
  for (std::size_t i = 0; i < std::min(names.size(), kLooked); ++i) {
    if (!names[i].empty() && names[i].find('\0') == std::string::npos && names[i].size() < 4096) {
      CompareWithMemory(names[i], code == 0 && listed == 0 && occurrences[FileOf(names[i])] == 1);
    }
  }
  std::error_code none;
  fs::remove_all(TheWorkshop().Path("out"), none);
}

// ---- archives that are right in most places ----

/// Entries made of the lines of a text, each "name:content", with records that may lie.
std::string BuildArchive(std::string_view text, fuzz::Choices choices) {
  testing::ZipBuilder builder;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::size_t colon = std::min(line.find(':'), line.size());
    const std::string name(line.substr(0, colon));
    std::string content(line.substr(std::min(colon + 1, line.size())));
    const std::size_t repeated = choices.Below(64);
    for (std::size_t i = 0; repeated == 0 && i < 10; ++i) {
      content += content;
    }
    testing::RawZipEntry entry =
        choices.Below(2) == 0 ? testing::Stored(name, content) : testing::DeflatedEntry(name, content);
    switch (choices.Below(24)) {
      case 0:
        entry.crc ^= 1U;
        break;
      case 1:
        entry.size += static_cast<std::uint32_t>(choices.Below(3)) - 1;
        break;
      case 2:
        entry.dataSize += static_cast<std::uint32_t>(choices.Below(3)) - 1;
        break;
      case 3:
        entry.size = 0xFFFFFFFF;
        entry.centralExtra = testing::ZipBuilder::Number(1, 2) + testing::ZipBuilder::Number(8, 2) +
                             testing::ZipBuilder::Number(content.size() << choices.Below(64), 8);
        break;
      case 4:
        entry.method = static_cast<std::uint16_t>(choices.Below(16));
        break;
      case 5:
        entry.flags = static_cast<std::uint16_t>(1U << choices.Below(16));
        break;
      default:
        break;
    }
    builder.Add(entry);
  }
  return builder.Bytes("", static_cast<int>(choices.Below(16) == 0 ? choices.Below(5) : 2) - 2);
}

// ---- there and back ----

/// What QsWrite2Zip writes under harmless names comes back.
void WriteAndRead(std::string_view text, fuzz::Choices choices) {
  const std::string archive = TheWorkshop().Path("a.zip");
  std::map<std::string, std::string> written;
  for (const std::string_view piece : choices.Pieces(text.substr(0, 4096), 1 + text.size() / 3)) {
    const std::string name = "f" + std::to_string(written.size()) + (choices.Below(2) == 0 ? "/x" : ".\xC3\xA4");
    const std::string content(piece);
    fuzz::Demand(
        QsWrite2Zip(archive.c_str(), content, QsDateTime(2024, 2, 29, 12, 0, 0, 0), !written.empty(), name.c_str())
            ? ""
            : "not written");
    written[name] = content;
  }
  if (written.empty()) {
    return;
  }
  std::int64_t stated = -1;
  std::vector<std::string> extracted;
  fuzz::Demand(QsGetUncompressedSize(archive.c_str(), &stated) == 0 ? "" : "not listed");
  fuzz::Demand(ExtractAll(stated, extracted) == 0 && extracted.size() == written.size() ? "" : "not extracted");
  for (const auto& [name, content] : written) {
    fuzz::DemandEqual(content, Workshop::Read(TheWorkshop().Path("out/" + name)), "an entry");
  }
  fs::remove_all(TheWorkshop().Path("out"));
}

// ---- streams ----

const unsigned char* Bytes(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

void CompressAndUncompress(const std::string& text) {
  std::string packed;
  std::string again;
  fuzz::Demand(QsCompress(packed, text) == 0 ? "" : "QsCompress");
  fuzz::Demand(packed.size() <= text.size() + text.size() / 1000 + 64 ? "" : "longer than its bound");
  const auto size = static_cast<unsigned long>(text.size());
  fuzz::Demand(QsUncompress(again, size, packed) == 0 ? "" : "QsUncompress");
  fuzz::DemandEqual(text, again, "zlib");
  if (text.size() > 1) {  // zlib has a byte of its own for no room at all
    fuzz::Demand(QsUncompress(again, size - 1, packed) == -5 ? "" : "a buffer that is too small");
    fuzz::Demand(again.size() < text.size() ? "" : "more than the buffer holds");
  }
  packed += text;  // what follows is left alone
  std::vector<unsigned char> room(text.size() + 1);
  auto produced = static_cast<unsigned long>(room.size());
  auto consumed = static_cast<unsigned long>(packed.size());
  fuzz::Demand(QsUncompress(room.data(), &produced, Bytes(packed), &consumed) == 0 ? "" : "with more behind it");
  fuzz::Demand(consumed == packed.size() - text.size() && produced == size ? "" : "other lengths");
}

/// Hostile streams: nothing is written beyond the buffer, and the three forms tell the same.
void Uncompress(std::string_view stream, std::size_t size) {
  const std::unique_ptr<unsigned char[]> room(new unsigned char[size]);
  auto produced = static_cast<unsigned long>(size);
  const int plain = QsUncompress(room.get(), &produced, Bytes(stream), static_cast<unsigned long>(stream.size()));
  fuzz::Demand(produced <= size ? "" : "more was produced than there is room for");
  std::string text;
  const int asString = QsUncompress(text, static_cast<unsigned long>(size), std::string(stream));
  fuzz::Demand(text.size() <= size ? "" : "a string beyond its limit");
  fuzz::Demand((plain == 0) == (asString == 0) ? "" : "buffer and string disagree");
  fuzz::Demand(plain != 0 || text == std::string_view(reinterpret_cast<char*>(room.get()), produced)
                   ? ""
                   : "buffer and string differ");
  auto part = static_cast<unsigned long>(size);
  auto consumed = static_cast<unsigned long>(stream.size());
  const int head = QsUncompress_Part(room.get(), &part, Bytes(stream), &consumed);
  fuzz::Demand(part <= size && consumed <= stream.size() ? "" : "lengths that grow");
  fuzz::Demand(plain != 0 || size == 0 || (head == 0 && part == produced) ? "" : "the head of a whole stream");
}

// ---- bounds ----

/// Listing takes two windows of 16 KiB and a name of 4096 bytes beside the names; extraction also a block and zlib's.
void DemandBounds(const std::string& text) {
  const std::string archive = TheWorkshop().Path("a.zip");
  fuzz::DemandBounds("QsGetFilesInZip", text, [&](const std::string& bytes) {
    TheWorkshop().Write("a.zip", bytes);
    std::vector<std::string> names;
    QsGetFilesInZip(archive.c_str(), &names);
    std::size_t size = 0;
    for (const std::string& name : names) {
      size += name.capacity() + 3 * sizeof(std::string);
    }
    return 2 * size;
  });
  fuzz::DemandBounds("QsCompress", text, [](const std::string& plain) {
    std::string packed;
    QsCompress(packed, plain);
    return packed.size() + plain.size() / 1000;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Silence silence;
  fuzz::Input input(data, size);
  const unsigned int kind = input.Parameter();
  const unsigned int seed = input.Parameter();
  const std::string text(input.Rest());
  switch (kind % 4) {
    case 0:
      ReadArchive(text);
      DemandBounds(text);
      break;
    case 1:
      ReadArchive(BuildArchive(text, fuzz::Choices(seed)));
      break;
    case 2:
      WriteAndRead(text, fuzz::Choices(seed));
      break;
    default:
      CompressAndUncompress(text);
      Uncompress(text, std::size_t{seed} * 16);
      break;
  }
  return 0;
}
