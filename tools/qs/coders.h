/// \file
/// qs encode, qs decode, qs hash: the codecs and digests over files and the standard streams.
#ifndef QS_CODERS_H
#define QS_CODERS_H

#include <string>
#include <vector>

namespace qs {

enum class Codec { Auto, Base64, QuotedPrintable, UU, XX, YEnc, BinHex };

struct CodeOptions {
  Codec codec = Codec::Auto;
  std::string input = "-";      ///< "-": standard input
  std::string output = "-";     ///< "-": standard output; decode takes a folder too
  std::string name;             ///< encode: the name in "begin" and "=ybegin" lines
  int lineLength = 0;           ///< encode: 0 is the codec's own
  bool text = false;            ///< encode --qp: line breaks stay line breaks
  bool plainLineFeeds = false;  ///< encode: lines end with LF instead of CR LF
};

enum class Digest { MD5, CRC32, HMAC };

struct HashOptions {
  Digest digest = Digest::MD5;
  std::string key;  ///< HMAC: the key's bytes
  std::vector<std::string> inputs;
};

/// Each writes its result and gives the program's exit code. What cannot be decoded without loss is not written.
int RunEncode(const CodeOptions& options);
int RunDecode(const CodeOptions& options);
/// One line an input, as md5sum has it.
int RunHash(const HashOptions& options);

/// How messages name an input: its path in quotes, or "standard input" for "-".
std::string Shown(const std::string& path);
/// Appends a file's bytes, or those of standard input for "-". \returns what went wrong, empty for success.
std::string ReadAll(const std::string& path, std::string& content);
/// Replaces a file in one step, or writes the bytes to standard output for "-". \returns the program's exit code.
int WriteAll(const std::string& path, const std::string& content);

}  // namespace qs

#endif
