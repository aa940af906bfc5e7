#include "coders.h"

#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/errors.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "attachment.h"
#include "coderflags.h"
#include "coderoutput.h"
#include "consoleos.h"
#include "fetch.h"
#include "store.h"
#include "text.h"

namespace qs {
namespace {

constexpr unsigned int kLineLength = 76;
constexpr int kNothingSelected = -2;
constexpr int kOutOfMemory = -3;
constexpr std::size_t kBlock = 65536;
constexpr std::uint32_t kMaxLength = std::numeric_limits<std::uint32_t>::max();  // that a coder takes or gives

std::string LastError() { return QsErrorMessage(QsGetLastError()); }

// A file or standard input, read piece by piece.
class Input {
 public:
  explicit Input(const std::string& path) : _path(path) {}

  // \returns what went wrong, empty for success.
  std::string Open() {
    if (_path == "-") {
      SetBinaryMode(stdin);
      _stream = stdin;
      return {};
    }
    if (!_file.Open(_path.c_str(), "rb")) {
      return "cannot open " + Shown(_path) + " (" + LastError() + ")";
    }
    _stream = static_cast<std::FILE*>(_file);
    return {};
  }

  // How long it is; 0 when that is not known, or more than a coder takes.
  std::size_t KnownLength() const {
    std::int64_t size = 0;
    const bool known = _path != "-" && QsGetFileSize64(_path.c_str(), size) == 0 && size <= kMaxLength;
    return known ? static_cast<std::size_t>(size) : 0;
  }

  // Calls take(data, length) for each piece, until it returns false. All pieces but the last one have that length.
  // \returns what went wrong, empty for success.
  template <typename Take>
  std::string Read(std::size_t pieceLength, Take take) {
    const auto piece = std::make_unique_for_overwrite<char[]>(pieceLength);
    for (std::size_t count; (count = std::fread(piece.get(), 1, pieceLength, _stream)) > 0;) {
      if (!take(piece.get(), static_cast<unsigned int>(count))) {
        return {};
      }
    }
    return std::ferror(_stream) == 0 ? "" : "cannot read " + Shown(_path) + " (" + LastError() + ")";
  }

 private:
  std::string _path;
  QsFile _file;
  std::FILE* _stream = nullptr;
};

std::string TooLong(const std::string& path) { return Shown(path) + " is longer than 4 GiB"; }

}  // namespace

std::string Shown(const std::string& path) { return path == "-" ? "standard input" : "'" + Printable(path) + "'"; }

std::string ReadAll(const std::string& path, std::string& content) {
  Input input(path);
  std::string problem = input.Open();
  if (!problem.empty()) {
    return problem;
  }
  content.reserve(content.size() + input.KnownLength());
  problem = input.Read(kBlock, [&](const char* data, unsigned int length) {
    content.append(data, length);
    return true;
  });
  return problem.empty() && content.size() > kMaxLength ? TooLong(path) : problem;
}

int WriteAll(const std::string& path, const std::string& content) {
  if (path != "-") {
    return QsAtomicSaveBinaryFile(path, content, true)
               ? kExitGood
               : Fail("cannot write '" + Printable(path) + "' (" + LastError() + ")");
  }
  SetBinaryMode(stdout);
  if (std::fwrite(content.data(), 1, content.size(), stdout) != content.size() || std::fflush(stdout) != 0) {
    return Fail("cannot write to standard output (" + LastError() + ")");
  }
  return kExitGood;
}

namespace {

// ---- encode

unsigned int LineLength(const CodeOptions& options, unsigned int otherwise) {
  return options.lineLength > 0 ? static_cast<unsigned int>(options.lineLength) : otherwise;
}

// A codec whose lines stand for the same number of bytes each, and so for a piece of the input alone.
struct LineCodec {
  CEncodeDecode coder;
  int flags;
  std::size_t lineBytes;
  std::size_t lineChars;    // with the line break
  std::string_view ending;  // what the coder writes behind the last line
};

// A multiple of the blocks that streams and file systems read, whatever a line stands for; small enough that what the
// coder gives is still in the processor's cache when it is appended.
constexpr std::size_t kLinesPerPiece = 4096;

// Appends a piece's lines. False when that is not possible; the status says why.
bool AppendLines(LineCodec& codec, const char* data, unsigned int length, std::string& text, int& status) {
  CoderOutput lines;
  status = codec.coder.Encode(data, 0, length, &lines.data, lines.length, codec.flags);
  if (status == 0) {
    text.append(lines.data, lines.length - codec.ending.size());
    status = text.size() + codec.ending.size() > kMaxLength ? kOutOfMemory : 0;
  }
  return status == 0;
}

// Reads, encodes and appends a piece at a time: the content is never in memory as a whole, nor is its text twice.
// \returns what went wrong with the input, empty for success.
std::string EncodeByLines(const std::string& path, LineCodec& codec, std::string& text, int& status) {
  Input input(path);
  if (std::string problem = input.Open(); !problem.empty()) {
    return problem;
  }
  const std::uint64_t room = (std::uint64_t{input.KnownLength()} / codec.lineBytes + 2) * codec.lineChars;
  text.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(room, text.max_size())));
  std::uint64_t total = 0;
  std::string problem = input.Read(kLinesPerPiece * codec.lineBytes, [&](const char* data, unsigned int length) {
    total += length;
    return total <= kMaxLength && AppendLines(codec, data, length, text, status);
  });
  if (total > 0 && status == 0) {
    text += codec.ending;
  }
  return total > kMaxLength ? TooLong(path) : problem;
}

std::string EncodeBase64(const CodeOptions& options, std::string& text, int& status) {
  const std::size_t lineChars = std::size_t{LineLength(options, kLineLength)} / 4 * 4;
  LineCodec codec = {CEncodeDecode(kLineLength, kLineLength), kFlagBase64, lineChars / 4 * 3, lineChars + 2, ""};
  codec.coder.SetMaxLineLengthBase64(LineLength(options, kLineLength));
  std::string problem = EncodeByLines(options.input, codec, text, status);
  // The coder leaves the last line open when it is not full.
  if (!text.empty() && text.back() != '\n') {
    text += "\r\n";
  }
  return problem;
}

std::string EncodeUue(const CodeOptions& options, std::string& text, int& status) {
  constexpr std::size_t kLineBytes = 45;
  constexpr std::size_t kLineChars = 63;
  const bool isXX = options.codec == Codec::XX;
  LineCodec codec = {CEncodeDecode(kLineLength, kLineLength), isXX ? kFlagXX : kFlagUU, kLineBytes, kLineChars,
                     isXX ? "+\r\n" : "`\r\n"};
  if (options.name.empty()) {
    return EncodeByLines(options.input, codec, text, status);
  }
  // The coder gives nothing for nothing; a framed file has its terminator line.
  const std::string begin = "begin 644 " + options.name + "\r\n";
  text = begin;
  std::string problem = EncodeByLines(options.input, codec, text, status);
  if (text.size() == begin.size()) {
    text += codec.ending;
  }
  text += "end\r\n";
  return problem;
}

int EncodeQP(const CodeOptions& options, const std::string& content, std::string& text) {
  CEncodeDecode coder(kLineLength, kLineLength);
  // The "=" of a soft break stands behind the last column that the coder counts.
  coder.SetMaxLineLengthQP(LineLength(options, kLineLength) - 1);
  return coder.Encode(content, text, kFlagQP | (options.text ? kFlagHardBreaks : 0));
}

int EncodeYEnc(const CodeOptions& options, const std::string& content, std::string& text) {
  CYEncData header;
  header.lineLength = LineLength(options, header.lineLength);
  header.name = options.name.empty() ? ExtractFileName(options.input) : options.name;
  if (header.name == "-") {
    header.name = "stdin";
  }
  if (content.empty()) {
    text = "=ybegin line=" + std::to_string(header.lineLength) + " size=0 name=" + header.name +
           "\r\n=yend size=0 crc32=00000000\r\n";
    return 0;
  }
  return CEncodeDecode::EncodeYEnc(content, text, header, kFlagYEncLines);
}

std::string EncodeWhole(const CodeOptions& options, std::string& text, int& status) {
  std::string content;
  std::string problem = ReadAll(options.input, content);
  if (problem.empty()) {
    status = options.codec == Codec::YEnc ? EncodeYEnc(options, content, text) : EncodeQP(options, content, text);
  }
  return problem;
}

// \returns what went wrong with the input, empty for success. The status is the coder's.
std::string Encode(const CodeOptions& options, std::string& text, int& status) {
  switch (options.codec) {
    case Codec::Base64:
      return EncodeBase64(options, text, status);
    case Codec::UU:
    case Codec::XX:
      return EncodeUue(options, text, status);
    case Codec::QuotedPrintable:
    case Codec::YEnc:
      return EncodeWhole(options, text, status);
    case Codec::BinHex:
    case Codec::Auto:
      break;
  }
  status = kNothingSelected;
  return {};
}

// No codec has a CR LF anywhere but at the ends of its lines.
void ToLineFeeds(std::string& text) {
  char* to = text.data();
  const char* from = to;
  const char* const end = from + text.size();
  while (from != end) {
    const void* const found = std::memchr(from + 1, '\n', static_cast<std::size_t>(end - from - 1));
    const char* const feed = found == nullptr ? end : static_cast<const char*>(found);
    const std::ptrdiff_t kept = feed - from - (feed != end && feed[-1] == '\r' ? 1 : 0);
    std::memmove(to, from, static_cast<std::size_t>(kept));
    to += kept;
    from = feed;
  }
  text.resize(static_cast<std::size_t>(to - text.data()));
}

// ---- decode

Encoding EncodingOf(Codec codec) {
  switch (codec) {
    case Codec::Base64:
      return Encoding::Base64;
    case Codec::QuotedPrintable:
      return Encoding::QuotedPrintable;
    case Codec::UU:
      return Encoding::UU;
    case Codec::XX:
      return Encoding::XX;
    case Codec::YEnc:
      return Encoding::YEnc;
    case Codec::BinHex:
      return Encoding::BinHex;
    case Codec::Auto:
      break;
  }
  return Encoding::None;
}

std::string Label(const Attachment& attachment) {
  const std::string encoding = EncodingName(attachment.encoding);
  return attachment.name.empty() ? encoding : "'" + Printable(attachment.name) + "' (" + encoding + ")";
}

int StoreAll(const std::vector<Attachment>& attachments, const std::string& folder) {
  Store store(folder);
  if (const std::string problem = store.Open(); !problem.empty()) {
    return Fail(problem);
  }
  int exitCode = kExitGood;
  for (const Attachment& attachment : attachments) {
    std::string fileName;
    const std::string problem = attachment.problem.empty() ? store.Save(attachment.name, attachment.data, fileName)
                                                           : "damaged: " + attachment.problem;
    if (problem.empty()) {
      std::fprintf(stderr, "%s\n", QsNativePath(store.PathOf(fileName)).c_str());
    } else {
      exitCode = Fail(Label(attachment) + " " + problem);
    }
  }
  return exitCode;
}

// ---- hash

// As md5sum does: a name with a line feed or a backslash is escaped, and the line begins with a backslash.
std::string HashLine(const std::string& hex, const std::string& name) {
  std::string escaped;
  for (const char c : name) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return (escaped == name ? "" : "\\") + ToLowerAscii(hex) + "  " + escaped + "\n";
}

std::string HexOf(const unsigned char digest[16]) { return Bytes2Hex(digest, 16, false); }

// \returns what went wrong, empty for success.
std::string HashMd5(Input& input, std::string& hex) {
  QsMD5 md5;
  md5.Init();
  unsigned char digest[16];
  const std::string problem = input.Read(kBlock, [&](const char* data, unsigned int length) {
    md5.Update(reinterpret_cast<const unsigned char*>(data), length);
    return true;
  });
  md5.Final(digest);
  hex = HexOf(digest);
  return problem;
}

// \returns what went wrong, empty for success.
std::string HashHmac(Input& input, const std::string& key, std::string& hex) {
  CHMACMD5 hmac;
  hmac.Init(reinterpret_cast<const unsigned char*>(key.data()), static_cast<int>(key.size()));
  unsigned char digest[16];
  const std::string problem = input.Read(kBlock, [&](const char* data, unsigned int length) {
    hmac.Update(reinterpret_cast<const unsigned char*>(data), static_cast<int>(length));
    return true;
  });
  hmac.Final();
  hmac.CopyDigest(digest);
  hex = HexOf(digest);
  return problem;
}

// \returns what went wrong, empty for success.
std::string HashOne(const HashOptions& options, const std::string& path, std::string& hex) {
  if (options.digest == Digest::CRC32) {
    std::string content;
    const std::string problem = ReadAll(path, content);
    hex = problem.empty() ? Crc32Hex(content) : "";
    return problem;
  }
  Input input(path);
  if (std::string problem = input.Open(); !problem.empty()) {
    return problem;
  }
  return options.digest == Digest::MD5 ? HashMd5(input, hex) : HashHmac(input, options.key, hex);
}

}  // namespace

int RunEncode(const CodeOptions& options) {
  std::string text;
  int status = 0;
  if (const std::string problem = Encode(options, text, status); !problem.empty()) {
    return Fail(problem);
  }
  if (status != 0) {
    return Fail("cannot encode " + Shown(options.input) + " (the coder gave " + std::to_string(status) + ")");
  }
  if (options.plainLineFeeds) {
    ToLineFeeds(text);
  }
  return WriteAll(options.output, text);
}

int RunDecode(const CodeOptions& options) {
  std::string content;
  if (const std::string problem = ReadAll(options.input, content); !problem.empty()) {
    return Fail(problem);
  }
  const std::string contentName = options.input == "-" ? "stdin" : ExtractFileName(options.input);
  const std::vector<Attachment> found = options.codec == Codec::Auto
                                            ? TakeAttachments(std::move(content), contentName)
                                            : TakeEncoded(std::move(content), EncodingOf(options.codec));
  if (found.empty()) {
    return Fail("found nothing encoded in " + Shown(options.input));
  }
  if (options.output != "-" && QsGetFSObjectType(options.output) == FSO_DIRECTORY) {
    return StoreAll(found, options.output);
  }
  if (found.size() > 1) {
    return Fail(Shown(options.input) + " holds " + std::to_string(found.size()) +
                " attachments: give an existing folder with -o");
  }
  if (!found.front().problem.empty()) {
    return Fail(Label(found.front()) + " damaged: " + found.front().problem);
  }
  return WriteAll(options.output, found.front().data);
}

int RunHash(const HashOptions& options) {
  SetBinaryMode(stdout);  // the lines of md5sum
  int exitCode = kExitGood;
  for (const std::string& path : options.inputs) {
    std::string hex;
    if (const std::string problem = HashOne(options, path, hex); !problem.empty()) {
      exitCode = Fail(problem);
      continue;
    }
    std::fputs(HashLine(hex, path).c_str(), stdout);
  }
  return std::fflush(stdout) == 0 ? exitCode : Fail("cannot write to standard output (" + LastError() + ")");
}

}  // namespace qs
