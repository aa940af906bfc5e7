// Atomic saves, and a backup that stands in for a lost original.
#include <QSbase/qsbase.h>

#include <cstdio>

int main() {
  const std::string folder = ConstructPath(QsGetSysTempPath(), strprintf("qsbase-example-%d", QsGetCurrentProcessId()));
  const std::string path = ConstructPath(folder, "settings.txt");
  ForceCreateDirectories(folder);

  QsAtomicSaveBinaryFile(path, "first version", true);
  FileLoadAndBackup(path, true);
  QsAtomicSaveBinaryFile(path, "second version", true);
  const std::string kept = LoadBinaryFile(path);

  ClearBinaryFile(path);
  const std::string backup = FileLoadAndBackup(path, true);
  std::printf("kept: %s, backup: %s\n", kept.c_str(), backup.c_str());

  QsDeleteDirectoryRecurse(folder, true, -1, true, nullptr, true);
}
