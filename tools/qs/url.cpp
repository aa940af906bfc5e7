#include "url.h"

#include <QSbase/net/url.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "fetch.h"
#include "text.h"
#include "transfer.h"

namespace qs {
namespace {

void AddLine(std::string& lines, const char* name, const std::string& value) {
  constexpr std::size_t width = 11;
  if (value.empty()) {
    return;
  }
  std::string line("  ");
  line.append(name).resize(2 + width, ' ');
  lines.append(line).append(Printable(value)).append("\n");
}

}  // namespace

std::string DescribeUrl(const std::string& url) {
  QsUrlComponents parts{};
  QsInternetCrackUrl(url.c_str(), parts);
  std::string lines = Printable(url) + "\n";
  AddLine(lines, "valid", QsIsValidURL(url) ? "yes" : "no");
  AddLine(lines, "scheme", parts.schemeName);
  AddLine(lines, "user", parts.userName);
  AddLine(lines, "password", parts.password);
  AddLine(lines, "host", parts.hostName);
  AddLine(lines, "port", parts.port == 0 ? "" : std::to_string(parts.port));
  AddLine(lines, "path", parts.urlPath);
  AddLine(lines, "extra", parts.extraInfo);
  AddLine(lines, "site", parts.siteUrl);
  AddLine(lines, "file name", UrlFileName(url));
  AddLine(lines, "normal", NormalizeUrl(url));
  return lines;
}

int RunUrl(const std::vector<std::string>& urls) {
  std::string lines;
  for (const std::string& url : urls) {
    lines.append(lines.empty() ? "" : "\n").append(DescribeUrl(url));
  }
  std::fwrite(lines.data(), 1, lines.size(), stdout);
  return FlushOutput() && std::all_of(urls.begin(), urls.end(), &QsIsValidURL) ? kExitGood : kExitFailed;
}

}  // namespace qs
