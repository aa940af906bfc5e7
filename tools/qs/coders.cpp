#include "coders.h"

#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/errors.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/text/qsstring.h>

#include <array>
#include <cstdio>
#include <limits>

#include "attachment.h"
#include "consoleos.h"
#include "fetch.h"
#include "store.h"
#include "text.h"

namespace qs {
namespace {

constexpr int kFlagBase64 = 0x1;
constexpr int kFlagQP = 0x2;
constexpr int kFlagUU = 0x4;
constexpr int kFlagXX = 0x8;
constexpr int kFlagHardBreaks = 0x200;
constexpr int kFlagYEncLines = 0x1000;
constexpr unsigned int kLineLength = 76;

std::string LastError() { return QsErrorMessage(QsGetLastError()); }

// A file or standard input, read piece by piece.
class Input {
 public:
  explicit Input(const std::string& path) : _path(path) {}

  bool Open() {
    if (_path == "-") {
      SetBinaryMode(stdin);
      _stream = stdin;
      return true;
    }
    if (!_file.Open(_path.c_str(), "rb")) {
      return false;
    }
    _stream = static_cast<std::FILE*>(_file);
    return true;
  }

  // Calls take(data, length) for each piece. False when reading failed.
  template <typename Take>
  bool Read(Take take) {
    std::array<char, 65536> block{};
    for (std::size_t count; (count = std::fread(block.data(), 1, block.size(), _stream)) > 0;) {
      take(block.data(), static_cast<unsigned int>(count));
    }
    return std::ferror(_stream) == 0;
  }

 private:
  std::string _path;
  QsFile _file;
  std::FILE* _stream = nullptr;
};

}  // namespace

std::string Shown(const std::string& path) { return path == "-" ? "standard input" : "'" + Printable(path) + "'"; }

std::string ReadAll(const std::string& path, std::string& content) {
  Input input(path);
  if (!input.Open()) {
    return "cannot open " + Shown(path) + " (" + LastError() + ")";
  }
  if (!input.Read([&](const char* data, unsigned int length) { content.append(data, length); })) {
    return "cannot read " + Shown(path) + " (" + LastError() + ")";
  }
  if (content.size() > std::numeric_limits<unsigned int>::max()) {
    return Shown(path) + " is longer than 4 GiB";
  }
  return {};
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

int EncodeBase64(const CodeOptions& options, const std::string& content, std::string& text) {
  CEncodeDecode coder(kLineLength, kLineLength);
  coder.SetMaxLineLengthBase64(LineLength(options, kLineLength));
  const int status = coder.Encode(content, text, kFlagBase64);
  // The coder leaves the last line open when it is not full.
  if (!text.empty() && text.back() != '\n') {
    text += "\r\n";
  }
  return status;
}

int EncodeQP(const CodeOptions& options, const std::string& content, std::string& text) {
  CEncodeDecode coder(kLineLength, kLineLength);
  // The "=" of a soft break stands behind the last column that the coder counts.
  coder.SetMaxLineLengthQP(LineLength(options, kLineLength) - 1);
  return coder.Encode(content, text, kFlagQP | (options.text ? kFlagHardBreaks : 0));
}

int EncodeUue(const CodeOptions& options, const std::string& content, std::string& text) {
  const bool framed = !options.name.empty();
  if (framed) {
    text = "begin 644 " + options.name + "\r\n";
  }
  const int flags = options.codec == Codec::XX ? kFlagXX : kFlagUU;
  std::string lines;
  const int status = CEncodeDecode(kLineLength, kLineLength).Encode(content, lines, flags);
  if (framed && lines.empty()) {  // the coder gives nothing for nothing; a framed file has its terminator line
    lines = options.codec == Codec::XX ? "+\r\n" : "`\r\n";
  }
  text += lines;
  if (framed) {
    text += "end\r\n";
  }
  return status;
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

int Encode(const CodeOptions& options, const std::string& content, std::string& text) {
  switch (options.codec) {
    case Codec::Base64:
      return EncodeBase64(options, content, text);
    case Codec::QuotedPrintable:
      return EncodeQP(options, content, text);
    case Codec::UU:
    case Codec::XX:
      return EncodeUue(options, content, text);
    case Codec::YEnc:
      return EncodeYEnc(options, content, text);
    case Codec::BinHex:
    case Codec::Auto:
      break;
  }
  return -2;
}

// No codec has a CR LF anywhere but at the ends of its lines.
void ToLineFeeds(std::string& text) {
  std::size_t to = 0;
  for (std::size_t from = 0; from < text.size(); ++from) {
    if (text[from] != '\r' || from + 1 == text.size() || text[from + 1] != '\n') {
      text[to++] = text[from];
    }
  }
  text.resize(to);
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

std::vector<Attachment> BlocksOf(const std::string& content, Encoding encoding) {
  std::vector<Attachment> blocks = FindEncodedBlocks(content);
  std::vector<Attachment> wanted;
  for (Attachment& block : blocks) {
    if (block.encoding == encoding) {
      wanted.push_back(std::move(block));
    }
  }
  return wanted;
}

// yEnc data without its "=y" lines: nothing in it can be checked.
Attachment DecodeRawYEnc(const std::string& content) {
  Attachment result;
  result.encoding = Encoding::YEnc;
  const int status = CEncodeDecode::DecodeYEnc(content, result.data, 0, nullptr);
  if (status != 0) {
    result.problem = "the decoder gave " + std::to_string(status);
  }
  return result;
}

Attachment NotFound(Encoding encoding) {
  Attachment result;
  result.encoding = encoding;
  result.problem = "no such block found";
  return result;
}

// Blocks where the text has any, else the whole text as bare lines.
std::vector<Attachment> DecodeAs(const std::string& content, Encoding encoding) {
  std::vector<Attachment> blocks = BlocksOf(content, encoding);
  if (!blocks.empty()) {
    return blocks;
  }
  switch (encoding) {
    case Encoding::Base64:
      return {DecodeBase64Text(content)};
    case Encoding::QuotedPrintable:
      return {DecodeQuotedPrintableText(content)};
    case Encoding::UU:
    case Encoding::XX:
      return {DecodeUueLines(content, encoding)};
    case Encoding::YEnc:
      return {DecodeRawYEnc(content)};
    case Encoding::BinHex:
    case Encoding::None:
      break;
  }
  return {NotFound(encoding)};
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

bool HashMd5(Input& input, std::string& hex) {
  QsMD5 md5;
  md5.Init();
  unsigned char digest[16];
  const bool read = input.Read(
      [&](const char* data, unsigned int length) { md5.Update(reinterpret_cast<const unsigned char*>(data), length); });
  md5.Final(digest);
  hex = HexOf(digest);
  return read;
}

bool HashHmac(Input& input, const std::string& key, std::string& hex) {
  CHMACMD5 hmac;
  hmac.Init(reinterpret_cast<const unsigned char*>(key.data()), static_cast<int>(key.size()));
  unsigned char digest[16];
  const bool read = input.Read([&](const char* data, unsigned int length) {
    hmac.Update(reinterpret_cast<const unsigned char*>(data), static_cast<int>(length));
  });
  hmac.Final();
  hmac.CopyDigest(digest);
  hex = HexOf(digest);
  return read;
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
  if (!input.Open()) {
    return "cannot open " + Shown(path) + " (" + LastError() + ")";
  }
  const bool read = options.digest == Digest::MD5 ? HashMd5(input, hex) : HashHmac(input, options.key, hex);
  return read ? "" : "cannot read " + Shown(path) + " (" + LastError() + ")";
}

}  // namespace

int RunEncode(const CodeOptions& options) {
  std::string content;
  if (const std::string problem = ReadAll(options.input, content); !problem.empty()) {
    return Fail(problem);
  }
  std::string text;
  const int status = Encode(options, content, text);
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
  const std::vector<Attachment> found = options.codec == Codec::Auto ? ExtractAttachments(content, contentName)
                                                                     : DecodeAs(content, EncodingOf(options.codec));
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
