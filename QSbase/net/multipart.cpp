#include <QSbase/net/multipart.h>

MIME_TEXT MultipartSingleFile(const std::string& content, const std::string& fileName, std::string boundary) {
  if (boundary.empty()) {
    boundary = "--------------------8888888888XXXXXXXXXXgc0p4Jq0M2Yt08jU534c0p";
  }
  const std::string begin =
      "--" + boundary + "\r\nContent-Disposition: attachment; filename=\"" + fileName + "\"\r\n\r\n";
  const std::string end = "\r\n--" + boundary + "--\r\n";
  MIME_TEXT text;
  text.mimeHeader = "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=" + boundary;
  text.mimeBody.reserve(begin.size() + content.size() + end.size());
  text.mimeBody.append(begin).append(content).append(end);
  return text;
}
