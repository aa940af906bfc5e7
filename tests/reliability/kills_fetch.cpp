// qs fetch of many files from a server on 127.0.0.1.
#include <algorithm>
#include <filesystem>
#include <sstream>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <common/tempdir.h>
#include <integration/common/server.h>

#include "kills_scene.h"

namespace kills {

namespace {

using qsbase::testing::Nginx;
using qsbase::testing::TempDir;

constexpr unsigned kFiles = 24;
constexpr const char* kLong = "long.bin";  // not looked into, and so stored in another way
constexpr std::size_t kLongSize = 3000000;
constexpr const char* kMemoryMiB = "1";

class FetchOperation : public Operation {
 public:
  explicit FetchOperation(std::string program) : _program(std::move(program)), _server(MakeFiles(_dir), "") {
    for (const std::string& name : Names()) {
      _urls.push_back(_server.Url("/" + name));
    }
    _length = MeasureRun();
  }

  std::string Name() const override { return "qs fetch of " + std::to_string(kFiles + 1) + " files"; }
  std::vector<std::string> Variants() const override { return {"", "--resume"}; }
  unsigned Span() const override { return 1; }
  bool IsTraced() const override { return false; }
  std::chrono::microseconds Length() const override { return _length; }

  void Work(const Scene& scene) const override {
    scene.shared.begun[0] = 1;
    scene.shared.ready = true;
    Become(scene.folder, scene.variant == kResume);
  }

  // What was cut off in its transfer or not yet stored is taken over by the second run with --resume; other left-overs
  // stay.
  void Check(const Scene& scene) const override {
    const unsigned strays = CheckFolder(scene);
    const bool wasCutOff = HasPart(scene.folder);
    scene.shared.strays = strays;
    scene.Expect(strays <= (wasCutOff ? 2 : 1), std::to_string(strays) + " files are left over");
    CheckLogged(scene);
    scene.Expect(RunToTheEnd(scene.folder, scene.variant == kResume), "the second run failed");
    CheckWhole(scene);
    scene.Expect(CheckFolder(scene) == (wasCutOff ? strays - 1 : strays), "the second run has left something");
    scene.Expect(!HasPart(scene.folder), "the second run has left a part");
  }

 private:
  static constexpr unsigned kResume = 1;

  static std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (unsigned i = 0; i < kFiles; ++i) {
      names.push_back("file" + std::to_string(i) + ".bin");
    }
    names.insert(names.begin() + kFiles / 2, kLong);
    return names;
  }

  // NUL bytes first: neither an article nor a coded text.
  static std::string Source(const std::string& name) {
    return std::string(3, '\0') + (name == kLong ? std::string(kLongSize, '\x80')
                                                 : Content(static_cast<std::uint64_t>(std::stoul(name.substr(4)))));
  }

  static const TempDir& MakeFiles(const TempDir& dir) {
    for (const std::string& name : Names()) {
      dir.Write("www/" + name, Source(name));
    }
    return dir;
  }

  [[noreturn]] void Become(const std::string& folder, bool resume) const {
    std::vector<std::string> words = {_program, "fetch",         "-q",    "--memory",     kMemoryMiB,
                                      "-o",     folder + "/out", "--log", folder + "/log"};
    if (resume) {
      words.emplace_back("--resume");
    }
    words.insert(words.end(), _urls.begin(), _urls.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    execv(_program.c_str(), arguments.data());
    _exit(97);
  }

  bool RunToTheEnd(const std::string& folder, bool resume) const {
    const pid_t id = fork();
    if (id == 0) {
      Become(folder, resume);
    }
    int status = -1;
    return waitpid(id, &status, 0) == id && status == 0;
  }

  std::chrono::microseconds MeasureRun() const {
    const auto start = std::chrono::steady_clock::now();
    if (!RunToTheEnd(_dir / "measured", false)) {
      throw std::runtime_error(_program + " fetch fails");
    }
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
  }

  static bool HasPart(const std::string& folder) {
    const std::vector<std::string> names = NamesIn(folder + "/out");
    return std::any_of(names.begin(), names.end(), [](const std::string& name) { return name.ends_with(".part"); });
  }

  // The source that a file's name stands for: "file1 (1).bin" is file1.bin.
  static std::string SourceName(const std::string& name) {
    const std::size_t counter = name.find(" (");
    return counter == std::string::npos ? name : name.substr(0, counter) + name.substr(name.find(')') + 1);
  }

  // Every file with a name of its own is whole. Gives how many others there are, which hold the beginning of one.
  static unsigned CheckFolder(const Scene& scene) {
    const std::vector<std::string> known = Names();
    unsigned others = 0;
    for (const std::string& name : NamesIn(scene.folder + "/out")) {
      const std::string content = ReadFile(scene.folder + "/out/" + name);
      const std::string source = SourceName(name);
      if (std::find(known.begin(), known.end(), source) != known.end()) {
        scene.Expect(content == Source(source), name + " is not whole");
        continue;
      }
      ++others;
      const auto owner = std::find_if(known.begin(), known.end(), [&](const std::string& other) {
        return IsTemporaryOf(source, other) || IsTemporaryOf(source, other + ".tmp") || source == other + ".tmp" ||
               (scene.variant == kResume && source == other + ".part");
      });
      scene.Expect(owner != known.end() && Source(*owner).starts_with(content), "there is a file " + name);
    }
    return others;
  }

  // What the log calls stored is there.
  static void CheckLogged(const Scene& scene) {
    std::istringstream log(ReadFile(scene.folder + "/log/qs.log"));
    for (std::string line; std::getline(log, line);) {
      const std::size_t begin = line.find("Stored '");
      const std::size_t end = begin == std::string::npos ? begin : line.find('\'', begin + 8);
      if (end == std::string::npos) {
        continue;
      }
      const std::string path = line.substr(begin + 8, end - begin - 8);
      scene.Expect(std::filesystem::exists(path), "logged as stored, but not there: " + path);
    }
  }

  static void CheckWhole(const Scene& scene) {
    const std::vector<std::string> stored = NamesIn(scene.folder + "/out");
    for (const std::string& name : Names()) {
      const bool isThere = std::find(stored.begin(), stored.end(), name) != stored.end();
      scene.Expect(isThere, "the second run has not completed " + name);
    }
  }

  const std::string _program;
  const TempDir _dir;
  const Nginx _server;
  std::vector<std::string> _urls;
  std::chrono::microseconds _length{1};
};

}  // namespace

std::unique_ptr<Operation> Fetch(const std::string& program) { return std::make_unique<FetchOperation>(program); }

}  // namespace kills
