#include <QSbase/support/findfile.h>

#include <cstddef>
#include <exception>
#include <utility>
#include <vector>

#include <QSbase/support/findentries.h>
#include <QSbase/support/paths.h>
#include <QSbase/text/chartables.h>
#include <QSbase/text/timeos.h>

namespace qsbase::detail {

namespace {

// What the two systems' names differ in.
//
// Where the directory part of a pattern ends: a colon stands for a drive on Windows ("C:*.txt"), but is a plain
// character of a Linux name ("12:30.log").
//
// What a name must not hold: on Windows none of these is ever part of one. Where a listing shows them, the system has
// put them in the place of characters that the code page lacks, and the name would lead elsewhere.
//
// What counts as the same letter: Windows compares names without case, also beyond ASCII. The bytes of a Linux name are
// mostly UTF-8, where the table would take parts of other characters for letters.
// What a pattern means: Windows has rules of its own for dots and question marks, which go back to names of eight and
// three characters.
#ifdef _WIN32
constexpr bool kDosWildcards = true;
constexpr const char* kDirectoryEnds = "\\:";
constexpr const char* kUnaddressable = "\\/:*?\"<>|";

char FoldCase(char c) { return static_cast<char>(kLowerMap[static_cast<unsigned char>(c)]); }
#else
constexpr bool kDosWildcards = false;
constexpr const char* kDirectoryEnds = "\\";
constexpr const char* kUnaddressable = "\\";

char FoldCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
#endif

constexpr int kLastYear = 9999;  // of a QsDateTime

bool MatchesOne(char pattern, char c) { return pattern == '?' || FoldCase(pattern) == FoldCase(c); }

bool DescribeCurrent(const DirReader& reader, const std::string& name, EntryDetail detail, DirEntry& entry) {
  if (detail == EntryDetail::All) {
    return reader.Describe(entry);
  }
  entry.name = name;
  entry.isDirectory = reader.IsDirectory();
  return true;
}

void FindMatching(DirReader& reader, const std::string& pattern, EntryDetail detail, std::vector<DirEntry>& out) {
  std::string name;
  while (reader.Next(name)) {
    DirEntry entry;
    if (IsAddressable(name) && MatchesWildcard(pattern, name) && DescribeCurrent(reader, name, detail, entry)) {
      out.push_back(std::move(entry));
    }
  }
}

// What Windows makes of a pattern before it compares names. The three signs stand in no name.
constexpr char kDosStar = '<';      // any run, but not the last dot
constexpr char kDosQuestion = '>';  // one byte, or nothing before a dot and at the end
constexpr char kDosDot = '"';       // a dot, or nothing at the end

std::string DosExpression(std::string_view pattern) {
  std::string result;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const bool last = i + 1 == pattern.size();
    if (pattern[i] == '?') {
      result += kDosQuestion;
    } else if (pattern[i] == '.' && last && i > 0 && pattern[i - 1] == '*') {
      result.back() = kDosStar;
    } else if (pattern[i] == '.' && !last && (pattern[i + 1] == '?' || pattern[i + 1] == '*')) {
      result += kDosDot;
    } else {
      result += pattern[i];
    }
  }
  return result;
}

// Adds the places in the expression that are reached without taking a byte. At the end of the name `next` is 0.
void AddEmptyMatches(const std::string& expression, char next, std::vector<char>& places) {
  for (std::size_t i = 0; i < expression.size(); ++i) {
    const char e = expression[i];
    const bool empty = e == '*' || e == kDosStar || (e == kDosQuestion && (next == '.' || next == '\0')) ||
                       (e == kDosDot && next == '\0');
    places[i + 1] = places[i + 1] != 0 || (places[i] != 0 && empty) ? 1 : 0;
  }
}

// Whether the expression's sign takes the byte, and (for a run) stays where it is.
bool Takes(char e, char c, bool lastDot) {
  switch (e) {
    case '*':
      return true;
    case kDosStar:
      return !lastDot;
    case kDosQuestion:
      return c != '.';
    case kDosDot:
      return c == '.';
    default:
      return FoldCase(e) == FoldCase(c);
  }
}

// Follows all ways through the expression at once.
bool MatchesExpression(const std::string& expression, std::string_view name) {
  std::vector<char> places(expression.size() + 1, 0);
  places[0] = 1;
  const std::size_t lastDot = name.rfind('.');
  for (std::size_t n = 0; n < name.size(); ++n) {
    AddEmptyMatches(expression, name[n], places);
    std::vector<char> reached(places.size(), 0);
    for (std::size_t i = 0; i < expression.size(); ++i) {
      if (places[i] != 0 && Takes(expression[i], name[n], n == lastDot)) {
        const bool run = expression[i] == '*' || expression[i] == kDosStar;
        reached[run ? i : i + 1] = 1;
      }
    }
    places.swap(reached);
  }
  AddEmptyMatches(expression, '\0', places);
  return places.back() != 0;
}

// On a mismatch only the last "*" is asked to take one byte more: what the earlier ones took stays right.
bool MatchesPlain(std::string_view pattern, std::string_view name) {
  std::size_t p = 0;
  std::size_t n = 0;
  std::size_t afterStar = std::string_view::npos;
  std::size_t starEnd = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      afterStar = ++p;
      starEnd = n;
    } else if (p < pattern.size() && MatchesOne(pattern[p], name[n])) {
      ++p;
      ++n;
    } else if (afterStar != std::string_view::npos) {
      p = afterStar;
      n = ++starEnd;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

}  // namespace

bool MatchesDosWildcard(std::string_view pattern, std::string_view name) {
  const std::string expression = DosExpression(pattern);
  return expression == pattern ? MatchesPlain(pattern, name) : MatchesExpression(expression, name);
}

bool MatchesWildcard(std::string_view pattern, std::string_view name) {
  if (pattern == "*.*") {
    return true;
  }
  return kDosWildcards ? MatchesDosWildcard(pattern, name) : MatchesPlain(pattern, name);
}

bool IsDotEntry(std::string_view name) { return name == "." || name == ".."; }

bool IsAddressable(std::string_view name) { return name.find_first_of(kUnaddressable) == std::string_view::npos; }

std::string DirectoryPart(const std::string& path) {
  const std::string translated = QsTranslateFilename(path);
  return translated.substr(0, translated.find_last_of(kDirectoryEnds) + 1);
}

void FindEntries(const std::string& path, LinkRule rule, EntryDetail detail, std::vector<DirEntry>& out) {
  out.clear();
  const std::string translated = QsTranslateFilename(path);
  const std::size_t dirLength = translated.find_last_of(kDirectoryEnds) + 1;
  const std::string pattern = translated.substr(dirLength);
  if (pattern.empty()) {
    return;
  }
  if (pattern.find_first_of("*?") != std::string::npos) {
    DirReader reader(translated.substr(0, dirLength), rule);
    FindMatching(reader, pattern, detail, out);
    return;
  }
  DirEntry entry;
  if (DescribePath(translated, entry)) {
    out.push_back(std::move(entry));
  }
}

// A time that no date-time can hold must not read as "not set": a file of the far future would count as the oldest.
QsDateTime EntryDate(const DirEntry& entry) {
  std::tm parts;
  const bool known = BreakDownLocal(entry.written, parts);
  if (entry.written > 0 && (!known || parts.tm_year > kLastYear - 1900)) {
    return QsDateTime(kLastYear, 12, 31, 23, 59, 59, 0);
  }
  if (!known || parts.tm_year < 1 - 1900) {
    return QsDateTime(1, 1, 1, 0, 0, 0, 0);
  }
  return QsDateTime(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                    0);
}

}  // namespace qsbase::detail

using qsbase::detail::DirEntry;
using qsbase::detail::EntryDetail;
using qsbase::detail::FindEntries;
using qsbase::detail::LinkRule;

namespace {

constexpr long kSearchHandle = 1;

void Collect(const std::string& dir, const std::string& pattern, unsigned attributes, std::list<std::string>* files,
             std::list<std::string>* dirs) {
  CQsFindFile find(dir, pattern, attributes);
  const std::string prefix = QsAppendFileslash(dir);
  for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
    const std::string name = find.Filename();
    std::list<std::string>* const list = find.IsDir() ? dirs : files;
    if (list != nullptr && !name.empty() && !find.IsThisDir_PrevDir()) {
      list->push_back(prefix + name);
    }
  }
}

}  // namespace

struct CQsFindFile::Record {
  Record(std::string path, unsigned mask) : pattern(std::move(path)), attributes(mask) {}

  // The entry that the accessors describe, if there is one.
  static const DirEntry* CurrentOf(const Record* record) {
    return record == nullptr || record->next == 0 ? nullptr : &record->entries[record->next - 1];
  }

  std::string pattern;
  unsigned attributes;  // kept for whoever looks at it: nothing is filtered by it
  std::vector<DirEntry> entries;
  std::size_t next = 0;
};

CQsFindFile::CQsFindFile(const std::string& pattern, unsigned attributes) {
  try {
    _record = std::make_unique<Record>(pattern, attributes);
  } catch (const std::exception&) {
    _record.reset();  // an empty search from now on
  }
}

CQsFindFile::CQsFindFile(const std::string& dir, const std::string& pattern, unsigned attributes) {
  try {
    _record = std::make_unique<Record>(QsAppendFileslash(dir) + pattern, attributes);
  } catch (const std::exception&) {
    _record.reset();
  }
}

CQsFindFile::~CQsFindFile() = default;

long CQsFindFile::FindFirst() {
  if (!_record) {
    return 0;
  }
  _record->next = 0;
  try {
    FindEntries(_record->pattern, LinkRule::Follow, EntryDetail::All, _record->entries);
  } catch (const std::exception&) {
    _record->entries.clear();
  }
  return CQsFindFile::FindNext() == 0 ? kSearchHandle : -1;
}

int CQsFindFile::FindNext() {
  if (!_record || _record->next == _record->entries.size()) {
    return -1;
  }
  ++_record->next;
  return 0;
}

bool CQsFindFile::IsDir() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry != nullptr && entry->isDirectory;
}

bool CQsFindFile::IsReadOnly() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry != nullptr && entry->isReadOnly;
}

std::string CQsFindFile::Filename() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry == nullptr ? std::string() : entry->name;
}

std::uint64_t CQsFindFile::FileSize() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry == nullptr ? 0 : entry->size;
}

std::int64_t CQsFindFile::FileLastWriteTime() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry == nullptr ? 0 : entry->written;
}

bool CQsFindFile::IsThisDir_PrevDir() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry != nullptr && qsbase::detail::IsDotEntry(entry->name);
}

QsDateTime CQsFindFile::FileDate() const {
  const DirEntry* const entry = Record::CurrentOf(_record.get());
  return entry == nullptr ? QsDateTime() : qsbase::detail::EntryDate(*entry);
}

int GetAllFiles(const std::string& dir, const std::string& pattern, std::list<std::string>& files,
                unsigned attributes) {
  Collect(dir, pattern, attributes, &files, nullptr);
  return 0;
}

int GetAllDirs(const std::string& dir, const std::string& pattern, std::list<std::string>& dirs, unsigned attributes) {
  Collect(dir, pattern, attributes, nullptr, &dirs);
  return 0;
}

int GetAllFilesAndDirs(const std::string& dir, const std::string& pattern, std::list<std::string>& files,
                       std::list<std::string>& dirs, unsigned attributes) {
  Collect(dir, pattern, attributes, &files, &dirs);
  return 0;
}
