#include <QSbase/support/paths.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/support/diros.h>
#include <QSbase/support/fileos.h>
#include <QSbase/text/qschar.h>
#include <QSbase/text/qsstring.h>

using qsbase::detail::kLogError;

namespace {

constexpr std::size_t kMaxTranslatedLength = 2047;
constexpr std::size_t kMaxCompatibleLength = 259;
constexpr std::size_t kNone = std::string::npos;

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

// "\\server\share" of a translated path that begins with two backslashes.
std::string UncDrive(const std::string& path) {
  const std::size_t first = path.find('\\', 2);
  const std::size_t second = first == kNone ? kNone : path.find('\\', first + 1);
  if (second != kNone) {
    return path.substr(0, second);
  }
  return QsRemoveTerminatingFileslash(path);
}

// Where the extension of the older forms begins: the last dot that no backslash follows.
std::size_t ExtensionDot(const std::string& path) {
  const std::size_t last = path.find_last_of(".\\");
  return last != kNone && path[last] == '.' ? last : kNone;
}

bool IsReservedDeviceName(std::string_view stem) {
  constexpr std::array<std::string_view, 5> kNames = {"con", "prn", "aux", "nul", "clock$"};
  if (stem.size() > kNames.back().size()) {
    return false;
  }
  const std::string lower = QsString::ToLower(std::string(stem));
  if (lower.size() == 4) {
    const bool port = lower.compare(0, 3, "com") == 0 || lower.compare(0, 3, "lpt") == 0;
    return port && lower[3] >= '1' && lower[3] <= '9';
  }
  return std::find(kNames.begin(), kNames.end(), lower) != kNames.end();
}

void EscapeReservedDeviceName(std::string& name) {
  const std::size_t stem = std::min(name.find('.'), name.size());
  if (IsReservedDeviceName(std::string_view(name).substr(0, stem))) {
    name.insert(stem, 1, '_');
  }
}

void LogIfEmpty(const char* function, const char* what, const std::string& input, const std::string& result) {
  if (result.empty()) {
    QsLogMsg(kLogError, std::string(function) + ": could not make a compatible " + what + " (" + input + ")");
  }
}

std::string CompatibleComponent(const std::string& component, bool last) {
  if (last) {
    return QsMakeCompatibleFilename(component);
  }
  if (component.empty()) {
    return "_";
  }
  return component == "." || component == ".." ? component : QsMakeCompatibleFilename(component);
}

// No further than the result is kept.
void AppendCompatible(std::string_view rest, std::string& result) {
  for (bool last = false; !last && result.size() < kMaxCompatibleLength;) {
    const std::size_t end = rest.find('\\');
    last = end == kNone;
    const std::string_view component = rest.substr(0, end);
    // What lies behind the cut changes nothing in front of it, but a blank or dot there gets its "_" behind it.
    result += CompatibleComponent(std::string(component.substr(0, kMaxCompatibleLength + 1)), last);
    if (!last) {
      result += '\\';
      rest.remove_prefix(end + 1);
    }
  }
}

}  // namespace

std::string QsTranslateFilename(const std::string& name) {
  if (name.size() > kMaxTranslatedLength) {
    QsLogMsg(kLogError, "QsTranslateFilename: filename of " + std::to_string(name.size()) + " characters found!");
    return std::string();
  }
  std::string translated = name;
  std::replace(translated.begin(), translated.end(), '/', '\\');
  return translated;
}

std::string ExtractFileDrive(const std::string& path) {
  const std::string translated = QsTranslateFilename(path);
  if (translated.size() < 2) {
    return std::string();
  }
  if (translated[1] == ':') {
    return translated.substr(0, 2);
  }
  return translated.compare(0, 2, "\\\\") == 0 ? UncDrive(translated) : std::string();
}

std::string ExtractFilePath(const std::string& path) {
  const std::string translated = QsTranslateFilename(path);
  const std::size_t last = translated.find_last_of("\\:");
  return last == kNone ? std::string() : translated.substr(0, last + 1);
}

std::string ExtractFileName(const std::string& path) {
  const std::string translated = QsTranslateFilename(path);
  const std::size_t last = translated.find_last_of("\\:");
  return last == kNone ? translated : translated.substr(last + 1);
}

std::string ExtractFileExt(const std::string& path) {
  const std::string translated = QsTranslateFilename(path);
  const std::size_t last = translated.find_last_of(".\\:");
  if (last == kNone || last == 0 || translated[last] != '.') {
    return std::string();
  }
  return translated.substr(last);
}

std::string ExtractFileBaseName(const std::string& path) {
  std::string name = ExtractFileName(path);
  name.resize(name.size() - ExtractFileExt(name).size());
  return name;
}

std::string CAL_GetFileBaseName(const std::string& path) { return path.substr(0, ExtensionDot(path)); }

std::string CAL_GetFileExtension(const std::string& path) {
  const std::size_t dot = ExtensionDot(path);
  return dot == kNone ? std::string() : path.substr(dot + 1);
}

std::string CAL_GetFileExtensionLC(const std::string& path) { return QsString::ToLower(CAL_GetFileExtension(path)); }

std::string ConstructPath(const std::string& dir, const std::string& name) { return QsAppendFileslash(dir) + name; }

std::string ConstructPath(const std::string& dir, const std::string& file, const std::string& ext) {
  return QsAppendFileslash(dir) + ExtractFileBaseName(file) + ext;
}

std::string ConstructPath(const std::string& dir1, const std::string& dir2, const std::string& file,
                          const std::string& ext) {
  return QsAppendFileslash(dir1) + QsAppendFileslash(dir2) + ExtractFileBaseName(file) + ext;
}

std::string QsAppendFileslash(const std::string& path) {
  std::string result = path;
  QsAppendFileslashInPlace(result);
  return result;
}

void QsAppendFileslashInPlace(std::string& path) {
  if (!path.empty() && !IsSeparator(path.back())) {
    path += '\\';
  }
}

std::string QsRemoveTerminatingFileslash(const std::string& path) {
  std::string result = path;
  QsRemoveTerminatingFileslashInPlace(result);
  return result;
}

void QsRemoveTerminatingFileslashInPlace(std::string& path) {
  if (!path.empty() && IsSeparator(path.back())) {
    path.pop_back();
  }
}

bool QsIsUNCPath(const std::string& path) { return path.compare(0, 2, "\\\\") == 0 || path.compare(0, 2, "//") == 0; }

bool QsIsAbsolutePath(const std::string& path) { return !ExtractFileDrive(path).empty(); }

std::string QsGetSysTempPath() {
  const std::string directory = QsTranslateFilename(qsbase::detail::SystemTempDirectory());
  if (directory.empty()) {
    throw ExBase("Could not get temp path");
  }
  return QsAppendFileslash(directory);
}

std::string QsMakeCompatibleFilename(const std::string& name) {
  if (name.empty()) {
    return name;
  }
  std::string result;
  result.reserve(name.size() + 2);  // what may be added below
  result = name;
  std::replace_if(
      result.begin(), result.end(), [](char c) { return QsChar::IsInvalidFileChar(static_cast<unsigned char>(c)); },
      '_');
  if (result.back() == ' ' || result.back() == '.') {
    result += '_';
  }
  EscapeReservedDeviceName(result);
  LogIfEmpty("QsMakeCompatibleFilename", "filename", name, result);
  return result;
}

std::string QsMakeCompatibleFilepath(const std::string& path) {
  const std::string drive = ExtractFileDrive(path);
  if (drive.size() == path.size()) {
    return path;
  }
  std::string result = drive;
  std::size_t start = drive.size();
  if (!drive.empty()) {
    result += '\\';
    ++start;  // the separator that is expected there, whatever it is
  }
  AppendCompatible(std::string_view(path).substr(start), result);
  LogIfEmpty("QsMakeCompatibleFilepath", "filename", path, result);
  return result.substr(0, kMaxCompatibleLength);
}

std::string QsNativePath(const std::string& path) { return qsbase::detail::NativePath(path); }
