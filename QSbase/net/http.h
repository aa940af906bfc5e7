/// \file
/// One blocking HTTP or HTTPS transfer per call.
#ifndef QSBASE_NET_HTTP_H
#define QSBASE_NET_HTTP_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <QSbase/export.h>

struct QSBASE_API QsInetHttpRequest {
  QsInetHttpRequest();
  QsInetHttpRequest(const QsInetHttpRequest& other);
  QsInetHttpRequest& operator=(const QsInetHttpRequest& other);
  ~QsInetHttpRequest();

  std::string url;
  std::string postData;
  std::string extraHeaders;
  std::string userAgent;
  std::string httpUser;
  std::string httpPassword;
  std::string proxyServer;
  std::string proxyUser;
  std::string proxyPassword;
  std::int32_t connectTimeout;
  std::string caInfoFile;
  std::FILE* outputFile;
  std::uint32_t resumeFrom;
  bool resume;
  bool verifyPeer;
  bool verifyHost;
  std::uint8_t tcpNoDelay;
};

struct QSBASE_API QsInetHttpResponse {
  QsInetHttpResponse();
  QsInetHttpResponse(const QsInetHttpResponse& other);
  QsInetHttpResponse& operator=(const QsInetHttpResponse& other);
  ~QsInetHttpResponse();

  std::int32_t httpCode;
  std::int32_t curlCode;
  std::string headers;
  std::uint32_t contentLength;
  std::string body;
  std::string errorText;
  bool retryable;
  bool hostNotFound;
};

using TextCallback = void (*)(const char* text, void* user);
using AbortCheck = bool (*)(void* user);

QSBASE_API bool QsInetHttp(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback,
                           void* textUser, AbortCheck abortCheck, void* abortUser, unsigned int growthStep);
QSBASE_API bool QsInetHttp(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback,
                           void* textUser, bool (*abortCheck)(), unsigned int growthStep);

QSBASE_API void InitQsInetHttp(int phase);
QSBASE_API bool QsInitOpenSSLSynchronization();
QSBASE_API bool QsDeinitOpenSSLSynchronization();
QSBASE_API void QsGetCurlOpenSSLVersions(std::string& curlVersion, std::string& sslVersion);
QSBASE_API void QsGetCUrlOpenSSLVersions(std::string& curlVersion, std::string& sslVersion);

#endif
