#include "demo.h"

#include <QSbase/process.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/uniquename.h>

#include <algorithm>
#include <cstdio>
#include <list>
#include <map>
#include <vector>

#include "fetch.h"
#include "interrupt.h"
#include "origin.h"
#include "text.h"

namespace qs {
namespace {

constexpr int kMaxAttempts = 100;

std::string ArticleFolder(const std::string& wanted) {
  if (!wanted.empty()) {
    return wanted;
  }
  const std::string installed = ConstructPath(ExtractFilePath(QsGetApplicationFilename()), QS_INSTALLED_ARTICLES);
  return QsGetFSObjectType(installed) == FSO_DIRECTORY ? installed : QS_SOURCE_ARTICLES;
}

// Regular files by name, without the notes about them.
std::map<std::string, std::string> ArticlesIn(const std::string& folder) {
  std::list<std::string> paths;
  GetAllFiles(folder, "*", paths, 0);
  std::map<std::string, std::string> articles;
  for (const std::string& path : paths) {
    const std::string name = ExtractFileName(path);
    if (CAL_GetFileExtensionLC(name) != "md" && QsGetFSObjectType(path) == FSO_FILE) {
      articles[name] = path;
    }
  }
  return articles;
}

// A new folder, so that nobody else's file is ever in it.
std::string NewTemporaryFolder() {
  CUniqueFilenameManager names(0, "-", "");
  const std::string wanted = ConstructPath(QsGetSysTempPath(), "qs-demo-" + std::to_string(QsGetCurrentProcessId()));
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    std::string folder;
    names.GetUniquePath(wanted, folder, true);
    if (QsCreateDirectory(folder.c_str())) {
      return folder;
    }
  }
  return {};
}

bool IsDamagedArticle(const std::string& name) { return StartsWith(name, "damaged-"); }

// Tells of every article that did not come out as its name says. A damaged article may hold good attachments too.
std::size_t CountSurprises(const std::vector<std::string>& names, const std::vector<Outcome>& outcomes) {
  std::vector<bool> seen(names.size(), false);
  std::vector<bool> bad(names.size(), false);
  for (const Outcome& outcome : outcomes) {
    const bool damagedSource = std::any_of(outcome.sources.begin(), outcome.sources.end(),
                                           [&](std::size_t source) { return IsDamagedArticle(names[source]); });
    for (const std::size_t source : outcome.sources) {
      seen[source] = true;
      bad[source] = bad[source] || (!outcome.good && (!damagedSource || IsDamagedArticle(names[source])));
    }
  }
  std::size_t surprises = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (!seen[i] || bad[i] != IsDamagedArticle(names[i])) {
      PrintError("'" + names[i] + "' " + (bad[i] || !seen[i] ? "did not come out whole" : "should have been reported"));
      ++surprises;
    }
  }
  return surprises;
}

int Report(const std::vector<std::string>& names, const std::vector<Outcome>& outcomes, const std::string& folder) {
  std::printf("\n");
  PrintTable(stdout, outcomes);
  if (Interrupted()) {
    PrintError("interrupted");
    return InterruptExitCode();
  }
  const std::size_t surprises = CountSurprises(names, outcomes);
  const auto damaged = std::count_if(names.begin(), names.end(), IsDamagedArticle);
  std::printf("\n%zu articles (%td of them damaged on purpose), %zu not as expected.\n", names.size(), damaged,
              surprises);
  std::printf("Everything is in %s\n", QsNativePath(folder).c_str());
  return surprises == 0 ? kExitGood : kExitFailed;
}

}  // namespace

int RunDemo(const DemoOptions& options) {
  const std::string source = ArticleFolder(options.articles);
  const std::map<std::string, std::string> articles = ArticlesIn(source);
  if (articles.empty()) {
    return Fail("no articles in '" + QsNativePath(source) + "'");
  }
  const std::string folder = options.outputFolder.empty() ? NewTemporaryFolder() : options.outputFolder;
  if (folder.empty()) {
    return Fail("cannot create a folder in '" + QsNativePath(QsGetSysTempPath()) + "'");
  }
  const std::string logFolder = ConstructPath(folder, "log");
  if (const std::string problem = StartLog({logFolder, options.level, options.quiet}); !problem.empty()) {
    return Fail(problem);
  }

  Origin origin(articles);
  if (const std::string problem = origin.Start(); !problem.empty()) {
    return Fail(problem);
  }
  FetchOptions fetch;
  fetch.outputFolder = ConstructPath(folder, "files");
  fetch.quiet = options.quiet;
  std::vector<std::string> names;
  for (const auto& [name, path] : articles) {
    names.push_back(name);
    fetch.urls.push_back(origin.UrlOf(name));
  }
  std::printf("Articles from %s\nFiles and log go to %s\n\n", QsNativePath(source).c_str(),
              QsNativePath(folder).c_str());
  std::fflush(stdout);
  std::string problem;
  const std::vector<Outcome> outcomes = FetchAll(fetch, problem);
  return problem.empty() ? Report(names, outcomes, folder) : Fail(problem);
}

}  // namespace qs
