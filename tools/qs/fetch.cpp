#include "fetch.h"

#include <QSbase/errors.h>
#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>

#include <algorithm>
#include <new>
#include <set>
#include <stdexcept>

#include "attachment.h"
#include "interrupt.h"
#include "joiner.h"
#include "progress.h"
#include "store.h"
#include "text.h"

namespace qs {
namespace {

constexpr unsigned int kError = 0x40000000;
constexpr unsigned int kInfo = 0x10000000;

class Fetcher {
 public:
  Fetcher(const FetchOptions& options, Store& store) : _options(options), _store(store), _progress(options.quiet) {}

  std::vector<Outcome> Run() {
    for (std::size_t index = 0; index < _options.urls.size() && !Interrupted(); ++index) {
      Fetch(index);
    }
    if (!Interrupted()) {
      for (PartJoiner::Joined& joined : _joiner.Join()) {
        Finish(joined.file, joined.sources, joined.parts);
      }
    }
    return std::move(_outcomes);
  }

 private:
  void Fetch(std::size_t index) {
    const std::string& url = _options.urls[index];
    std::string name = UrlFileName(url);
    name = name.empty() ? "download" : _store.SafeName(name);
    Download download(_options.resume ? _store.PathOf(PartName(name)) : "");
    _progress.Begin("[" + std::to_string(index + 1) + "/" + std::to_string(_options.urls.size()) + "] " +
                    DisplayUrl(url));
    const std::string problem = download.Run(url, _options.transfer, _progress);
    _progress.End();
    if (!problem.empty()) {
      Outcome outcome;
      outcome.file = DisplayUrl(url);
      outcome.verdict = "failed: " + problem;
      outcome.sources = {index};
      Add(std::move(outcome));
      return;
    }
    Look(download, name, index);
  }

  // Two URLs of one run that end in the same name must not share a partial file.
  std::string PartName(const std::string& name) {
    std::string part = name + ".part";
    for (int number = 2; !_partNames.insert(part).second; ++number) {
      part = name + "." + std::to_string(number) + ".part";
    }
    return part;
  }

  void Look(Download& download, const std::string& name, std::size_t index) {
    std::vector<Attachment> attachments;
    if (!TakeApart(download, name, attachments)) {
      KeepStream(download, name, index);
      return;
    }
    for (Attachment& attachment : attachments) {
      if (attachment.part) {
        _joiner.Add(std::move(attachment), index);
      } else {
        Finish(attachment, {index}, 1);
      }
    }
  }

  // False when the content is too long to be looked at, or cannot be read back.
  bool TakeApart(Download& download, const std::string& name, std::vector<Attachment>& attachments) const {
    const std::int64_t size = download.Size();
    if (size < 0 || static_cast<std::uint64_t>(size) > _options.memoryLimit) {
      return false;
    }
    try {
      std::FILE* stream = download.Stream();
      std::string content = GetFileContent(stream);
      if (content.size() != static_cast<std::size_t>(size)) {
        return false;
      }
      attachments = ExtractAttachments(content, name);
      if (attachments.empty()) {
        Attachment whole;
        whole.name = name;
        whole.data = std::move(content);
        attachments.push_back(std::move(whole));
      }
      return true;
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    } catch (const ExMemoryAllocation&) {
    }
    return false;  // no memory for it: a 32-bit process has little
  }

  // What is too long to be looked at is stored as it came.
  void KeepStream(Download& download, const std::string& name, std::size_t index) {
    Outcome outcome;
    outcome.encoding = EncodingName(Encoding::None);
    outcome.sources = {index};
    std::uint64_t size = 0;
    const std::string problem = _store.SaveStream(name, download.Stream(), outcome.file, outcome.md5, size);
    outcome.bytes = std::to_string(size);
    outcome.good = problem.empty();
    outcome.verdict = problem.empty() ? "good (not looked into)" : "failed: " + problem;
    Add(std::move(outcome));
  }

  // Stores what passed its checks and reports what did not.
  void Finish(const Attachment& file, std::vector<std::size_t> sources, std::size_t parts) {
    Outcome outcome;
    outcome.file = _store.SafeName(file.name);
    outcome.encoding = EncodingName(file.encoding);
    outcome.sources = std::move(sources);
    if (!file.problem.empty()) {
      if (!file.data.empty()) {
        SetFigures(outcome, file.data);
      }
      outcome.verdict = "damaged: " + file.problem;
    } else {
      SetFigures(outcome, file.data);
      const std::string problem = _store.Save(file.name, file.data, outcome.file);
      outcome.good = problem.empty();
      outcome.verdict = outcome.good ? "good" : "failed: " + problem;
      if (outcome.good && parts > 1) {
        outcome.verdict += " (" + std::to_string(parts) + " parts)";
      }
    }
    Add(std::move(outcome));
  }

  void Add(Outcome outcome) {
    if (outcome.good) {
      QsLogMsg(kInfo, "Stored '" + QsNativePath(_store.PathOf(outcome.file)) + "' (" + outcome.encoding + ", " +
                          outcome.bytes + " bytes, MD5 " + outcome.md5 + ")" + From(outcome));
    } else {
      QsLogMsg(kError,
               "Not stored: '" + outcome.file + "' (" + outcome.encoding + "), " + outcome.verdict + From(outcome));
    }
    _outcomes.push_back(std::move(outcome));
  }

  std::string From(const Outcome& outcome) const {
    const std::string url = DisplayUrl(_options.urls[outcome.sources.front()]);
    return outcome.file == url ? "" : " from " + url;
  }

  const FetchOptions& _options;
  Store& _store;
  Progress _progress;
  PartJoiner _joiner;
  std::set<std::string> _partNames;
  std::vector<Outcome> _outcomes;
};

}  // namespace

std::string StartLog(const LogOptions& options) {
  FileLoggingConfig config;
  if (!options.folder.empty()) {
    if (!EnsureFolder(options.folder)) {
      return "cannot create the log folder '" + Printable(options.folder) + "'";
    }
    config.enabled = true;
    config.logDirectory = options.folder;
    config.logFileName = "qs.log";
    config.backupDirectory = ConstructPath(options.folder, "backup");
  }
  InitLogConfig(config, !options.quiet);
  QsSetLogLevel(options.level);
  return {};
}

std::vector<Outcome> FetchAll(const FetchOptions& options, std::string& problem) {
  Store store(options.outputFolder);
  problem = store.Open();
  if (!problem.empty()) {
    return {};
  }
  return Fetcher(options, store).Run();
}

int RunFetch(const FetchOptions& options) {
  std::string problem;
  const std::vector<Outcome> outcomes = FetchAll(options, problem);
  if (!problem.empty()) {
    PrintError(problem);
    return kExitFailed;
  }
  if (!options.quiet && !outcomes.empty()) {
    std::printf("\n");
  }
  PrintTable(stdout, outcomes);
  if (std::ferror(stdout) != 0) {
    PrintError("cannot write to standard output");
    return Interrupted() ? InterruptExitCode() : kExitFailed;
  }
  if (Interrupted()) {
    PrintError("interrupted");
    return InterruptExitCode();
  }
  const bool allGood =
      std::all_of(outcomes.begin(), outcomes.end(), [](const Outcome& outcome) { return outcome.good; });
  return allGood ? kExitGood : kExitFailed;
}

void PrintError(const std::string& text) { std::fprintf(stderr, "qs: %s\n", text.c_str()); }

int Fail(const std::string& problem) {
  PrintError(problem);
  return kExitFailed;
}

bool FlushOutput() {
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (!written) {
    PrintError("cannot write to standard output");
  }
  return written;
}

}  // namespace qs
