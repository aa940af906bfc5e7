/// \file
/// The parts of a transfer that need no network: sinks, receivers, header parsing, length limits. Internal.
/// A sink belongs to one transfer and so to one thread.
#ifndef QSBASE_NET_HTTPTRANSFER_H
#define QSBASE_NET_HTTPTRANSFER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <QSbase/net/http.h>

namespace qsbase::detail {

constexpr std::size_t defaultBodyGrowth = 0x200000;
constexpr std::size_t headerGrowth = 10240;

/// What makes a header text longer is not kept. libcurl refuses more than 300 KiB of header lines by itself, but takes
/// any number of them behind a chunked body.
constexpr std::size_t longestHeaderText = 0x80000;

struct CFree {
  void operator()(char* memory) const noexcept { std::free(memory); }
};

/// The number after the first "Content-Length: " (any case) of a text that grows, 0 if there is none or it is negative.
/// Looks at every byte about once, so that many short header lines cost no more than a few long ones.
class LengthReader {
 public:
  /// `text` is the text of the call before with more behind it. It is followed by a NUL; one inside ends the search.
  std::int32_t Read(std::string_view text);

 private:
  void Find(std::string_view text);

  std::size_t _next = 0;  // where to go on searching; the number's place once the name is found
  bool _found = false;
  bool _closed = false;  // nothing that follows changes the length
  std::int32_t _length = 0;
};

/// Where the bytes of one transfer go: one sink for the body, one for the header text.
struct TransferSink {
  std::unique_ptr<char, CFree> data;  ///< NUL-terminated; null until something is held
  std::uint64_t held = 0;             ///< bytes received, into memory or into output
  std::size_t capacity = 0;           ///< bytes that data takes beside its NUL
  std::size_t growthStep = 0;
  TextCallback textCallback = nullptr;
  void* textUser = nullptr;
  std::FILE* output = nullptr;
  const TransferSink* headerSink = nullptr;  ///< set in the body's sink
  LengthReader length;                       ///< of the header text
  std::int32_t contentLength = 0;            ///< last announced length, 0 if none
  std::int64_t firstData = 0;                ///< seconds since the epoch, 0 before the first data
  std::int64_t lastLine = 0;
  bool finalLineSent = false;
  std::exception_ptr error;  ///< what a callback threw; the transfer ends then

  /// The C allocator; tests let it fail.
  void* (*reallocate)(void*, std::size_t) = &std::realloc;

  /// The bytes held in memory.
  std::string_view Bytes() const;
};

/// libcurl's write function; sink is a TransferSink*. Any other result than size * count aborts the transfer.
std::size_t ReceiveBody(char* data, std::size_t size, std::size_t count, void* sink) noexcept;

/// libcurl's header function; sink is a TransferSink*.
std::size_t ReceiveHeader(char* data, std::size_t size, std::size_t count, void* sink) noexcept;

/// The status line that is due at `now` (seconds since the epoch), if one is.
std::optional<std::string> DueStatusLine(TransferSink& body, std::int64_t now);

/// atoi that saturates at -2147483648 and 2147483647.
std::int32_t SaturatingInt(std::string_view text);

/// The number after the first "Content-Length: " (any case), 0 if there is none or it is negative.
std::int32_t AnnouncedLength(const std::string& headers);

/// The status of the first status line, or of the next one when the first is 100; 0 if there is none.
std::int32_t HttpStatus(std::string_view headers);

/// user, or user ":" password when there is a password; nothing when it does not fit the limit.
std::optional<std::string> Credentials(const std::string& user, const std::string& password);

/// True when the proxy's name fits the limit.
bool ProxyFits(const std::string& proxy);

/// What follows the first "/", all of the text without one.
std::string AfterSlash(const std::string& text);

/// Joins libcurl's informational records: their lines, trimmed, with "; " between them.
class Diagnostics {
 public:
  void Add(std::string_view record);
  const std::string& Text() const { return _text; }

 private:
  std::string _text;
  bool _started = false;
};

/// What OpenSSL calls to lock; reached by the tests. Mode with bit 0x1 enters lock `index`, else leaves it; an index
/// beyond the table, or no table, is ignored.
void LockOpenSSL(int mode, int index, const char* file, int line);

/// Number of locks installed, 0 before QsInitOpenSSLSynchronization and after its counterpart.
std::size_t OpenSSLLockCount();

}  // namespace qsbase::detail

#endif
