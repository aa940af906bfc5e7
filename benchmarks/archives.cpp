// What archives.py times: one extraction or one writing by the library or by libzip.
//
// archives qs|libzip extract ARCHIVE FOLDER
// archives qs|libzip write ARCHIVE FILE...
#include <QSbase/qsbase.h>
#include <minizip/zip.h>
#include <zip.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

int Fail(const char* what) {
  std::fprintf(stderr, "archives: %s\n", what);
  return 1;
}

bool QsWrite(const char* archive, const std::vector<std::string>& files) {
  void* handle = zipOpen(archive, APPEND_STATUS_CREATE);
  for (const std::string& file : files) {
    if (!QsWrite2Zip(&handle, LoadBinaryFile(file), QsDateTime::Now(), file.c_str())) {
      return false;
    }
  }
  return zipClose(handle, nullptr) == ZIP_OK;
}

bool LibzipWrite(const char* archive, const std::vector<std::string>& files) {
  zip_t* const handle = zip_open(archive, ZIP_CREATE | ZIP_TRUNCATE, nullptr);
  for (const std::string& file : files) {
    if (zip_file_add(handle, file.c_str(), zip_source_file(handle, file.c_str(), 0, -1), 0) < 0) {
      return false;
    }
  }
  return zip_close(handle) == 0;
}

bool CopyEntry(zip_t* archive, zip_uint64_t index, const std::string& path, std::vector<char>& block) {
  zip_file_t* const entry = zip_fopen_index(archive, index, 0);
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (entry == nullptr || file == nullptr) {
    return false;
  }
  zip_int64_t count = 0;
  while ((count = zip_fread(entry, block.data(), block.size())) > 0) {
    std::fwrite(block.data(), 1, static_cast<std::size_t>(count), file);
  }
  return zip_fclose(entry) == 0 && std::fclose(file) == 0 && count == 0;
}

bool LibzipExtract(const char* archive, const std::string& folder) {
  zip_t* const handle = zip_open(archive, ZIP_RDONLY, nullptr);
  std::vector<char> block(65536);
  std::string last;
  for (zip_int64_t i = 0; i < zip_get_num_entries(handle, 0); ++i) {
    const std::string path = folder + "/" + zip_get_name(handle, static_cast<zip_uint64_t>(i), 0);
    const std::string parent = path.substr(0, path.rfind('/'));
    if (parent != last) {
      std::filesystem::create_directories(parent);
      last = parent;
    }
    if (path.back() != '/' && !CopyEntry(handle, static_cast<zip_uint64_t>(i), path, block)) {
      return false;
    }
  }
  return zip_close(handle) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    return Fail("usage: archives qs|libzip extract|write ARCHIVE FOLDER|FILE...");
  }
  const bool qs = std::strcmp(argv[1], "qs") == 0;
  if (std::strcmp(argv[2], "extract") == 0) {
    const bool done =
        qs ? QsExtractWholeFile(argv[3], argv[4], nullptr, nullptr) == 0 : LibzipExtract(argv[3], argv[4]);
    return done ? 0 : Fail("cannot extract");
  }
  const std::vector<std::string> files(argv + 4, argv + argc);
  return (qs ? QsWrite(argv[3], files) : LibzipWrite(argv[3], files)) ? 0 : Fail("cannot write");
}
