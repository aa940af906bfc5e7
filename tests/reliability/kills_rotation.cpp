// The rotating log file.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>

#include "kills_scene.h"

namespace kills {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kInfo = 0x10000000;
constexpr std::size_t kMaxFileSize = 102400;  // the smallest that the library takes
constexpr std::size_t kBuffer = 16384;        // of the stream
constexpr unsigned kThreads = 4;
constexpr unsigned kNextLines = 3;
constexpr const char* kLogName = "kills.log";

constexpr unsigned kLinesOfStep = 10;

/// Up to 900 bytes; in the one step of a traced process every line is long, so that few of them fill the file.
std::size_t PadOf(const Scene& scene, std::uint64_t number) {
  return scene.manner == Manner::Once ? kMaxFileSize / (kLinesOfStep - 3) : number * 37 % 900;
}

std::string Text(unsigned track, std::uint64_t number, std::size_t pad) {
  return "line " + std::to_string(track) + " " + std::to_string(number) + " " + std::string(pad, 'x') + " end";
}

/// Which line it is.
struct LineId {
  unsigned track = 0;
  std::uint64_t number = 0;
  bool operator<(const LineId& other) const {
    return track != other.track ? track < other.track : number < other.number;
  }
};

struct LogFileContent {
  std::vector<LineId> lines;
  std::string rest;  // behind the last line feed
  unsigned unknown = 0;
  std::size_t size = 0;
};

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    parts.push_back(part);
  }
  return parts;
}

/// The text of a whole line; empty when a field is missing.
std::string TextOf(const std::string& line) {
  const std::vector<std::string> fields = Split(line, '\t');
  return fields.size() == 5 ? fields[2].substr(std::min(fields[2].find_first_not_of(' '), fields[2].size())) : "";
}

/// One of the writers' lines: the text is what its number says.
bool Parse(const std::string& text, LineId& id) {
  std::istringstream stream(text);
  std::string word;
  std::string pad;
  if (!(stream >> word >> id.track >> id.number)) {
    return false;
  }
  stream.get();
  std::getline(stream, pad, ' ');
  return text == Text(id.track, id.number, pad.size());
}

LogFileContent ReadLog(const std::string& path) {
  LogFileContent content;
  const std::string text = ReadFile(path);
  content.size = text.size();
  std::size_t begin = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    const std::string line = TextOf(text.substr(begin, end - begin));
    LineId id;
    if (Parse(line, id)) {
      content.lines.push_back(id);
    } else if (!line.starts_with("Setting Log Level to ")) {
      ++content.unknown;
    }
    begin = end + 1;
  }
  content.rest = text.substr(begin);
  return content;
}

/// A folder in the memory's file system, if that is another one than the scene's.
std::string FolderElsewhere(const std::string& folder) {
  struct stat here {};
  struct stat there {};
  const bool isOther = stat(folder.c_str(), &here) == 0 && stat("/dev/shm", &there) == 0 && here.st_dev != there.st_dev;
  return isOther ? "/dev/shm/" + fs::path(folder).filename().string() : std::string();
}

class RotationOperation : public Operation {
 public:
  std::string Name() const override { return "log rotation"; }

  std::vector<std::string> Variants() const override {
    std::vector<std::string> variants = {"each line flushed", "buffered"};
    if (!FolderElsewhere(fs::temp_directory_path().string()).empty()) {
      variants.push_back("each line flushed, backups on another volume");
    }
    return variants;
  }

  unsigned Span() const override { return 150; }  // lines of one thread: about three rotations

  void Prepare(const Scene& scene) const override {
    fs::create_directory(scene.folder + "/log");
    WriteFile(Current(scene), "of the run before\n");
  }

  void Work(const Scene& scene) const override {
    Start(scene);
    if (scene.manner == Manner::Once) {
      return scene.Run([&](std::uint64_t) { LogThroughARotation(scene); });
    }
    scene.RunInThreads(kThreads, [&](unsigned track, std::uint64_t number) { Log(scene, track, number); });
  }

  void Check(const Scene& scene) const override {
    const std::size_t torn = CheckFiles(scene, false);
    Start(scene);  // the next start, in this process
    for (unsigned i = 1; i <= kNextLines; ++i) {
      QsSetLogLevel(0);
      Log(scene, kNextTrack, i);
    }
    const LogFileContent current = ReadLog(Current(scene));
    scene.Expect(current.lines.size() == kNextLines && current.rest.empty() && current.unknown == 0,
                 "the next start does not begin a file of its own");
    scene.Expect(CheckFiles(scene, true) == torn, "the next start has spoilt a line");
  }

  void CheckAtTheEnd(const Scene& scene) const override {
    if (scene.variant == kElsewhere) {
      std::error_code ignored;
      fs::remove_all(BackupFolder(scene), ignored);
    }
  }

 private:
  static constexpr unsigned kBuffered = 1;
  static constexpr unsigned kElsewhere = 2;
  static constexpr unsigned kNextTrack = kTracks - 1;

  static std::string Current(const Scene& scene) { return scene.folder + "/log/" + kLogName; }
  static std::string BackupFolder(const Scene& scene) {
    return scene.variant == kElsewhere ? FolderElsewhere(scene.folder) : scene.folder + "/backup";
  }

  static void Start(const Scene& scene) {
    FileLoggingConfig config;
    config.enabled = true;
    config.logDirectory = scene.folder + "/log";
    config.logFileName = kLogName;
    config.backupDirectory = BackupFolder(scene);
    config.maxFileSize = kMaxFileSize;
    config.maxBackupFiles = 100000;
    InitLogConfig(config, false);
    QsSetLogLevel(scene.variant == kBuffered ? 1 : 0);
  }

  static void Log(const Scene& scene, unsigned track, std::uint64_t number) {
    QsLogMsg(kInfo, Text(track, number, PadOf(scene, number)));
  }

  // The move of the file of the run before, then one of a full file; the last lines go to the next.
  static void LogThroughARotation(const Scene& scene) {
    for (unsigned number = 1; number <= kLinesOfStep; ++number) {
      scene.shared.begun[1] = number;
      Log(scene, 1, number);
      scene.shared.done[1] = number;
    }
  }

  // Every file but the current one, those that stand for an interrupted move to another volume apart.
  static std::map<std::string, LogFileContent> Backups(const Scene& scene) {
    std::map<std::string, LogFileContent> backups;
    unsigned strays = 0;
    for (const std::string& name : NamesIn(BackupFolder(scene))) {
      const std::string path = BackupFolder(scene) + "/" + name;
      const std::size_t end = name.find(kLogName) + std::string(kLogName).size();
      if (IsTemporaryOf(name, name.substr(0, end))) {
        ++strays;
      } else {
        backups[path] = ReadLog(path);
      }
    }
    scene.shared.strays = strays;
    scene.Expect(strays <= (scene.variant == kElsewhere ? 1 : 0), std::to_string(strays) + " temporary files");
    return backups;
  }

  // Checks all files and gives how many bytes of a torn line there are.
  static std::size_t CheckFiles(const Scene& scene, bool isAfterNextStart) {
    std::map<std::string, LogFileContent> files = Backups(scene);
    files[Current(scene)] = ReadLog(Current(scene));
    DropTwin(scene, files);
    std::size_t torn = 0;
    unsigned tornFiles = 0;
    unsigned unknown = 0;
    unsigned small = 0;
    for (const auto& [path, content] : files) {
      torn += content.rest.size();
      tornFiles += content.rest.empty() ? 0 : 1;
      unknown += content.unknown;
      small += content.size < kMaxFileSize ? 1 : 0;
      scene.Expect(content.rest.empty() || path == Current(scene) || isAfterNextStart, "a torn line in a backup");
    }
    scene.Expect(tornFiles <= 1, "several torn lines");
    scene.Expect(unknown == 1, std::to_string(unknown) + " lines are not whole");  // the one of the run before
    // The file of the run before, the current one, and that which was current at the kill.
    scene.Expect(small <= (isAfterNextStart ? 3U : 2U), std::to_string(small) + " files are not full");
    CheckLines(scene, files);
    return torn;
  }

  // A move to another volume that was killed before its last step leaves the file in both places.
  static void DropTwin(const Scene& scene, std::map<std::string, LogFileContent>& files) {
    std::set<std::string> seen;
    for (auto file = files.begin(); scene.variant == kElsewhere && file != files.end();) {
      const bool isTwin = file->second.size != 0 && !seen.insert(ReadFile(file->first)).second;
      file = isTwin ? files.erase(file) : std::next(file);
    }
  }

  static void CheckLines(const Scene& scene, const std::map<std::string, LogFileContent>& files) {
    std::map<LineId, unsigned> count;
    for (const auto& file : files) {
      std::map<unsigned, std::uint64_t> last;
      for (const LineId& id : file.second.lines) {
        ++count[id];
        scene.Expect(id.number > last[id.track], "lines of one thread in another order");
        last[id.track] = id.number;
      }
    }
    std::size_t missing = 0;
    for (unsigned track = 0; track < kNextTrack; ++track) {
      missing += MissingOf(scene, track, count);
    }
    // Buffered: less than the stream holds. Each line counts with its text only.
    scene.Expect(missing == 0 || (scene.variant == kBuffered && missing <= kBuffer),
                 std::to_string(missing) + " bytes of confirmed lines are missing");
    for (const auto& [id, times] : count) {
      scene.Expect(times == 1, "a line is there twice");
      scene.Expect(id.track == kNextTrack || id.number <= scene.Begun(id.track), "a line that nobody wrote");
    }
  }

  static std::size_t MissingOf(const Scene& scene, unsigned track, const std::map<LineId, unsigned>& count) {
    std::size_t missing = 0;
    if (track == 0 && scene.manner == Manner::Once) {
      return 0;  // the step as a whole; its lines are those of the track 1
    }
    for (std::uint64_t number = 1; number <= scene.Done(track); ++number) {
      if (count.find({track, number}) == count.end()) {
        missing += Text(track, number, PadOf(scene, number)).size();
      } else {
        scene.Expect(missing == 0, "a line is missing between others");
      }
    }
    return missing;
  }
};

}  // namespace

std::unique_ptr<Operation> Rotation() { return std::make_unique<RotationOperation>(); }

}  // namespace kills
