/// \file
/// One blocking HTTP or HTTPS transfer per call, over libcurl.
///
/// Thread safety: QsInetHttp is re-entrant; any number of calls may run at the same time on different threads, each
/// with its own request and response. InitQsInetHttp and the two OpenSSL functions belong to the start and the end of
/// the process, when no transfer runs. Nothing here logs.
#ifndef QSBASE_NET_HTTP_H
#define QSBASE_NET_HTTP_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <QSbase/export.h>

/// What to transfer and how. After construction all strings are empty, numbers zero, flags false and outputFile null.
struct QSBASE_API QsInetHttpRequest {
  QsInetHttpRequest();
  QsInetHttpRequest(const QsInetHttpRequest& other);
  QsInetHttpRequest& operator=(const QsInetHttpRequest& other);
  ~QsInetHttpRequest();

  /// Target URL, handed to libcurl as is, which knows further schemes ("file:" too): check one that comes from outside.
  /// Redirections are reported (httpCode 301 and so on), never followed.
  std::string url;
  /// Request body, any bytes (NUL too). Not empty: the request is a POST; empty: a GET.
  std::string postData;
  /// Further header lines, separated by CR LF. Sent with a POST only; a GET ignores them (kept: callers rely on it).
  /// A line that holds "Content-Length:", in exactly this case, is dropped.
  std::string extraHeaders;
  /// User-Agent text; empty sends none.
  std::string userAgent;
  /// Server user name for basic authentication. User, ":" and password together take at most 254 characters.
  std::string httpUser;
  /// Server password; ignored without httpUser.
  std::string httpPassword;
  /// Proxy as libcurl takes it ("host:port", "http://host:port"), at most 255 characters. Empty means a direct
  /// connection. The environment (http_proxy, no_proxy, ...) never has a say in either case.
  std::string proxyServer;
  /// Proxy user name. User, ":" and password together take at most 254 characters.
  std::string proxyUser;
  /// Proxy password; ignored without proxyUser.
  std::string proxyPassword;
  /// Time-out for connecting, in seconds. 0 or less means 30; above 2147483 counts as 2147483.
  std::int32_t connectTimeout;
  /// CA bundle (PEM), "\" and "/" accepted. Used only with verifyPeer, and then alone; empty means the
  /// system's bundle, on Windows its certificate store.
  std::string caInfoFile;
  /// When set, the body is written to this stream and not kept in memory. The stream stays the caller's; it is flushed
  /// after every chunk. A failed write ends the transfer (curlCode 23); a failed flush shows in ferror() only.
  std::FILE* outputFile;
  /// Offset in bytes at which the transfer resumes; used only with resume.
  std::uint32_t resumeFrom;
  /// Ask the server for the bytes from resumeFrom on. A server that sends the whole file instead gives curlCode 33,
  /// result true, and nothing is written; a part without "Content-Range" likewise, or 0 when its length is the offset.
  /// A "Content-Range" that libcurl cannot read counts as the right one: the text callback gets the headers before the
  /// first byte. A POST with an offset fails (curlCode 26).
  bool resume;
  /// Verify the server's certificate.
  bool verifyPeer;
  /// Verify that the certificate is for the URL's host.
  bool verifyHost;
  /// Not zero: passed on as TCP_NODELAY.
  std::uint8_t tcpNoDelay;
};

/// What a transfer gave. QsInetHttp resets all of it first.
struct QSBASE_API QsInetHttpResponse {
  QsInetHttpResponse();
  QsInetHttpResponse(const QsInetHttpResponse& other);
  QsInetHttpResponse& operator=(const QsInetHttpResponse& other);
  ~QsInetHttpResponse();

  /// HTTP status of the first status line; of the second one when the first is 100 (once only). 0 after a failure.
  /// Through a proxy tunnel (https) the first status line is the proxy's answer to CONNECT.
  std::int32_t httpCode;
  /// libcurl's result code, or a local one: -2, -3, -4 (see QsInetHttp).
  std::int32_t curlCode;
  /// All header bytes as received, every header block included; also after a failure.
  std::string headers;
  /// Size of body, at most 4294967295. When the body went to outputFile: the number after the first "Content-Length: "
  /// of headers, 0 if there is none, at most 2147483647.
  std::uint32_t contentLength;
  /// Body bytes received into memory, also after a failure.
  std::string body;
  /// After a failure: libcurl's informational lines, joined with "; ", or the text of a local code.
  std::string errorText;
  /// Worth another try: status 500 (the result is true then), or curlCode 5, 6, 7, 28, 35 or 56.
  bool retryable;
  /// The name of the proxy or of the host could not be resolved (curlCode 5 or 6).
  bool hostNotFound;
};

/// Takes status text: the header text gathered so far after every header line, a line
/// "D Downloaded: ..." at most every two seconds while the body arrives, libcurl's error text after a failure.
/// The text is valid during the call only.
using TextCallback = void (*)(const char* text, void* user);

/// Asked during the transfer, about once a second at least; true aborts it (curlCode 42).
using AbortCheck = bool (*)(void* user);

/// Performs one transfer and returns when it is over.
///
/// True when libcurl finished with 0, 18 (partial file) or 33 (range error), whatever the HTTP status. False otherwise;
/// curlCode and errorText say why, headers and body hold what arrived until then. Taken before any network activity:
///
/// | curlCode | errorText                         | reason                                           |
/// |----------|-----------------------------------|--------------------------------------------------|
/// | -2       | "Proxyuser & password too long."  | proxyUser + proxyPassword above 254 characters   |
/// | -3       | "Proxyserver too long."           | proxyServer above 255 characters                 |
/// | -4       | "httpuser & httppassword too long." | httpUser + httpPassword above 254 characters   |
/// | 0        | "could not allocate memory for readptr." | no memory for the copy of postData        |
///
/// An option that libcurl does not take (a text above 8,000,000 characters, no memory) ends the call in the same place
/// with libcurl's code: no transfer goes out with less than it was told, such as without its proxy or its CA bundle.
///
/// A transfer slower than 512 bytes a second for 60 seconds fails (28). One that is never slower takes as long as the
/// server sends: only the abort check ends it, and only a body that goes to outputFile takes no memory. Headers of more
/// than 300 KiB end it, too (56), and so does a line of more than 100 KiB (27, or 100 in newer libcurl). Lines behind a
/// chunked body do not: of headers and such lines 512 KiB are kept, and the text callback is not called for what
/// follows; but some versions of libcurl hold all of them.
///
/// An answer that ends in its body is a partial file (18) when a length was announced or it comes in chunks; any other
/// ends where the connection does (0), over TLS with or without a farewell. One that ends among its header lines is a
/// partial file only when a length or chunks were announced before, otherwise libcurl takes it for whole (0): headers
/// then has no empty line behind the last status line. No coding but "chunked" is undone: neither "Content-Encoding"
/// nor another "Transfer-Encoding", none of which is asked for.
///
/// \param textCallback  receives status text with textUser; may be null.
/// \param abortCheck    is asked with abortUser whether to stop; may be null.
/// \param growthStep    bytes by which the buffer for the body grows at least; 0 means 2 MiB.
///
/// The callbacks run on the calling thread. One that throws ends the transfer: everything is released, response holds
/// what arrived, and the exception leaves QsInetHttp. SIGPIPE is held back on the calling thread while the call lasts,
/// so a connection that breaks never ends the process.
///
/// \code
/// QsInetHttpRequest request;
/// request.url = "https://example.org/file";
/// request.verifyPeer = request.verifyHost = true;
/// QsInetHttpResponse response;
/// if (QsInetHttp(request, response, nullptr, nullptr, nullptr, nullptr, 0) && response.httpCode == 200) {
///   Use(response.body);
/// }
/// \endcode
QSBASE_API bool QsInetHttp(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback,
                           void* textUser, AbortCheck abortCheck, void* abortUser, unsigned int growthStep);

/// The same with an abort check that takes no parameter; it may be null.
QSBASE_API bool QsInetHttp(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback,
                           void* textUser, bool (*abortCheck)(), unsigned int growthStep);

/// Start (phase 1) and stop (phase 2) of libcurl for the process; any other phase does nothing. Phase 1 comes before
/// the first transfer, phase 2 after the last; not while other threads run transfers.
QSBASE_API void InitQsInetHttp(int phase);

/// Installs locks for an OpenSSL that needs them from its host (before 1.1); newer ones lock by themselves and never
/// use them. Call it before transfers run on several threads at once. A second call changes nothing. Always true.
QSBASE_API bool QsInitOpenSSLSynchronization();

/// Takes the locks out again, when no transfer runs; nothing happens when none are installed. Always true.
QSBASE_API bool QsDeinitOpenSSLSynchronization();

/// The versions in use, such as "7.88.1" and "3.0.15": of the SSL library's text only what follows its first "/", all
/// of it when there is no "/". Both are empty when libcurl does not tell.
QSBASE_API void QsGetCurlOpenSSLVersions(std::string& curlVersion, std::string& sslVersion);

/// The same function under its second name.
QSBASE_API void QsGetCUrlOpenSSLVersions(std::string& curlVersion, std::string& sslVersion);

#endif
