// Atomic saves, and loading with a backup.
#include <algorithm>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/support/filesupport.h>

#include "kills_scene.h"

namespace kills {

namespace {

constexpr std::uint64_t kNext = 777777;  // of a content that is saved after the kill
constexpr unsigned kModeBits = 07777;

unsigned ModeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & kModeBits : 0;
}

/// Whether the number is that of the last operation that has returned, or of the one that was begun.
bool IsDoneOrBegun(const Scene& scene, std::int64_t number) {
  return number >= static_cast<std::int64_t>(scene.Done()) && number <= static_cast<std::int64_t>(scene.Begun());
}

/// Counts the temporary files of that name, and fails for any other name that is not known.
unsigned CountStrays(const Scene& scene, const std::string& folder, const std::vector<std::string>& known) {
  unsigned strays = 0;
  for (const std::string& name : NamesIn(folder)) {
    const auto isTemporary = [&](const std::string& other) { return IsTemporaryOf(name, other); };
    if (std::any_of(known.begin(), known.end(), isTemporary)) {
      ++strays;
    } else {
      scene.Expect(std::find(known.begin(), known.end(), name) != known.end(), "there is a file " + name);
    }
  }
  return strays;
}

// ---- the atomic save ----

class AtomicSaveOperation : public Operation {
 public:
  std::string Name() const override { return "atomic save"; }

  std::vector<std::string> Variants() const override {
    return {"over a file", "over a private file", "over a read-only file", "of a new file"};
  }

  void Prepare(const Scene& scene) const override {
    if (!IsNew(scene)) {
      WriteFile(Target(scene), Content(0));
      chmod(Target(scene).c_str(), Mode(scene));
    }
  }

  void Work(const Scene& scene) const override {
    scene.Run([&](std::uint64_t number) {
      scene.Expect(QsAtomicSaveBinaryFile(Target(scene), Content(number), true), "a save failed");
    });
  }

  void Check(const Scene& scene) const override {
    const std::int64_t number = NumberIn(Target(scene));
    const bool mayMiss = IsNew(scene) && scene.Done() == 0;
    scene.Expect(IsDoneOrBegun(scene, number) || (mayMiss && number == kNoFile), "content " + std::to_string(number));
    scene.Expect(number == kNoFile || ModeOf(Target(scene)) == Mode(scene), "the permissions are others");
    const unsigned strays = CountStrays(scene, scene.folder, {"file"});
    scene.shared.strays = strays;
    scene.Expect(strays <= 1, std::to_string(strays) + " temporary files");
    CheckStrayIsPrivate(scene);
    scene.Expect(QsAtomicSaveBinaryFile(Target(scene), Content(kNext), true), "the next save failed");
    scene.Expect(NumberIn(Target(scene)) == kNext, "the next save saved something else");
    scene.Expect(CountStrays(scene, scene.folder, {"file"}) == strays, "the next save touched a temporary file");
  }

 private:
  static bool IsNew(const Scene& scene) { return scene.variant == 3; }
  static std::string Target(const Scene& scene) { return scene.folder + "/file"; }

  static unsigned Mode(const Scene& scene) {
    constexpr unsigned kModes[] = {0640, 0600, 0440, 0644};  // the last: of a new file, by the umask of this process
    return kModes[scene.variant];
  }

  // What is written to replace a private file is as private.
  static void CheckStrayIsPrivate(const Scene& scene) {
    for (const std::string& name : NamesIn(scene.folder)) {
      scene.Expect((ModeOf(scene.folder + "/" + name) & ~Mode(scene)) == 0, "others may read the temporary file");
    }
  }
};

// ---- the backup ----

class BackupOperation : public Operation {
 public:
  std::string Name() const override { return "backup and restore"; }

  std::vector<std::string> Variants() const override {
    return {"beside it", "beside it, never overwritten", "in another folder"};
  }

  // A newer content with its backup, then the loss of the file.
  void Work(const Scene& scene) const override {
    scene.Run([&](std::uint64_t number) {
      scene.Expect(QsAtomicSaveBinaryFile(Original(scene), Content(number), true), "a save failed");
      scene.Expect(Load(scene) == Content(number), "it loaded something else");
      scene.shared.notes[kLost] = number;
      unlink(Original(scene).c_str());
      scene.Expect(Load(scene) == Content(BackedUp(scene, number)), "it restored something else");
      scene.shared.notes[kLost] = 0;
    });
  }

  void Check(const Scene& scene) const override {
    const std::int64_t original = NumberIn(Original(scene));
    const std::int64_t backup = NumberIn(Backup(scene));
    const bool wasLost = scene.shared.notes[kLost] != 0;
    scene.Expect(IsKnown(scene, original) || (original == kNoFile && (wasLost || scene.Done() == 0)),
                 "the original holds " + std::to_string(original));
    scene.Expect(IsKnown(scene, backup) || (backup == kNoFile && !wasLost && scene.Done() == 0),
                 "the backup holds " + std::to_string(backup));
    CheckStrays(scene);
    if (original != kNoFile || backup != kNoFile) {
      CheckNextLoad(scene, original != kNoFile ? original : backup);
    }
  }

 private:
  static constexpr std::size_t kLost = 0;  // the note of whether the original was taken away

  static std::string Original(const Scene& scene) { return scene.folder + "/file"; }
  static std::string Backup(const Scene& scene) {
    return scene.variant == 2 ? scene.folder + "/backup/file" : scene.folder + "/file.bak";
  }
  static bool Overwrites(const Scene& scene) { return scene.variant != 1; }
  static std::uint64_t BackedUp(const Scene& scene, std::uint64_t number) { return Overwrites(scene) ? number : 1; }

  static std::string Load(const Scene& scene) {
    return scene.variant == 2 ? FileLoadAndBackupToDir(Original(scene), scene.folder + "/backup", true)
                              : FileLoadAndBackup(Original(scene), Overwrites(scene));
  }

  static bool IsKnown(const Scene& scene, std::int64_t number) {
    return number > 0 && (IsDoneOrBegun(scene, number) || (!Overwrites(scene) && number == 1));
  }

  static void CheckStrays(const Scene& scene) {
    unsigned strays = CountStrays(scene, scene.folder, {"file", "file.bak", "backup"});
    if (scene.variant == 2) {
      strays += CountStrays(scene, scene.folder + "/backup", {"file"});
    }
    scene.shared.strays = strays;
    scene.Expect(strays <= 1, std::to_string(strays) + " temporary files");
  }

  static void CheckNextLoad(const Scene& scene, std::int64_t expected) {
    scene.Expect(Load(scene) == Content(static_cast<std::uint64_t>(expected)), "the next load gives something else");
    scene.Expect(NumberIn(Original(scene)) == expected, "the next load has spoilt the original");
    const std::int64_t backup = NumberIn(Backup(scene));
    scene.Expect(Overwrites(scene) ? backup == expected : IsKnown(scene, backup),
                 "the next load has spoilt the backup");
  }
};

}  // namespace

std::unique_ptr<Operation> AtomicSave() { return std::make_unique<AtomicSaveOperation>(); }

std::unique_ptr<Operation> BackupAndRestore() { return std::make_unique<BackupOperation>(); }

}  // namespace kills
