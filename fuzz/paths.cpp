#include <QSbase/support/paths.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cctype>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

constexpr std::size_t kMaxTranslated = 2047;
constexpr std::size_t kMaxCompatible = 259;
constexpr std::string_view kInvalid = "\"*/:<>?\\|";

std::string WithBackslashes(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

// ---- Taking apart ----

void CheckPieces(const std::string& path) {
  const std::string translated = path.size() > kMaxTranslated ? "" : WithBackslashes(path);
  fuzz::DemandEqual(translated, QsTranslateFilename(path), "QsTranslateFilename");
  const std::string name = ExtractFileName(path);
  fuzz::DemandEqual(translated, ExtractFilePath(path) + name, "directory and name");
  fuzz::DemandEqual(name, ExtractFileBaseName(path) + ExtractFileExt(name), "base name and extension");
  fuzz::Demand(name.find_first_of("\\/:") == std::string::npos ? "" : "a name with a directory: " + name);
  const std::string drive = ExtractFileDrive(path);
  fuzz::DemandEqual(translated.substr(0, drive.size()), drive, "the drive");
  fuzz::Demand(QsIsAbsolutePath(path) == !drive.empty() ? "" : "absolute, or not");
  const std::string extension = ExtractFileExt(path);
  fuzz::Demand(extension.empty() || (extension[0] == '.' && extension.find_first_of(".\\:", 1) == std::string::npos)
                   ? ""
                   : "no extension: " + extension);
}

void CheckOlderForms(const std::string& path) {
  const std::string base = CAL_GetFileBaseName(path);
  const std::string extension = CAL_GetFileExtension(path);
  const bool hasDot = base.size() != path.size();
  fuzz::DemandEqual(path, base + (hasDot ? "." : "") + extension, "the older forms");
  fuzz::Demand(extension.find_first_of(".\\") == std::string::npos ? "" : "no older extension: " + extension);
  fuzz::DemandEqual(QsString::ToLower(extension), CAL_GetFileExtensionLC(path), "its lower case");
}

// ---- Putting together ----

void CheckSlash(const std::string& path) {
  const std::string with = QsAppendFileslash(path);
  fuzz::DemandEqual(with, QsAppendFileslash(with), "QsAppendFileslash again");
  fuzz::Demand(path.empty() || with.back() == '\\' || with.back() == '/' ? "" : "no separator");
  const bool hadOne = with.size() == path.size();
  fuzz::DemandEqual(hadOne ? QsRemoveTerminatingFileslash(path) : path, QsRemoveTerminatingFileslash(with), "the path");
  std::string inPlace(path);
  QsAppendFileslashInPlace(inPlace);
  fuzz::DemandEqual(with, inPlace, "QsAppendFileslash in place");
  QsRemoveTerminatingFileslashInPlace(inPlace);
  fuzz::DemandEqual(QsRemoveTerminatingFileslash(with), inPlace, "QsRemoveTerminatingFileslash in place");
}

void CheckJoined(const std::string& dir, const std::string& file) {
  const std::string joined = ConstructPath(dir, file);
  fuzz::DemandEqual(QsAppendFileslash(dir) + file, joined, "ConstructPath");
  if (joined.size() > kMaxTranslated) {
    return;
  }
  fuzz::DemandEqual(ExtractFileName(file), ExtractFileName(joined), "the name of a joined path");
  const std::string other = ConstructPath(dir, file, ".bak");
  fuzz::DemandEqual(QsAppendFileslash(dir) + ExtractFileBaseName(file) + ".bak", other, "another extension");
  fuzz::DemandEqual(ConstructPath(QsAppendFileslash(dir) + "x", file, ".bak"), ConstructPath(dir, "x", file, ".bak"),
                    "two directories");
}

// ---- Names that every system takes ----

bool IsReserved(const std::string& name) {
  const std::string stem = QsString::ToLower(name.substr(0, name.find('.')));
  for (const char* const device : {"con", "prn", "aux", "nul", "clock$"}) {
    if (stem == device) {
      return true;
    }
  }
  return stem.size() == 4 && (stem.rfind("com", 0) == 0 || stem.rfind("lpt", 0) == 0) && stem[3] >= '1' &&
         stem[3] <= '9';
}

bool HasInvalid(const std::string& name) {
  return std::any_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) < 32 || kInvalid.find(c) != std::string_view::npos;
  });
}

bool IsCompatible(const std::string& name) {
  return name.empty() || (!HasInvalid(name) && name.back() != ' ' && name.back() != '.' && !IsReserved(name));
}

void CheckName(const std::string& name) {
  const std::string made = QsMakeCompatibleFilename(name);
  fuzz::Demand(IsCompatible(made) && made.empty() == name.empty() ? "" : "no name: " + made);
  fuzz::DemandEqual(IsCompatible(name) ? name : made, made, "a name that needed no change");
  fuzz::DemandEqual(made, QsMakeCompatibleFilename(made), "a name made twice");
  fuzz::Demand(made.size() <= name.size() + 2 ? "" : "a longer name");
}

std::string CompatibleComponent(const std::string& component, bool isLast) {
  const bool stays = !isLast && (component == "." || component == "..");
  return !isLast && component.empty() ? "_" : stays ? component : QsMakeCompatibleFilename(component);
}

// Every component, and the cut at last.
std::string CompatibleSlowly(const std::string& path, const std::string& drive) {
  std::string result = drive + (drive.empty() ? "" : "\\");
  std::string rest = path.substr(result.size());
  for (std::size_t end; (end = rest.find('\\')) != std::string::npos; rest.erase(0, end + 1)) {
    result += CompatibleComponent(rest.substr(0, end), false) + '\\';
  }
  return (result + CompatibleComponent(rest, true)).substr(0, kMaxCompatible);
}

// Nothing but the drive, and ".." before the last component, leads away.
void CheckPath(const std::string& path) {
  const std::string drive = ExtractFileDrive(path);
  const std::string made = QsMakeCompatibleFilepath(path);
  if (drive.size() == path.size()) {
    fuzz::DemandEqual(path, made, "a path that is all drive");
    return;
  }
  fuzz::DemandEqual(CompatibleSlowly(path, drive), made, "QsMakeCompatibleFilepath");
  fuzz::Demand(made.size() <= kMaxCompatible ? "" : "a long path");
  fuzz::DemandEqual(drive.substr(0, kMaxCompatible), made.substr(0, drive.size()), "the drive of a path");
  if (made.size() == kMaxCompatible) {
    return;  // it was cut where it may hurt
  }
  std::string rest = made.substr(std::min(made.size(), drive.empty() ? 0 : drive.size() + 1));
  for (std::size_t end; (end = rest.find('\\')) != std::string::npos; rest.erase(0, end + 1)) {
    const std::string component = rest.substr(0, end);
    fuzz::Demand(
        component == "." || component == ".." || (!component.empty() && IsCompatible(component)) ? "" : "a component");
  }
  fuzz::Demand(IsCompatible(rest) ? "" : "the last component: " + rest);
  fuzz::DemandEqual(made, QsMakeCompatibleFilepath(made), "a path made twice");
}

void CheckNative(const std::string& path) {
  const std::string native = QsNativePath(path);
  fuzz::DemandEqual(WithBackslashes(path), WithBackslashes(native), "the native path");
#ifndef _WIN32
  fuzz::Demand(native.find('\\') == std::string::npos ? "" : "a native path with a backslash");
#endif
}

void CheckBounds(std::string_view text) {
  fuzz::DemandBounds("QsMakeCompatibleFilename", text,
                     [](const std::string& in) { return QsMakeCompatibleFilename(in).size(); });
  fuzz::DemandBounds("QsMakeCompatibleFilepath", text,
                     [](const std::string& in) { return QsMakeCompatibleFilepath(in).size(); });
  fuzz::DemandBounds("CAL_GetFileExtensionLC", text,
                     [](const std::string& in) { return CAL_GetFileExtensionLC(in).size(); });
  fuzz::DemandBounds("QsNativePath", text, [](const std::string& in) { return QsNativePath(in).size(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t place = input.Parameter();
  const std::string text(input.Rest());
  CheckPieces(text);
  CheckOlderForms(text);
  CheckSlash(text);
  CheckJoined(text.substr(0, place), text.substr(std::min(place, text.size())));
  CheckName(text);
  CheckPath(text);
  CheckNative(text);
  CheckBounds(text);
  return 0;
}
