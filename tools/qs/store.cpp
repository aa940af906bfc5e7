#include "store.h"

#include <QSbase/codec/hash.h>
#include <QSbase/errors.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <list>
#include <set>
#include <vector>

#include "pathos.h"
#include "text.h"

namespace qs {
namespace {

constexpr std::size_t kMaxExtension = 32;
// For a counter and the suffix of a temporary file behind a name.
constexpr std::size_t kRoomForSuffix = 25;
constexpr std::size_t kShortestName = 10;
constexpr int kMaxAttempts = 1000;
constexpr std::size_t kBlock = 1 << 16;

bool IsContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Cuts in front of a UTF-8 character, not inside.
std::string Cut(const std::string& text, std::size_t length) {
  while (length > 0 && length < text.size() && IsContinuationByte(text[length])) {
    --length;
  }
  return text.substr(0, length);
}

std::string Shorten(const std::string& name, std::size_t longest) {
  if (name.size() <= longest) {
    return name;
  }
  std::string extension = ExtractFileExt(name);
  if (extension.size() > std::min(kMaxExtension, longest / 2)) {
    extension.clear();
  }
  return Cut(name, longest - extension.size()) + extension;
}

// A folder whose path leaves room for no name at all is the system's to refuse.
std::size_t LongestSafeName(const std::string& folder) {
  const std::size_t room = LongestNameIn(folder);
  return room < kShortestName + kRoomForSuffix ? kShortestName : std::min(kMaxFileName, room - kRoomForSuffix);
}

std::string LastError() { return QsErrorMessage(QsGetLastError()); }

// Whether the name ends like those of the library's temporary files: a dot, digits.
bool EndsInDigits(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot != std::string::npos && dot + 1 < name.size() &&
         name.find_first_not_of("0123456789", dot + 1) == std::string::npos;
}

std::set<std::string> NamesEndingInDigits(const std::string& folder, const std::string& pattern) {
  std::list<std::string> paths;
  GetAllFiles(folder, pattern, paths, 0);
  std::set<std::string> names;
  for (const std::string& path : paths) {
    if (const std::string name = ExtractFileName(path); EndsInDigits(name)) {
      names.insert(name);
    }
  }
  return names;
}

std::string CopyStream(std::FILE* from, const QsFile& to, std::string& md5, std::uint64_t& size) {
  std::vector<unsigned char> block(kBlock);
  QsMD5 digest;
  digest.Init();
  size = 0;
  if (std::fseek(from, 0, SEEK_SET) != 0) {
    return "cannot copy the download (" + LastError() + ")";
  }
  for (std::size_t count; (count = std::fread(block.data(), 1, block.size(), from)) > 0;) {
    const auto length = static_cast<unsigned int>(count);
    if (to.Write(block.data(), 1, length) != length) {
      return "cannot write (" + LastError() + ")";
    }
    digest.Update(block.data(), length);
    size += count;
  }
  if (std::ferror(from) != 0 || to.Flush() != 0) {
    return "cannot copy the download (" + LastError() + ")";
  }
  unsigned char bytes[16];
  digest.Final(bytes);
  md5 = ToLowerAscii(Bytes2Hex(bytes, sizeof bytes, false));
  return {};
}

}  // namespace

std::string SafeFileName(const std::string& name, std::size_t longest) {
  const std::size_t separator = name.find_last_of("/\\");
  std::string last(Trim(separator == std::string::npos ? name : name.substr(separator + 1)));
  last.resize(std::min(last.find('\0'), last.size()));
  if (last.empty() || last == "." || last == "..") {
    return "unnamed";
  }
  return QsMakeCompatibleFilename(Printable(Shorten(last, longest)));
}

bool EnsureFolder(const std::string& folder) {
  if (QsGetFSObjectType(folder) == FSO_DIRECTORY) {
    return true;
  }
  return ForceCreateDirectories(folder) && QsGetFSObjectType(folder) == FSO_DIRECTORY;
}

Store::Store(const std::string& folder)
    : _folder(folder), _longestName(LongestSafeName(folder)), _names(1, " (", ")") {}

std::string Store::Open() {
  if (!EnsureFolder(_folder)) {
    return "cannot create the folder '" + Printable(_folder) + "'";
  }
  return {};
}

std::string Store::SafeName(const std::string& wanted) const { return SafeFileName(wanted, _longestName); }

std::string Store::PathOf(const std::string& fileName) const { return ConstructPath(_folder, fileName); }

// The manager puts a dot behind the counter of a name without an extension; that dot is taken off again.
std::string Store::FreeName(const std::string& wanted) {
  const std::string path = PathOf(wanted);
  const bool hasExtension = !ExtractFileExt(wanted).empty();
  std::string free;
  do {
    _names.GetUniquePath(path, free, true);
    if (!hasExtension && EndsWith(free, ").")) {
      free.pop_back();
    }
  } while (free != path && QsGetFSObjectType(free) != FSO_NOTHING);
  return ExtractFileName(free);
}

// A save that fails leaves its temporary file behind: half a file on a full disk. What was there before stays.
void Store::RemoveTemporariesOf(const std::string& fileName) const {
  for (const std::string& name : NamesEndingInDigits(_folder, fileName + ".*")) {
    if (name.rfind('.') == fileName.size() && _foreign->count(name) == 0) {
      QsDeleteFile(PathOf(name), false);
    }
  }
}

std::string Store::Save(const std::string& wanted, const std::string& data, std::string& fileName) {
  const std::string safe = SafeName(wanted);
  if (!_foreign) {
    _foreign = NamesEndingInDigits(_folder, "*");
  }
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    fileName = FreeName(safe);
    const std::string path = PathOf(fileName);
    if (EndsInDigits(fileName)) {
      _foreign->insert(fileName);
    }
    if (QsAtomicSaveBinaryFile(path, data, false)) {
      return {};
    }
    const std::string error = LastError();
    RemoveTemporariesOf(fileName);
    // Somebody took the name in between: the next one. Anything else will not get better.
    if (QsGetFSObjectType(path) == FSO_NOTHING) {
      // NOLINTNEXTLINE(performance-inefficient-string-concatenation): the loop ends here
      return "cannot store '" + fileName + "' (" + error + ")";
    }
  }
  return "no free name for '" + safe + "'";
}

std::string Store::SaveStream(const std::string& wanted, std::FILE* stream, std::string& fileName, std::string& md5,
                              std::uint64_t& size) {
  fileName = FreeName(SafeName(wanted));
  const std::string temporary = PathOf(FreeName(fileName + ".tmp"));
  // fopen's "x" is not known everywhere; this makes a file that was not there either.
  if (!QsAtomicSaveBinaryFile(temporary, "", false)) {
    return "cannot store '" + fileName + "' (" + LastError() + ")";
  }
  const QsFileDeleter deleter(temporary);
  QsFile file;
  if (!file.Open(temporary.c_str(), "wb")) {
    return "cannot store '" + fileName + "' (" + LastError() + ")";
  }
  const std::string problem = CopyStream(stream, file, md5, size);
  if (file.Close() != 0 && problem.empty()) {
    return "cannot store '" + fileName + "' (" + LastError() + ")";
  }
  if (problem.empty() && !QsMoveFile(temporary, PathOf(fileName), false, false)) {
    return "cannot store '" + fileName + "' (" + LastError() + ")";
  }
  return problem;
}

}  // namespace qs
