// Decodes the yEnc attachment of a news article and stores it: checked, under a free name, never half written.
#include <QSbase/qsbase.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::puts("usage: decode_article ARTICLE");
    return 2;
  }
  CYEncData header;
  std::string data;
  const int status = CEncodeDecode::DecodeYEnc(LoadBinaryFile(argv[1]), data, 0x2000, &header);
  if (status != 0 || (header.HasCRC() && !header.CompareCRC())) {
    QsLogMsg(0x40000000, "%s: no good attachment (%d)", argv[1], status);
    return 1;
  }
  std::string path;
  CUniqueFilenameManager names;
  names.GetUniquePath(QsMakeCompatibleFilename(header.name), path, false);
  if (!QsAtomicSaveBinaryFile(path, data, false)) {
    return 1;
  }
  const std::string md5 = QsCalcMD5(data.data(), static_cast<unsigned int>(data.size()));
  std::printf("%s: %zu bytes, CRC-32 %s, MD5 %s\n", path.c_str(), data.size(), header.crcText.c_str(), md5.c_str());
}
