#include <QSbase/net/ftp.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include <curl/curl.h>

#include <QSbase/cancelguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/easyoption.h>
#include <QSbase/net/ftptransfer.h>
#include <QSbase/net/httptransfer.h>
#include <QSbase/net/sigpipeguard.h>
#include <QSbase/net/url.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/paths.h>

namespace {

using namespace qsbase::detail;

constexpr int upload = 2;
constexpr int aboutToUpload = 1;
constexpr int uploaded = 2;
constexpr int uploadFailed = 3;
constexpr int stopQueue = 2;
constexpr int skipItem = 3;

struct CloseStream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

std::string Directory(const std::string& name) { return name.empty() ? "" : UrlEncode(name.c_str()) + "/"; }

std::size_t Drop(char*, std::size_t size, std::size_t count, void*) noexcept { return size * count; }

// What stays set for the life of a handle, whatever it transfers. False when libcurl has no memory for it.
bool Prepare(CURL* handle) {
  CURLcode first = CURLE_OK;
  SetEasyOption(handle, CURLOPT_NOSIGNAL, 1L, first);
  SetEasyOption(handle, CURLOPT_READFUNCTION, &ReadStream, first);
  SetEasyOption(handle, CURLOPT_READDATA, static_cast<void*>(nullptr), first);
  SetEasyOption(handle, CURLOPT_LOW_SPEED_LIMIT, 1L, first);
  // An empty name switches the proxies of the environment off, an empty exception list those that no_proxy names.
  SetEasyOption(handle, CURLOPT_PROXY, "", first);
  SetEasyOption(handle, CURLOPT_NOPROXY, "", first);
  // Data goes to no other host than the server's, whatever the reply to PASV says.
  SetEasyOption(handle, CURLOPT_FTP_SKIP_PASV_IP, 1L, first);
  return first == CURLE_OK;
}

// What curl_easy_perform does, save that libcurl is asked again soon while it has nothing to wait for. It has nothing
// for a moment when a server answers at once over a standing connection, and would sleep for a second then.
CURLcode Drive(CURLM* multi, CURL* handle) {
  constexpr int longestWait = 1000;
  constexpr int shortWait = 1;
  CURLMcode code = curl_multi_add_handle(multi, handle);
  int running = 1;
  while (code == CURLM_OK && running != 0) {
    code = curl_multi_perform(multi, &running);
    int active = 0;
    if (code == CURLM_OK && running != 0) {
      code = curl_multi_wait(multi, nullptr, 0, longestWait, &active);  // returns at once when there is no socket
    }
    if (code == CURLM_OK && running != 0 && active == 0) {
      code = curl_multi_poll(multi, nullptr, 0, shortWait, nullptr);
    }
  }
  CURLcode result = CURLE_OUT_OF_MEMORY;  // only a message tells of a success
  int left = 0;
  for (const CURLMsg* message; (message = curl_multi_info_read(multi, &left)) != nullptr;) {
    result = message->msg == CURLMSG_DONE && code == CURLM_OK ? message->data.result : result;
  }
  curl_multi_remove_handle(multi, handle);
  return result;
}

// One transfer. What it lends to the handle (error buffer, sinks, stream) is taken back at its end, since the handle
// lives on and may speak to the server at any later call.
class Transfer {
 public:
  Transfer(CURL* handle, CURLM* multi) : _handle(handle), _multi(multi) {
    _reply.growthStep = headerGrowth;
    _listing.body.growthStep = defaultBodyGrowth;
    Set(CURLOPT_ERRORBUFFER, static_cast<char*>(_errorBuffer));
    Set(CURLOPT_HEADERFUNCTION, &ReceiveHeader);
    Set(CURLOPT_HEADERDATA, static_cast<void*>(&_reply));
    Set(CURLOPT_WRITEFUNCTION, &TakeListing);
    Set(CURLOPT_WRITEDATA, static_cast<void*>(&_listing));
    Set(CURLOPT_LOW_SPEED_TIME, ftpStallSeconds.load());
    Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, ftpStallSeconds.load());  // for one whole reply
  }

  ~Transfer() {
    for (const CURLoption data : {CURLOPT_ERRORBUFFER, CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_READDATA}) {
      Set(data, static_cast<void*>(nullptr));
    }
    Set(CURLOPT_HEADERFUNCTION, &Drop);
    Set(CURLOPT_WRITEFUNCTION, &Drop);
  }

  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  template <typename Value>
  void Set(CURLoption option, Value value) {
    SetEasyOption(_handle, option, value, _result);
  }

  // Nothing is sent when an option was refused: it would be another transfer than was asked for.
  bool Perform(const std::string& url) {
    Set(CURLOPT_URL, url.c_str());
    if (_result == CURLE_OK) {
      _result = Drive(_multi, _handle);
    }
    if (HadLeft()) {
      _result = Drive(_multi, _handle);  // over a new connection
    }
    _done = _result == CURLE_OK;
    return _done;
  }

  // Of a failed transfer. libcurl has nothing to add to some of its codes, that of a malformed URL for one.
  std::string ErrorText() const {
    if (_done) {
      return {};
    }
    return _errorBuffer[0] != '\0' ? _errorBuffer : curl_easy_strerror(_result);
  }
  std::string_view Reply() const { return _reply.Bytes(); }
  std::string_view Body() const { return _listing.body.Bytes(); }

 private:
  // Whether the server's farewell (RFC 959: 421) to the connection of an earlier transfer was all that came.
  bool HadLeft() const {
    long connects = 1;
    return _result == CURLE_OPERATION_TIMEDOUT && Reply().starts_with("421") &&
           curl_easy_getinfo(_handle, CURLINFO_NUM_CONNECTS, &connects) == CURLE_OK && connects == 0;
  }

  const SigpipeGuard _sigpipe;
  CURL* const _handle;
  CURLM* const _multi;
  TransferSink _reply;
  Listing _listing;
  char _errorBuffer[CURL_ERROR_SIZE] = {};
  CURLcode _result = CURLE_OK;
  bool _done = false;
};

void LogUpload(const std::string& file, bool done, const std::string& errorText) {
  if (!done) {
    QsLogMsg(kLogError, "QsFTP::Upload error performing '%s': '%s'", file.c_str(), errorText.c_str());
  } else if (QsGetLogLevel() >= 4) {
    QsLogMsg(kLogInfo4, "QsFTP::Upload successfully performed '%s'", file.c_str());
  }
}

}  // namespace

QsFTPQueueCallback::~QsFTPQueueCallback() = default;

QsFTP::QsFTP(const QsFTPServer& server, QsFTPQueueCallback* callback)
    : _handle(nullptr), _url(BuildFTPString(server)), _callback(callback), _connections(nullptr) {
  InitCurl();
}

QsFTP::QsFTP(const QsFTP& other)
    : _handle(nullptr),
      _url(other._url),
      _log(other._log),
      _callback(other._callback),
      _downloads(other._downloads),
      _uploads(other._uploads),
      _connections(nullptr) {
  InitCurl();
}

QsFTP& QsFTP::operator=(const QsFTP& other) {
  if (this != &other) {
    QsFTP copy(other);
    std::swap(_handle, copy._handle);
    std::swap(_connections, copy._connections);
    _url.swap(copy._url);
    _log.swap(copy._log);
    _callback = copy._callback;
    _downloads.swap(copy._downloads);
    _uploads.swap(copy._uploads);
  }
  return *this;
}

QsFTP::~QsFTP() { ClearCurl(); }

void QsFTP::InitCurl() {
  _handle = curl_easy_init();
  _connections = curl_multi_init();
  if (_handle == nullptr || _connections == nullptr || !Prepare(_handle)) {
    curl_easy_cleanup(std::exchange(_handle, nullptr));
    curl_multi_cleanup(std::exchange(_connections, nullptr));
  }
}

bool QsFTP::IsCurlInit() const { return _handle != nullptr; }

void QsFTP::ClearCurl() noexcept {
  if (!IsCurlInit()) {
    return;
  }
  const CancelGuard noCancellation;
  const LastErrorGuard lastError;
  const SigpipeGuard sigpipe;
  TransferSink reply;  // outlives the handle
  CURLcode first = CURLE_OK;
  SetEasyOption(_handle, CURLOPT_HEADERFUNCTION, &ReceiveHeader, first);
  SetEasyOption(_handle, CURLOPT_HEADERDATA, static_cast<void*>(&reply), first);
  curl_easy_cleanup(std::exchange(_handle, nullptr));
  curl_multi_cleanup(std::exchange(_connections, nullptr));
  try {
    _log += reply.Bytes();
  } catch (const std::bad_alloc&) {
    return;  // the log ends earlier: nobody is left to tell
  }
}

bool QsFTP::Upload(const QueueItem& item, std::string& errorText) {
  errorText.clear();
  if (_url.empty() || item.localFile.empty() || !IsCurlInit()) {
    return false;
  }
  const Stream stream(OsOpenStream(item.localFile, "rb"));
  if (stream == nullptr) {
    return false;
  }
  const std::string file = ExtractFileName(item.localFile);
  bool done = false;
  {
    Transfer transfer(_handle, _connections);
    transfer.Set(CURLOPT_UPLOAD, 1L);
    transfer.Set(CURLOPT_FTP_CREATE_MISSING_DIRS, 1L);
    transfer.Set(CURLOPT_READDATA, static_cast<void*>(stream.get()));
    done = transfer.Perform(_url + Directory(item.remoteDir) + (item.remoteName.empty() ? file : item.remoteName));
    _log += transfer.Reply();
    errorText = transfer.ErrorText();
  }
  LogUpload(file, done, errorText);
  return done;
}

bool QsFTP::List(const std::string& dir, std::vector<std::string>& lines, std::string& errorText) {
  errorText.clear();
  if (_url.empty() || !IsCurlInit()) {
    return false;
  }
  Transfer transfer(_handle, _connections);
  transfer.Set(CURLOPT_DIRLISTONLY, 1L);
  const bool done = transfer.Perform(_url + Directory(dir));
  _log += transfer.Reply();
  errorText = transfer.ErrorText();
  if (!transfer.Body().empty()) {
    SplitListing(transfer.Body(), lines);
  }
  return done;
}

void QsFTP::QueueForUpload(const QueueItem& item) { _uploads.push_back(item); }

void QsFTP::QueueForDownload(const QueueItem& item) { _downloads.push_back(item); }

void QsFTP::ClearUploadQueue() {
  _uploads.clear();
  _next = 0;
}

void QsFTP::ClearDownloadQueue() { _downloads.clear(); }

std::vector<QueueItem> QsFTP::GetUploadQueue() const { return _uploads; }

std::vector<QueueItem> QsFTP::GetDownloadQueue() const { return _downloads; }

std::string QsFTP::GetFTPLog() const { return _log; }

bool QsFTP::StartUploadQueue() {
  struct EmptyAtTheEnd {
    ~EmptyAtTheEnd() { ftp.ClearUploadQueue(); }
    QsFTP& ftp;
  };
  const EmptyAtTheEnd emptyAtTheEnd{*this};
  const auto tell = [this](int event, const QueueItem& item, const char* errorText) {
    return _callback == nullptr
               ? 0
               : _callback->OnQueueEvent(upload, event, item.localFile.c_str(), item.remoteName.c_str(), errorText);
  };
  bool allDone = true;
  while (_next < _uploads.size()) {
    const QueueItem item = _uploads[_next++];  // a copy, since the callback may change the queue
    const int answer = tell(aboutToUpload, item, nullptr);
    if (answer == stopQueue) {
      break;
    }
    if (answer == skipItem) {
      continue;
    }
    std::string errorText;
    const bool done = Upload(item, errorText);
    allDone = allDone && done;
    if (tell(done ? uploaded : uploadFailed, item, errorText.c_str()) == stopQueue) {
      break;
    }
  }
  return allDone;
}

std::string BuildFTPString(const QsFTPServer& server) {
  std::string url = "ftp://";
  if (!server.user.empty()) {
    url += UrlEncode(server.user.c_str());
    if (!server.password.empty()) {
      url.append(":").append(UrlEncode(server.password.c_str()));
    }
    url += '@';
  }
  url += server.host;
  if (!server.port.empty()) {
    url.append(":").append(server.port);
  }
  return url.append("/").append(Directory(server.directory));
}

bool QsFTPUpload(const QsInetFTPUpload& job, std::string& errorText) {
  errorText.clear();
  if (job.server.host.empty() || job.item.localFile.empty()) {
    return false;
  }
  return QsFTP(job.server, nullptr).Upload(job.item, errorText);
}

bool QsFTPList(const QsFTPServer& server, const std::string& dir, std::vector<std::string>& lines,
               std::string& errorText) {
  errorText.clear();
  if (server.host.empty()) {
    return false;
  }
  return QsFTP(server, nullptr).List(dir, lines, errorText);
}
