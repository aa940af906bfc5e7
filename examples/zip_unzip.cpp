// Writes an archive, lists it, reads one entry into memory and extracts everything with progress.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <cstdlib>

namespace {

class Printer : public QsProgressAndAbortHandler {
 public:
  bool IsAborted() override { return false; }
  void OnProgress(int percent) override { std::printf("%d %%\n", percent); }
};

}  // namespace

int main() {
  const std::string folder = ConstructPath(QsGetSysTempPath(), strprintf("qsbase-zip-%d", QsGetCurrentProcessId()));
  const std::string archive = ConstructPath(folder, "notes.zip");
  ForceCreateDirectories(folder);

  // The second call finds the archive and appends to it.
  const QsDateTime time(2024, 2, 29, 12, 0, 0, 0);
  if (!QsWrite2Zip(archive.c_str(), "a harbour at dawn", time, true, "sea/harbour.txt") ||
      !QsWrite2Zip(archive.c_str(), "nothing yet", time, true, "todo.txt")) {
    std::printf("cannot write %s\n", archive.c_str());
    return 1;
  }

  std::vector<std::string> names;
  QsGetFilesInZip(archive.c_str(), &names);
  for (const std::string& name : names) {
    std::printf("%s\n", name.c_str());
  }

  char* buffer = nullptr;
  int size = 0;
  if (QsExtractFileSimple(archive.c_str(), "sea/harbour.txt", nullptr, &buffer, &size, 0) == 0) {
    std::printf("%.*s\n", size, buffer);
    std::free(buffer);
  }

  Printer printer;
  const int code = QsExtractWholeFile(archive.c_str(), ConstructPath(folder, "out").c_str(), nullptr, &printer);
  std::string why;
  QsGetZLibErrorMessageWholeFile(code, why);
  const std::string todo = LoadBinaryFile(ConstructPath(folder, "out\\todo.txt"));
  std::printf("code %d%s, todo: %s\n", code, why.c_str(), todo.c_str());

  QsDeleteDirectoryRecurse(folder, true, -1, true, nullptr, true);
}
