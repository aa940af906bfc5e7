#include <QSbase/net/http.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include <curl/curl.h>

#include <QSbase/net/easyoption.h>
#include <QSbase/net/httptransfer.h>
#include <QSbase/net/sigpipeguard.h>
#include <QSbase/support/paths.h>
#include <QSbase/text/qsstring.h>

QsInetHttpRequest::QsInetHttpRequest()
    : connectTimeout(0),
      outputFile(nullptr),
      resumeFrom(0),
      resume(false),
      verifyPeer(false),
      verifyHost(false),
      tcpNoDelay(0) {}
QsInetHttpRequest::QsInetHttpRequest(const QsInetHttpRequest& other) = default;
QsInetHttpRequest& QsInetHttpRequest::operator=(const QsInetHttpRequest& other) = default;
QsInetHttpRequest::~QsInetHttpRequest() = default;

QsInetHttpResponse::QsInetHttpResponse()
    : httpCode(0), curlCode(0), contentLength(0), retryable(false), hostNotFound(false) {}
QsInetHttpResponse::QsInetHttpResponse(const QsInetHttpResponse& other) = default;
QsInetHttpResponse& QsInetHttpResponse::operator=(const QsInetHttpResponse& other) = default;
QsInetHttpResponse::~QsInetHttpResponse() = default;

namespace {

using namespace qsbase::detail;

constexpr long defaultConnectTimeout = 30;
constexpr std::int32_t longestConnectTimeout = std::numeric_limits<std::int32_t>::max() / 1000;  // libcurl's own limit
constexpr long receiveBuffer = 102400;  // bytes: every chunk costs a read from the network and a flush of the file
constexpr long slowestBytesPerSecond = 512;
constexpr long slowSeconds = 60;

struct Handle {
  Handle() : easy(curl_easy_init()) {}
  ~Handle() { curl_easy_cleanup(easy); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  CURL* const easy;
};

class HeaderList {
 public:
  HeaderList() = default;
  ~HeaderList() { curl_slist_free_all(_first); }
  HeaderList(const HeaderList&) = delete;
  HeaderList& operator=(const HeaderList&) = delete;

  bool Append(const char* line) {
    curl_slist* first = curl_slist_append(_first, line);
    if (first == nullptr) {
      return false;
    }
    _first = first;
    return true;
  }
  curl_slist* First() const { return _first; }

 private:
  curl_slist* _first = nullptr;
};

struct Abort {
  AbortCheck check;
  void* user;
  std::exception_ptr error;
};

int CheckAbort(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept {
  Abort& abort = *static_cast<Abort*>(user);
  try {
    return abort.check != nullptr && abort.check(abort.user) ? 1 : 0;
  } catch (...) {
    abort.error = std::current_exception();
    return 1;
  }
}

int CollectDiagnostics(CURL*, curl_infotype type, char* data, std::size_t size, void* user) noexcept {
  if (type == CURLINFO_TEXT) {
    try {
      static_cast<Diagnostics*>(user)->Add(std::string_view(data, size));
    } catch (...) {
      return 0;  // no memory for a diagnostic line: the transfer matters more
    }
  }
  return 0;
}

// Asked for the resume offset of a POST. libcurl would otherwise read up to it from the process's standard input.
int RefuseSeek(void*, curl_off_t, int) noexcept { return CURL_SEEKFUNC_FAIL; }

bool IsSuccess(std::int32_t code) {
  return code == CURLE_OK || code == CURLE_PARTIAL_FILE || code == CURLE_RANGE_ERROR;
}

bool IsNameLookup(std::int32_t code) {
  return code == CURLE_COULDNT_RESOLVE_PROXY || code == CURLE_COULDNT_RESOLVE_HOST;
}

bool IsRetryable(std::int32_t code) {
  return IsNameLookup(code) || code == CURLE_COULDNT_CONNECT || code == CURLE_OPERATION_TIMEDOUT ||
         code == CURLE_SSL_CONNECT_ERROR || code == CURLE_RECV_ERROR;
}

// One transfer. The members are in the order that their release needs: the handle goes first, what it refers to later,
// and SIGPIPE is let through again when all is closed.
class Transfer {
 public:
  Transfer(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback, void* textUser,
           AbortCheck abortCheck, void* abortUser, unsigned int growthStep)
      : _request(request), _response(response), _abort{abortCheck, abortUser, nullptr} {
    _body.growthStep = growthStep != 0 ? growthStep : defaultBodyGrowth;
    _body.headerSink = &_header;
    _body.output = request.outputFile;
    _header.growthStep = headerGrowth;
    for (TransferSink* sink : {&_body, &_header}) {
      sink->textCallback = textCallback;
      sink->textUser = textUser;
    }
  }

  bool Run() {
    if (_handle.easy == nullptr) {
      return false;
    }
    SetTarget();
    SetAbortCheck();
    SetTimeouts();
    SetReceivers();
    if (!SetProxy() || !SetCredentials() || !SetContent()) {
      return false;
    }
    SetDiagnostics();
    if (_setup != CURLE_OK) {
      return Fail(_setup, curl_easy_strerror(_setup));
    }
    return Perform();
  }

 private:
  template <typename Value>
  CURLcode Set(CURLoption option, Value value) {
    return SetEasyOption(_handle.easy, option, value, _setup);
  }

  void SetTarget() {
    // A URL that libcurl does not take (over 8 MB) counts as a malformed one: curl_easy_perform says so.
    curl_easy_setopt(_handle.easy, CURLOPT_URL, _request.url.c_str());
    Set(CURLOPT_SSL_VERIFYHOST, _request.verifyHost ? 2L : 0L);
    Set(CURLOPT_SSL_VERIFYPEER, _request.verifyPeer ? 1L : 0L);
    if (!_request.caInfoFile.empty() && _request.verifyPeer) {
      Set(CURLOPT_CAINFO, QsNativePath(_request.caInfoFile).c_str());
      // Or else the system's folder of authorities stays. A libcurl that refuses the option has none to take.
      curl_easy_setopt(_handle.easy, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    } else {
      Set(CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_NATIVE_CA));  // Windows: its certificate store
    }
    if (_request.tcpNoDelay != 0) {
      Set(CURLOPT_TCP_NODELAY, static_cast<long>(_request.tcpNoDelay));
    }
    Set(CURLOPT_LOW_SPEED_LIMIT, slowestBytesPerSecond);
    Set(CURLOPT_LOW_SPEED_TIME, slowSeconds);
    Set(CURLOPT_NOSIGNAL, 1L);
  }

  void SetAbortCheck() {
    const bool given = _abort.check != nullptr;
    Set(CURLOPT_NOPROGRESS, given ? 0L : 1L);
    Set(CURLOPT_XFERINFOFUNCTION, given ? &CheckAbort : nullptr);
    Set(CURLOPT_XFERINFODATA, given ? static_cast<void*>(&_abort) : nullptr);
  }

  void SetTimeouts() {
    Set(CURLOPT_CONNECTTIMEOUT, defaultConnectTimeout);
    if (_request.connectTimeout > 0) {
      Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(std::min(_request.connectTimeout, longestConnectTimeout)));
    }
  }

  void SetReceivers() {
    Set(CURLOPT_BUFFERSIZE, receiveBuffer);
    Set(CURLOPT_WRITEFUNCTION, &ReceiveBody);
    Set(CURLOPT_WRITEDATA, static_cast<void*>(&_body));
    Set(CURLOPT_HEADERFUNCTION, &ReceiveHeader);
    Set(CURLOPT_HEADERDATA, static_cast<void*>(&_header));
    // The body comes as it was sent. libcurl would inflate one whose transfer encoding is gzip though nobody asked for
    // that, and some hundred bytes to some hundred megabytes.
    Set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    if (!_request.userAgent.empty()) {
      Set(CURLOPT_USERAGENT, _request.userAgent.c_str());
    }
    if (_request.resume) {
      Set(CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(_request.resumeFrom));
    }
  }

  // An empty name switches the proxies of the environment off, an empty exception list those that no_proxy names.
  bool SetProxy() {
    if (!ProxyFits(_request.proxyServer)) {
      return Fail(-3, "Proxyserver too long.");
    }
    Set(CURLOPT_PROXY, _request.proxyServer.c_str());
    Set(CURLOPT_NOPROXY, "");
    if (_request.proxyUser.empty()) {
      return true;
    }
    const std::optional<std::string> credentials = Credentials(_request.proxyUser, _request.proxyPassword);
    if (!credentials) {
      return Fail(-2, "Proxyuser & password too long.");
    }
    _response.curlCode = Set(CURLOPT_PROXYUSERPWD, credentials->c_str());
    return true;
  }

  bool SetCredentials() {
    if (_request.httpUser.empty()) {
      return true;
    }
    const std::optional<std::string> credentials = Credentials(_request.httpUser, _request.httpPassword);
    if (!credentials) {
      return Fail(-4, "httpuser & httppassword too long.");
    }
    Set(CURLOPT_USERPWD, credentials->c_str());
    return true;
  }

  bool SetContent() {
    // A name without a value suppresses the line that libcurl would send.
    bool complete = _headerList.Append("Expect:") && _headerList.Append("Pragma:");
    if (!_request.postData.empty()) {
      if (!SetPostData()) {
        return false;
      }
      complete = complete && AppendExtraHeaders();
    }
    if (!complete) {
      return Fail(CURLE_OUT_OF_MEMORY, curl_easy_strerror(CURLE_OUT_OF_MEMORY));
    }
    Set(CURLOPT_HTTPHEADER, _headerList.First());
    return true;
  }

  // A copy, since libcurl only keeps the pointer and a callback may well change the request.
  bool SetPostData() {
    const std::size_t size = _request.postData.size();
    _post.reset(new (std::nothrow) char[size + 1]);
    if (_post == nullptr) {
      _response.errorText = "could not allocate memory for readptr.";
      return false;
    }
    std::memcpy(_post.get(), _request.postData.c_str(), size + 1);
    Set(CURLOPT_POSTFIELDS, static_cast<void*>(_post.get()));
    Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    Set(CURLOPT_SEEKFUNCTION, &RefuseSeek);
    return true;
  }

  bool AppendExtraHeaders() {
    std::vector<std::string> lines;
    SplitString(_request.extraHeaders, "\r\n", lines, false);
    return std::all_of(lines.begin(), lines.end(), [this](const std::string& line) {
      return line.find("Content-Length:") != std::string::npos || _headerList.Append(line.c_str());
    });
  }

  void SetDiagnostics() {
    Set(CURLOPT_ERRORBUFFER, static_cast<char*>(_errorBuffer));
    Set(CURLOPT_VERBOSE, 1L);
    Set(CURLOPT_DEBUGFUNCTION, &CollectDiagnostics);
    Set(CURLOPT_DEBUGDATA, static_cast<void*>(&_diagnostics));
  }

  bool Perform() {
    _response.curlCode = curl_easy_perform(_handle.easy);
    TakeReceived();
    for (const std::exception_ptr& error : {_header.error, _body.error, _abort.error}) {
      if (error != nullptr) {
        std::rethrow_exception(error);
      }
    }
    return IsSuccess(_response.curlCode) ? Succeed() : FailTransfer();
  }

  void TakeReceived() {
    _response.headers = _header.Bytes();
    if (_body.output != nullptr) {
      _response.contentLength = static_cast<std::uint32_t>(AnnouncedLength(_response.headers));
    }
    const std::string_view body = _body.Bytes();
    if (!body.empty()) {
      _response.body += body;
      const std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
      _response.contentLength = static_cast<std::uint32_t>(std::min<std::uint64_t>(body.size(), most));
    }
  }

  bool Succeed() {
    _response.httpCode = HttpStatus(_response.headers);
    _response.retryable = _response.httpCode == 500;
    return true;
  }

  bool FailTransfer() {
    _response.hostNotFound = IsNameLookup(_response.curlCode);
    _response.retryable = IsRetryable(_response.curlCode);
    _response.errorText = _diagnostics.Text();
    if (_header.textCallback != nullptr) {
      _header.textCallback(_errorBuffer, _header.textUser);
    }
    return false;
  }

  bool Fail(std::int32_t code, const char* text) {
    _response.curlCode = code;
    _response.errorText = text;
    return false;
  }

  const QsInetHttpRequest& _request;
  QsInetHttpResponse& _response;
  const SigpipeGuard _sigpipe;
  TransferSink _body;
  TransferSink _header;
  Abort _abort;
  Diagnostics _diagnostics;
  char _errorBuffer[CURL_ERROR_SIZE] = {};
  HeaderList _headerList;
  std::unique_ptr<char[]> _post;
  CURLcode _setup = CURLE_OK;
  const Handle _handle;
};

bool AskPlainCheck(void* user) { return reinterpret_cast<bool (*)()>(user)(); }

}  // namespace

bool QsInetHttp(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback,
                void* textUser, AbortCheck abortCheck, void* abortUser, unsigned int growthStep) {
  response = QsInetHttpResponse();
  return Transfer(request, response, textCallback, textUser, abortCheck, abortUser, growthStep).Run();
}

bool QsInetHttp(const QsInetHttpRequest& request, QsInetHttpResponse& response, TextCallback textCallback,
                void* textUser, bool (*abortCheck)(), unsigned int growthStep) {
  const AbortCheck adapter = abortCheck != nullptr ? &AskPlainCheck : nullptr;
  return QsInetHttp(request, response, textCallback, textUser, adapter, reinterpret_cast<void*>(abortCheck),
                    growthStep);
}

void InitQsInetHttp(int phase) {
  if (phase == 1) {
    curl_global_init(CURL_GLOBAL_ALL);
  } else if (phase == 2) {
    curl_global_cleanup();
  }
}

void QsGetCurlOpenSSLVersions(std::string& curlVersion, std::string& sslVersion) {
  curlVersion.clear();
  sslVersion.clear();
  const curl_version_info_data* info = curl_version_info(CURLVERSION_FOURTH);
  if (info == nullptr) {
    return;
  }
  curlVersion = info->version != nullptr ? info->version : "";
  sslVersion = AfterSlash(info->ssl_version != nullptr ? info->ssl_version : "");
}

void QsGetCUrlOpenSSLVersions(std::string& curlVersion, std::string& sslVersion) {
  QsGetCurlOpenSSLVersions(curlVersion, sslVersion);
}
