// A program that uses the installed package: something of every area.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <string>

namespace {

bool Check(const char* what, bool good) {
  std::printf("%-12s %s\n", what, good ? "ok" : "WRONG");
  return good;
}

bool Throws() {
  try {
    HexToByte(nullptr);
  } catch (const ExBase& error) {
    return error.GetErrorText() == "HexToByte called with invalid parameter (NULL)";
  }
  return false;
}

bool Codecs() {
  std::string text;
  QsBase64Encode("Cat", 3, text);
  return text == "Q2F0" && QsCalcCRC32("123456789", 9) == 0xCBF43926u;
}

bool Files() {
  const std::string path = ConstructPath(QsGetSysTempPath(), strprintf("consumer-%d.txt", QsGetCurrentProcessId()));
  const QsFileDeleter deleter(path);
  return QsAtomicSaveBinaryFile(path, "saved", true) && LoadBinaryFile(path) == "saved";
}

bool Network() {
  std::string curl;
  std::string ssl;
  QsGetCurlOpenSSLVersions(curl, ssl);
  return !curl.empty();
}

bool HasGuid() {
  QsGUID guid;
  guid.Create();
  return QsGUID::IsValidGUID(guid.ToString(), true);
}

// "!=" compares the bits, not whether there are any.
bool BitsDiffer() {
  BitAccessor left(8);
  BitAccessor right(8);
  left.Set(1);
  right.Set(2);
  return left != right;
}

}  // namespace

int main() {
  bool good = Check("exceptions", Throws());
  good = Check("codecs", Codecs()) && good;
  good = Check("files", Files()) && good;
  good = Check("network", Network()) && good;
  good = Check("text", QsString::ToUpper("abc") == "ABC") && good;
  good = Check("names", CNameMatcher("*.log;#^part[0-9]+$", true).MatchName("PART17") == 1) && good;
  good = Check("time", DateTime2string(QsDateTime(2013, 2, 13, 0, 0, 0, 0), false, false) == "2013-02-13") && good;
  good = Check("UTF-8", QsIsValidUTF8("\xC3\xA4") && !QsIsValidUTF8("\xC3")) && good;
  good = Check("GUIDs", HasGuid()) && good;
  good = Check("bits", BitsDiffer()) && good;
  return good ? 0 : 1;
}
