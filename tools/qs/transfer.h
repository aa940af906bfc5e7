/// \file
/// One URL into one download file: the transfer, its verdict, and resuming. One thread uses an object.
#ifndef QS_TRANSFER_H
#define QS_TRANSFER_H

#include <QSbase/support/qsfile.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "progress.h"

namespace qs {

struct TransferOptions {
  std::string user;
  std::string password;
  std::string proxy;
  std::string proxyUser;
  std::string proxyPassword;
  std::string caFile;
  bool insecure = false;
  int connectTimeout = 0;  ///< seconds; 0 is the library's 30
};

/// Where a transfer goes: a temporary file without a name, or a partial file beside the results that a later run can
/// go on with.
class Download {
 public:
  /// \param partPath empty for a temporary file.
  explicit Download(const std::string& partPath);
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;
  /// The partial file stays when the transfer was cut off and left something to go on with; nothing else does.
  ~Download();

  /// Transfers the whole of the URL. With a partial file the rest only; a server that does not serve ranges, or whose
  /// file has another length by now, is asked for all of it.
  /// \returns what went wrong, empty for success. A status other than 2xx is wrong.
  std::string Run(const std::string& url, const TransferOptions& options, Progress& progress);

  /// The open stream with all that was received; its position is anywhere.
  std::FILE* Stream();
  /// Bytes in the stream, -1 when that cannot be told.
  std::int64_t Size();

 private:
  bool Open();
  bool Restart();
  std::string RunOnce(const std::string& url, const TransferOptions& options, Progress& progress, bool& again);

  struct Closer {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
  };

  std::string _partPath;
  std::unique_ptr<std::FILE, Closer> _temporary;
  QsFile _part;
  bool _keep = false;
};

/// The URL without a password, and without characters that a terminal might obey.
std::string DisplayUrl(const std::string& url);

/// The last component of the URL's path, percent-decoded; empty when there is none. Any bytes may be in it.
std::string UrlFileName(const std::string& url);

}  // namespace qs

#endif
