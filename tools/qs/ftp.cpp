#include "ftp.h"

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/net/url.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>

#include <cstdio>
#include <set>
#include <utility>

#include "consoleos.h"
#include "fetch.h"
#include "interrupt.h"
#include "progress.h"
#include "text.h"
#include "transfer.h"

namespace qs {
namespace {

constexpr unsigned int kInfo4 = 0x10000004;
constexpr int kGoOn = 0;
constexpr int kStop = 2;
enum Event { kBegins = 1, kUploaded = 2, kFailed = 3 };

bool IsPort(const std::string& text) {
  return !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos &&
         std::stoi(text) >= 1 && std::stoi(text) <= 65535;
}

// "name" or "name<separator>rest"; false without the separator. `text` is a copy, since it may be the other two.
bool Split(std::string text, std::size_t separator, std::string& name, std::string& rest) {
  const bool found = separator != std::string::npos;
  rest = found ? text.substr(separator + 1) : "";
  text.resize(found ? separator : text.size());
  name = std::move(text);
  return found;
}

bool HoldsNul(const QsFTPServer& server) {
  for (const std::string* text : {&server.user, &server.password, &server.directory}) {
    if (text->find('\0') != std::string::npos) {
      return true;
    }
  }
  return false;
}

QsFTPServer ServerOf(const FtpOptions& options) {
  QsFTPServer server;
  ReadFtpUrl(options.url, server);
  if (!options.user.empty()) {
    server.user = options.user;
    server.password = options.password;
  } else if (!options.password.empty()) {
    server.password = options.password;
  }
  return server;
}

void LogServer(const QsFTP& ftp) {
  if (QsGetLogLevel() < 4) {
    return;
  }
  const std::string log = ftp.GetFTPLog();
  for (LineReader lines(log); lines.Next();) {
    if (!lines.Line().empty()) {
      QsLogMsg(kInfo4, "Server: " + Printable(lines.Line()));
    }
  }
}

// Shows how the queue goes, and stops it at Ctrl-C.
class Watcher : public QsFTPQueueCallback {
 public:
  explicit Watcher(const FtpOptions& options) : _options(options), _progress(options.quiet) {}

  int OnQueueEvent(int, int event, const char* localFile, const char*, const char* errorText) override {
    const std::string name = Printable(ExtractFileName(localFile));
    if (event == kBegins) {
      if (Interrupted()) {
        return kStop;
      }
      ++_number;
      _progress.Begin("[" + std::to_string(_number) + "/" + std::to_string(_options.files.size()) + "] " + name +
                      " to " + DisplayUrl(_options.url));
      return kGoOn;
    }
    if (event == kFailed) {
      // The library has no text of its own for a file that it cannot open.
      const std::string reason = *errorText != '\0' ? errorText : QsErrorMessage(QsGetLastError());
      _progress.End();
      std::printf("%s: failed: %s\n", name.c_str(), Printable(reason).c_str());
    } else {
      _progress.End();
      std::printf("%s: uploaded\n", name.c_str());
    }
    std::fflush(stdout);
    return Interrupted() ? kStop : kGoOn;
  }

 private:
  const FtpOptions& _options;
  Progress _progress;
  std::size_t _number = 0;
};

int ExitCode(bool done) {
  done = FlushOutput() && done;
  if (Interrupted()) {
    PrintError("interrupted");
    return InterruptExitCode();
  }
  return done ? kExitGood : kExitFailed;
}

}  // namespace

std::string ReadFtpUrl(const std::string& url, QsFTPServer& server) {
  constexpr std::string_view scheme = "ftp://";
  server = QsFTPServer();
  if (!StartsWithNoCase(url, scheme)) {
    return "not an ftp URL: " + DisplayUrl(url);
  }
  const std::string rest = url.substr(scheme.size());
  std::string login;
  std::string place;
  Split(rest, rest.find('/'), login, server.directory);
  if (!Split(login, login.rfind('@'), login, place)) {
    place.swap(login);
  }
  Split(login, login.find(':'), server.user, server.password);
  const std::size_t bracket = place.rfind(']');
  const bool hasPort =
      Split(place, place.find(':', bracket == std::string::npos ? 0 : bracket), server.host, server.port);
  if (server.host.empty() || (hasPort && !IsPort(server.port))) {
    return "no host or no port number in " + DisplayUrl(url);
  }
  for (std::string* text : {&server.user, &server.password, &server.directory}) {
    *text = UrlDecode(text->c_str());
  }
  while (server.directory.size() > 1 && server.directory.back() == '/') {
    server.directory.pop_back();
  }
  return HoldsNul(server) ? "a zero byte in " + DisplayUrl(url) : "";
}

std::string FtpUsageProblem(const FtpOptions& options) {
  QsFTPServer server;
  if (const std::string problem = ReadFtpUrl(options.url, server); !problem.empty()) {
    return problem;
  }
  std::set<std::string> names;
  for (const std::string& file : options.files) {
    const std::string name = ExtractFileName(file);
    if (name.empty()) {
      return "no file name in " + Printable(file);
    }
    if (!names.insert(name).second) {
      return "two files have the name " + Printable(name);
    }
  }
  return {};
}

int RunUpload(const FtpOptions& options) {
  Watcher watcher(options);
  QsFTP ftp(ServerOf(options), &watcher);
  for (const std::string& file : options.files) {
    ftp.QueueForUpload({file, UrlEncode(ExtractFileName(file).c_str()), ""});
  }
  const bool done = ftp.StartUploadQueue();
  LogServer(ftp);
  return ExitCode(done);
}

int RunLs(const FtpOptions& options) {
  QsFTP ftp(ServerOf(options), nullptr);
  std::vector<std::string> names;
  std::string problem;
  const bool done = ftp.List("", names, problem);
  LogServer(ftp);
  const bool obeys = IsTerminal(stdout);
  for (const std::string& name : names) {
    std::printf("%s\n", obeys ? Printable(name).c_str() : name.c_str());
  }
  if (!done) {
    PrintError(DisplayUrl(options.url) + ": " + Printable(problem));
  }
  return ExitCode(done);
}

}  // namespace qs
