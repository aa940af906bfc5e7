/// \file
/// What the transfer tests share.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_TRANSFER_H
#define QSBASE_TESTS_INTEGRATION_COMMON_TRANSFER_H

#include <cstdio>
#include <memory>
#include <string>

#include <common/noise.h>

#include <QSbase/net/http.h>

namespace qsbase::testing {

struct Outcome {
  bool result;
  QsInetHttpResponse response;
};

inline Outcome Fetch(const QsInetHttpRequest& request) {
  Outcome outcome;
  outcome.result = QsInetHttp(request, outcome.response, nullptr, nullptr, nullptr, nullptr, 0);
  return outcome;
}

inline QsInetHttpRequest Get(const std::string& url) {
  QsInetHttpRequest request;
  request.url = url;
  return request;
}

inline Outcome Fetch(const std::string& url) { return Fetch(Get(url)); }

using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

inline FilePtr OpenFile(const std::string& path, const char* mode) {
  return FilePtr(std::fopen(path.c_str(), mode), &std::fclose);
}

}  // namespace qsbase::testing

#endif
