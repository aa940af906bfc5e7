// Fetches a URL into memory.
#include <QSbase/qsbase.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: http_get URL\n");
    return 2;
  }
  InitQsInetHttp(1);
  QsInetHttpRequest request;
  request.url = argv[1];
  request.userAgent = "http_get";
  request.verifyPeer = request.verifyHost = true;  // not set at the start
  QsInetHttpResponse response;
  const bool done = QsInetHttp(request, response, nullptr, nullptr, nullptr, nullptr, 0);
  if (!done) {
    std::printf("failed (%d): %s%s\n", response.curlCode, response.errorText.c_str(),
                response.retryable ? ", worth another try" : "");
  } else if (response.httpCode != 200) {  // the transfer is done all the same
    std::printf("status %d\n", response.httpCode);
  } else {
    std::printf("%u bytes: %s", response.contentLength, response.body.c_str());
  }
  InitQsInetHttp(2);
  return done && response.httpCode == 200 ? 0 : 1;
}
