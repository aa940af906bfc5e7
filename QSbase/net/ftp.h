/// \file
/// Uploads to an FTP server and listings of its directories, over one connection that lives on between transfers.
///
/// Thread safety: a QsFTP takes no lock and is used by one thread at a time; different objects are independent. Every
/// transfer runs on the calling thread and blocks it. InitQsInetHttp(1) (http.h) must have run. The proxies that the
/// environment names (ftp_proxy, all_proxy, ...) never have a say.
///
/// \code
/// QsFTPServer server;
/// server.host = "ftp.example.org";
/// server.user = "joe";
/// server.password = "secret";
/// server.directory = "incoming";
/// QsFTP ftp(server, nullptr);
/// QueueItem item;
/// item.localFile = "C:\\outbox\\report.txt";
/// std::string error;
/// if (!ftp.Upload(item, error)) {
///   Report(error.empty() ? "cannot open " + item.localFile : error);
/// }
/// \endcode
#ifndef QSBASE_NET_FTP_H
#define QSBASE_NET_FTP_H

#include <cstddef>
#include <string>
#include <vector>

#include <QSbase/export.h>

/// Where to log in.
struct QSBASE_API QsFTPServer {
  std::string host;       ///< name or address, put into the URL as it is
  std::string port;       ///< port number as text, put into the URL as it is; empty means 21
  std::string user;       ///< empty: libcurl logs in as "anonymous"
  std::string password;   ///< ignored without a user
  std::string directory;  ///< directory below which everything happens; empty means the one the log-in leads to
};

/// One file to transfer.
struct QSBASE_API QueueItem {
  /// Path of the file to send, "\" and "/" accepted.
  std::string localFile;
  /// Name on the server; empty means the file-name part of localFile. Either goes into the URL as it is (kept), so that
  /// a name with blanks, "%", "?", "#" or ";" must be given through UrlEncode (url.h), as must a name that comes from
  /// outside: a "/" in it leads into directories.
  std::string remoteName;
  /// Directory below the server's; may be empty. It is escaped here, its "/" too.
  std::string remoteDir;
};

/// What QsFTPUpload takes.
struct QSBASE_API QsInetFTPUpload {
  QsFTPServer server;  ///< where to
  QueueItem item;      ///< what
};

/// Told of every step of QsFTP::StartUploadQueue, on the thread that runs it.
class QSBASE_API QsFTPQueueCallback {
 public:
  virtual ~QsFTPQueueCallback();

  /// | event | meaning                  | errorText                                                   |
  /// |-------|--------------------------|-------------------------------------------------------------|
  /// | 1     | about to upload the item | null                                                        |
  /// | 2     | uploaded                 | empty                                                       |
  /// | 3     | failed                   | libcurl's message; empty when localFile could not be opened |
  ///
  /// The callback may append to the queue, which the same run then goes on with, and may clear it, also before it
  /// appends. It must not destroy or assign to the QsFTP that calls it.
  ///
  /// \param direction   always 2 (upload)
  /// \param localFile   the item's, valid during the call as are the other texts
  /// \param remoteName  the item's as it was queued: empty when it is empty there
  /// \returns 2 stops the run; 3 for event 1 skips the item; anything else goes on.
  virtual int OnQueueEvent(int direction, int event, const char* localFile, const char* remoteName,
                           const char* errorText) = 0;
};

/// One log-in at a server, for any number of transfers; with a log of what the server said and two queues.
///
/// The connection is made by the first transfer, kept for the next ones, and made anew when it is gone. A server that
/// does not answer a command is given up after 120 seconds, and so is a transfer in which nothing moves for as long;
/// one that does not answer at all when a connection is made, after 300 seconds or when the system gives up before.
class QSBASE_API QsFTP {
 public:
  /// Takes copies; nothing is sent yet. When libcurl has no memory for a handle, every transfer of the object is
  /// refused (false, empty text).
  /// \param callback  is told of the steps of StartUploadQueue; may be null; not owned, and used until the end.
  QsFTP(const QsFTPServer& server, QsFTPQueueCallback* callback);

  /// A copy has the same server, callback, queues and log, but a handle and so a connection of its own, on which no
  /// transfer has left an option.
  QsFTP(const QsFTP& other);

  /// As the copy constructor; what was logged in so far is logged out. Nothing has changed when memory runs out.
  QsFTP& operator=(const QsFTP& other);

  /// Logs out, waiting for the server's answer as any command does.
  ~QsFTP();

  /// Sends one file, over an existing one on the server. Missing directories are made there.
  ///
  /// \param errorText  is emptied first. After a failure libcurl's message; empty when localFile is empty or cannot be
  ///     opened (QsGetLastError() says why then), which is not logged either.
  /// \returns whether the server has acknowledged the whole file. A file that cannot be read to its end is a failure;
  ///     what had been sent by then may be on the server, as after any other failure.
  ///
  /// Logs the error "QsFTP::Upload error performing '%s': '%s'" (file name and text) or, at log level 4 and above, info
  /// of level 4 "QsFTP::Upload successfully performed '%s'".
  bool Upload(const QueueItem& item, std::string& errorText);

  /// Lists the names in a directory, in the order the server sends them. Which ones it leaves out (names that begin
  /// with a dot, often) and whether it calls an empty directory an error is the server's business.
  ///
  /// An object that has uploaded lists no more (kept: what a transfer tells libcurl to do stays told): List is refused
  /// with libcurl's "Uploading to a URL without a file name". Use another QsFTP, or QsFTPList.
  ///
  /// A listing of more than 256 MiB or 10,000,000 names fails.
  ///
  /// \param dir        directory below the server's; it is escaped, its "/" too. Empty means the server's directory.
  /// \param lines      replaced by one name per entry, also by those that came before a failure (the last of them may
  ///     be cut); left as it is when the server sent none.
  /// \param errorText  is emptied first; after a failure libcurl's message.
  /// \returns whether the listing is complete. Nothing is logged.
  bool List(const std::string& dir, std::vector<std::string>& lines, std::string& errorText);

  /// Appends a copy to the queue that StartUploadQueue runs.
  void QueueForUpload(const QueueItem& item);

  /// Appends a copy to the other queue. Nothing runs it: it is a place for the host's own list.
  void QueueForDownload(const QueueItem& item);

  void ClearUploadQueue();    ///< Empties the queue for uploads.
  void ClearDownloadQueue();  ///< Empties the queue for downloads.

  std::vector<QueueItem> GetUploadQueue() const;    ///< A copy of the queue for uploads.
  std::vector<QueueItem> GetDownloadQueue() const;  ///< A copy of the queue for downloads.

  /// Uploads the items of the queue in order, once each, telling the callback of every step. At the end the queue is
  /// empty, also when the callback stopped the run or threw; its exception then leaves this function.
  /// \returns false when an upload failed; skipped items and those not reached do not count.
  bool StartUploadQueue();

  /// All that the server said so far, as received. Anything the server likes may be in it.
  std::string GetFTPLog() const;

 private:
  void InitCurl();
  bool IsCurlInit() const;
  void ClearCurl() noexcept;

  void* _handle;  // libcurl's easy handle
  std::string _url;
  std::string _log;
  QsFTPQueueCallback* _callback;
  std::vector<QueueItem> _downloads;
  std::vector<QueueItem> _uploads;
  void* _connections;     // libcurl's multi handle, which holds the connection between transfers
  std::size_t _next = 0;  // item of the queue for uploads that a run goes on with
};

/// The server's URL: "ftp://", user and password escaped ("user:password@", without a password "user@", without a user
/// nothing), host and ":" port as given, and the directory escaped between slashes. UrlEncode escapes "/" too, so that
/// a directory of several levels is one name in the URL; libcurl takes it apart again.
///
/// User "a b" without password, host "h", directory "x/y" give "ftp://a%20b@h/x%2Fy/"; a host alone "ftp://h/".
QSBASE_API std::string BuildFTPString(const QsFTPServer& server);

/// QsFTP::Upload with a connection of its own. False at once, without a text, when host or localFile is empty;
/// errorText is emptied then too.
QSBASE_API bool QsFTPUpload(const QsInetFTPUpload& job, std::string& errorText);

/// QsFTP::List with a connection of its own. False at once, without a text, when the host is empty; errorText is
/// emptied then too.
QSBASE_API bool QsFTPList(const QsFTPServer& server, const std::string& dir, std::vector<std::string>& lines,
                          std::string& errorText);

#endif
