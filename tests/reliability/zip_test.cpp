// What archives promise when any call that is made for them fails, comes back short or is interrupted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <sys/resource.h>

#include <csignal>
#endif

#include <minizip/zip.h>

#include <common/noise.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <reliability/common/faults.h>
#include <reliability/common/sweep.h>

#include <QSbase/support/zlibsupport.h>

namespace {

namespace fs = std::filesystem;
using qsbase::testing::Blow;
using qsbase::testing::Fault;
using qsbase::testing::FaultKind;
using qsbase::testing::kFileBlows;
using qsbase::testing::NamesIn;
using qsbase::testing::NoFaults;
using qsbase::testing::Noise;
using qsbase::testing::Outcome;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;

const std::string kOld = "old content";
const std::string kNew = "new content " + Noise(150000);  // several buffers of minizip and of the streams
const QsDateTime kTime(2024, 5, 6, 7, 8, 10, 0);

// minizip writes an entry's record into memory whether it got it or not: there no allocation may fail. Archives are
// written through streams of the C library, which make no call again after a signal: that is a failure.
std::vector<Blow> WritingBlows() {
  std::vector<Blow> blows = kFileBlows;
  std::erase_if(blows, [](const Blow& blow) { return blow.kind == FaultKind::Allocate; });
  for (Blow& blow : blows) {
    blow.noticeable = blow.noticeable || blow.error == qsbase::testing::kInterrupted;
  }
  return blows;
}

using Entries = std::map<std::string, std::string>;

// What could take a temporary file away again is refused too.
bool NobodyCanDelete(const Fault& fault) {
  return fault.kind == FaultKind::Unlink || (fault.kind == FaultKind::Allocate && fault.count != 1);
}

std::string Extracted(const std::string& archive, const std::string& name) {
  char* buffer = nullptr;
  int size = 0;
  if (QsExtractFileSimple(archive.c_str(), name.c_str(), nullptr, &buffer, &size, 0) != 0) {
    return "no such entry";
  }
  const std::unique_ptr<char, decltype(&std::free)> owner(buffer, &std::free);
  return std::string(buffer, static_cast<std::size_t>(size));
}

class ZipFaults : public ::testing::Test {
 protected:
  ZipFaults() {
    QsWrite2Zip(_archive.c_str(), kOld, kTime, false, "old");
    _oldArchive = TempDir::Read(_archive);
    QsWrite2Zip(_archive.c_str(), kNew, kTime, true, "d/new");
    _bothArchive = TempDir::Read(_archive);
  }

  // Puts these files into the empty folder.
  void Fill(const Entries& files) const {
    for (const std::string& name : NamesIn(_dir.Path())) {
      fs::remove_all(_dir / name);
    }
    for (const auto& [name, content] : files) {
      _dir.Write(name, content);
    }
  }

  Entries EntriesNow() const {
    std::vector<std::string> names;
    EXPECT_EQ(QsGetFilesInZip(_archive.c_str(), &names), 0);
    Entries entries;
    for (const std::string& name : names) {
      entries[name] = Extracted(_archive, name);
    }
    return entries;
  }

  void ExpectOnly(const std::vector<std::string>& names, const Fault& fault) const {
    if (!NobodyCanDelete(fault)) {
      EXPECT_THAT(NamesIn(_dir.Path()), IsSubsetOf(names));
    }
  }

  // The archive of before, or with all that was to be in it.
  void ExpectWritten(const Outcome<bool>& outcome, const std::string& before, const Entries& after) const {
    ExpectOnly({"a.zip"}, outcome.fault);
    if (!outcome.allowed) {
      EXPECT_EQ(outcome.result, true);
    }
    if (outcome.result.value_or(false)) {
      EXPECT_TRUE(EntriesNow() == after);
    } else if (!before.empty()) {
      EXPECT_TRUE(TempDir::Read(_archive) == before);
    } else if (!NobodyCanDelete(outcome.fault)) {
      EXPECT_FALSE(fs::exists(_archive));
    }
  }

  template <class Prepare, class Run, class Check>
  static void SweepReading(const std::string& name, Prepare prepare, Run run, Check check) {
    Trial(name, prepare, run, check).Sweep(kFileBlows);
  }

  template <class Prepare, class Run, class Check>
  static void SweepWriting(const std::string& name, Prepare prepare, Run run, Check check) {
    Trial(name, prepare, run, check).Sweep(WritingBlows());
  }

  TempDir _dir;
  const std::string _archive = _dir / "a.zip";
  std::string _oldArchive;
  std::string _bothArchive;
};

TEST_F(ZipFaults, AnArchiveWrittenAnewIsTheOldOneOrTheNewOne) {
  SweepWriting(
      "QsWrite2Zip, anew",
      [this] {
        Fill({{"a.zip", _oldArchive}});
      },
      [this] { return QsWrite2Zip(_archive.c_str(), kNew, kTime, false, "new"); },
      [this](const Outcome<bool>& outcome) {
        ExpectWritten(outcome, _oldArchive, {{"new", kNew}});
      });
}

TEST_F(ZipFaults, AFirstArchiveIsWholeOrThereIsNone) {
  SweepWriting(
      "QsWrite2Zip, first", [this] { Fill({}); },
      [this] { return QsWrite2Zip(_archive.c_str(), kNew, kTime, true, "new"); },
      [this](const Outcome<bool>& outcome) {
        ExpectWritten(outcome, "", {{"new", kNew}});
      });
}

// A disk that takes no byte any more, not even in the place of others, cannot be given the old archive back.
TEST_F(ZipFaults, AnArchiveThatIsAddedToIsTheOldOneOrHasBoth) {
  SweepWriting(
      "QsWrite2Zip, added",
      [this] {
        Fill({{"a.zip", _oldArchive}});
      },
      [this] { return QsWrite2Zip(_archive.c_str(), kNew, kTime, true, "new"); },
      [this](const Outcome<bool>& outcome) {
        const bool isDead = outcome.fault.kind == FaultKind::Write && outcome.fault.count != 1;
        if (!isDead || outcome.result.value_or(false)) {
          ExpectWritten(outcome, _oldArchive, {{"old", kOld}, {"new", kNew}});
        }
      });
}

#ifndef _WIN32
// As a disk that is full: more is refused, what is there may be overwritten.
TEST_F(ZipFaults, AFullDiskKeepsTheArchiveThatIsAddedTo) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  for (const rlim_t room : {rlim_t{0}, rlim_t{1}, rlim_t{5000}, rlim_t{100000}, rlim_t{150000}}) {
    Fill({{"a.zip", _oldArchive}});
    const rlimit limit{_oldArchive.size() + room, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const bool written = QsWrite2Zip(_archive.c_str(), kNew, kTime, true, "new");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_FALSE(written) << room;
    EXPECT_EQ(TempDir::Read(_archive), _oldArchive) << room;
  }
}
#endif

// A host's handle, which minizip writes through streams of its own. They are flushed before they are closed: some
// versions of the C runtime forget at the closing what they could not write then.
void* OpenForHost(const std::string& archive) {
  zlib_filefunc64_def functions;
  fill_fopen64_filefunc(&functions);
  functions.zclose_file = [](voidpf, voidpf opaque) {
    auto* const stream = static_cast<std::FILE*>(opaque);
    const bool written = std::fflush(stream) == 0;
    return std::fclose(stream) == 0 && written ? 0 : EOF;
  };
  return zipOpen2_64(archive.c_str(), APPEND_STATUS_CREATE, nullptr, &functions);
}

TEST_F(ZipFaults, AnEntryOfAHostsArchiveIsWholeOrReported) {
  SweepWriting(
      "QsWrite2Zip, host's", [this] { Fill({}); },
      [this] {
        void* archive = OpenForHost(_archive);
        const bool written = archive != nullptr && QsWrite2Zip(&archive, kNew, kTime, "new");
        const bool closed = archive != nullptr && zipClose(archive, nullptr) == ZIP_OK;
        return written && closed;
      },
      [this](const Outcome<bool>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, true);
        }
        if (outcome.result.value_or(false)) {
          EXPECT_EQ(EntriesNow(), (Entries{{"new", kNew}}));
        }
      });
}

TEST_F(ZipFaults, AnEntryReplacesAFileWholeOrNotAtAll) {
  SweepReading(
      "QsExtractFileSimple",
      [this] {
        Fill({{"a.zip", _bothArchive}, {"out", kOld}});
      },
      [this] {
        return QsExtractFileSimpleFlush(_archive.c_str(), "d/new", (_dir / "out").c_str(), nullptr, nullptr, 0);
      },
      [this](const Outcome<int>& outcome) {
        ExpectOnly({"a.zip", "out"}, outcome.fault);
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, 0);
        }
        EXPECT_TRUE(TempDir::Read(_dir / "out") == (outcome.result == 0 ? kNew : kOld));
      });
}

TEST_F(ZipFaults, AnEntryInMemoryIsWholeOrThereIsNone) {
  struct Read {
    int code;
    std::string content;
  };
  SweepReading(
      "QsExtractFileSimple, to memory",
      [this] {
        Fill({{"a.zip", _bothArchive}});
      },
      [this] {
        char* buffer = nullptr;
        int size = 0;
        const int code = QsExtractFileSimple(_archive.c_str(), "d/new", nullptr, &buffer, &size, 0);
        const NoFaults spared;
        const std::unique_ptr<char, decltype(&std::free)> owner(buffer, &std::free);
        return Read{code, std::string(buffer == nullptr ? "" : buffer, static_cast<std::size_t>(size))};
      },
      [](const Outcome<Read>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result->code, 0);
        }
        if (outcome.result) {
          EXPECT_TRUE(outcome.result->content == (outcome.result->code == 0 ? kNew : "")) << outcome.result->code;
        }
      });
}

TEST_F(ZipFaults, AnArchiveGivesFilesThatAreWhole) {
  SweepReading(
      "QsExtractWholeFile",
      [this] {
        Fill({{"a.zip", _bothArchive}, {"out/old", "older content"}});
      },
      [this] { return QsExtractWholeFile(_archive.c_str(), (_dir / "out").c_str(), nullptr, nullptr); },
      [this](const Outcome<int>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, 0);
        }
        EXPECT_THAT(TempDir::Read(_dir / "out/old"), AnyOf("older content", kOld));
        if (outcome.result == 0) {
          EXPECT_EQ(TempDir::Read(_dir / "out/old"), kOld);
          EXPECT_TRUE(TempDir::Read(_dir / "out/d/new") == kNew);
        } else if (fs::exists(_dir / "out/d/new") && !NobodyCanDelete(outcome.fault)) {
          EXPECT_TRUE(TempDir::Read(_dir / "out/d/new") == kNew) << "half a file is none";
        }
        if (!NobodyCanDelete(outcome.fault)) {
          EXPECT_THAT(NamesIn(_dir / "out"), IsSubsetOf({"d", "old"}));
        }
      });
}

TEST_F(ZipFaults, AListIsWholeOrEmpty) {
  SweepReading(
      "QsGetZipInfo",
      [this] {
        Fill({{"a.zip", _bothArchive}});
      },
      [this] {
        int count = 0;
        std::int64_t size = 0;
        std::vector<std::string> names;
        const int code = QsGetZipInfo(_archive.c_str(), &count, &size, &names);
        return std::make_pair(code, names);
      },
      [](const Outcome<std::pair<int, std::vector<std::string>>>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result->first, 0);
        }
        if (outcome.result && outcome.result->first == 0) {
          EXPECT_THAT(outcome.result->second, ElementsAre("old", "d/new"));
        } else if (outcome.result) {
          EXPECT_THAT(outcome.result->second, IsEmpty());
        }
      });
}

}  // namespace
