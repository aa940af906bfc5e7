#include <QSbase/net/multipart.h>

#include <gtest/gtest.h>

#include <string>

using namespace std::string_literals;

namespace {

constexpr const char* kFixedBoundary = "--------------------8888888888XXXXXXXXXXgc0p4Jq0M2Yt08jU534c0p";

TEST(MultipartSingleFile, IsOnePartBetweenItsBoundaries) {
  const MIME_TEXT text = MultipartSingleFile("line 1\r\nline 2", "a file.txt", "=_x");
  EXPECT_EQ(text.mimeHeader, "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary==_x");
  EXPECT_EQ(text.mimeBody,
            "--=_x\r\n"
            "Content-Disposition: attachment; filename=\"a file.txt\"\r\n"
            "\r\n"
            "line 1\r\nline 2"
            "\r\n--=_x--\r\n");
}

TEST(MultipartSingleFile, HasABoundaryOfItsOwnForHeaderAndBody) {
  const MIME_TEXT text = MultipartSingleFile("x", "f", "");
  EXPECT_EQ(text.mimeHeader, "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary="s + kFixedBoundary);
  EXPECT_EQ(text.mimeBody, "--"s + kFixedBoundary +
                               "\r\nContent-Disposition: attachment; filename=\"f\"\r\n\r\nx\r\n--" + kFixedBoundary +
                               "--\r\n");
}

TEST(MultipartSingleFile, TakesContentOfAnyBytes) {
  std::string content;
  for (int i = 0; i < 256; ++i) {
    content.push_back(static_cast<char>(i));
  }
  const MIME_TEXT text = MultipartSingleFile(content, "f", "b");
  const std::string head = "--b\r\nContent-Disposition: attachment; filename=\"f\"\r\n\r\n";
  EXPECT_EQ(text.mimeBody, head + content + "\r\n--b--\r\n");
  EXPECT_EQ(text.mimeBody.size(), head.size() + 256 + 9);
}

TEST(MultipartSingleFile, WithNothingInItIsStillOnePart) {
  EXPECT_EQ(MultipartSingleFile("", "", "b").mimeBody,
            "--b\r\nContent-Disposition: attachment; filename=\"\"\r\n\r\n\r\n--b--\r\n");
}

// Kept: the caller checks.
TEST(MultipartSingleFile, ANameGoesInAsGiven) {
  EXPECT_EQ(MultipartSingleFile("x", "a\"; x=\"b\r\nX-More: y", "b").mimeBody,
            "--b\r\nContent-Disposition: attachment; filename=\"a\"; x=\"b\r\nX-More: y\"\r\n\r\nx\r\n--b--\r\n");
}

}  // namespace
