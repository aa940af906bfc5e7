// What a download of qs that goes on with a partial file leaves, when the memory for any piece of it is missing and the
// server sends another part than it was asked for.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include <common/noise.h>
#include <common/sanitized.h>
#include <common/tempdir.h>
#include <integration/common/scriptedserver.h>
#include <reliability/common/faults.h>
#include <reliability/common/peerprocess.h>
#include <reliability/common/sweep.h>

#include <QSbase/net/http.h>

#include "progress.h"
#include "transfer.h"

namespace {

using qsbase::testing::Connection;
using qsbase::testing::FaultKind;
using qsbase::testing::Noise;
using qsbase::testing::Outcome;
using qsbase::testing::PeerProcess;
using qsbase::testing::Socket;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;

const std::string kContent = Noise(40000);
const std::string kPart = kContent.substr(0, 10000);

// Whoever asks for the rest gets all of it, as if that were the rest, behind a 100.
void ServeAnotherPart(Socket accepted) {
  Connection connection(std::move(accepted));
  const bool isRest = connection.ReceiveRequest().find("\r\nRange: ") != std::string::npos;
  const std::string length = std::to_string(kContent.size());
  connection.Send("HTTP/1.1 100 Continue\r\nX-More: to come\r\n\r\n");
  connection.Send("HTTP/1.1 " + std::string(isRest ? "206 Partial Content" : "200 OK") + "\r\nConnection: close\r\n" +
                  (isRest ? "Content-Range: bytes 0-39999/40000\r\n" : "") + "Content-Length: " + length + "\r\n\r\n");
  connection.Send(kContent);
}

TEST(QsDownload, NeverGoesOnWithAnotherPart) {
  InitQsInetHttp(1);
  const PeerProcess peer(&ServeAnotherPart);
  const std::string url = "http://127.0.0.1:" + std::to_string(peer.Port()) + "/file";
  const TempDir dir;
  unsigned lost = 0;
  Trial(
      "download of qs, resumed at a server that sends another part", [&dir] { dir.Write("file.part", kPart); },
      [&] {
        qs::Progress progress(true);
        qs::Download download(dir / "file.part");
        return download.Run(url, qs::TransferOptions(), progress);
      },
      [&](const Outcome<std::string>& outcome) {
        const std::string now = TempDir::Read(dir / "file.part");
        EXPECT_TRUE(kContent.starts_with(now)) << now.size();
        lost += outcome.result == "not enough memory for the header lines" ? 1 : 0;
        if (!outcome.hit) {
          EXPECT_EQ(outcome.result, "");
        }
      })
      .Sweep({{FaultKind::Allocate, ENOMEM, true}});
#ifndef QSBASE_TESTS_SANITIZED  // there only the memory of operator new is refused, and the header's is another
  EXPECT_GT(lost, 0U);
#endif
  InitQsInetHttp(2);
}

}  // namespace
