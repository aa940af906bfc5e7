// FTP servers that say nothing, too much or the wrong thing, and lead astray: what an upload and a listing make of it,
// how long it takes and how much memory. The lines "figure:" of the output stand in docs/reliability.md.
#include <QSbase/net/ftp.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <common/logcapture.h>
#include <common/noise.h>
#include <common/tempdir.h>
#include <integration/common/ftpserver.h>
#include <reliability/common/peers.h>

using namespace qsbase::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

using Script = ScriptedFtpServer::Script;

struct Met {
  bool done = false;
  std::string errorText;
  std::string log;
  std::vector<std::string> names;
  Cost cost;
};

class PeersFtp : public PeerTest {
 protected:
  PeersFtp() : _file(_dir.Write("file", kContent)) {}

  Met Transfer(const QsFTPServer& server, bool isUpload) const {
    Met met;
    met.cost = CostOf([&] {
      QsFTP ftp(server, nullptr);
      met.done = isUpload ? ftp.Upload({_file, "name", "d"}, met.errorText) : ftp.List("d", met.names, met.errorText);
      met.log = ftp.GetFTPLog();
    });
    return met;
  }

  Met Meet(const std::string& peer, const Script& script, bool isUpload, std::int64_t memory = kMemory) const {
    const ScriptedFtpServer server(script);
    const Met met = Transfer(server.Login(), isUpload);
    Tell(peer, met.cost, (met.done ? "true, " : "false, ") + met.errorText);
    ExpectBounded(peer, met.cost, memory);
    EXPECT_EQ(met.done, met.errorText.empty()) << peer;
    EXPECT_LT(met.log.size(), std::size_t{512} << 10) << peer;
    return met;
  }

  static constexpr const char* kContent = "the content\n";

  const LogCapture _log;
  const TempDir _dir;
  const std::string _file;
};

// Up to that command all goes well; with an empty one not even the greeting does.
bool ServeUpTo(FtpConnection& client, const std::string& command) {
  return command.empty() || client.ServeUntil(command);
}

Script SayingAt(const std::string& command, const std::string& reply) {
  return [=](FtpConnection& client) {
    if (ServeUpTo(client, command)) {
      client.Control().Send(reply);
      client.Control().WaitForClose();
    }
  };
}

const std::vector<std::string>& CommandsOf(bool isUpload) {
  static const std::vector<std::string> ofUploads = {"", "USER", "PASS", "PWD", "CWD", "EPSV", "TYPE", "STOR"};
  static const std::vector<std::string> ofListings = {"", "USER", "PASS", "PWD", "CWD", "EPSV", "TYPE", "NLST"};
  return isUpload ? ofUploads : ofListings;
}

// The ports of two runs differ.
std::string WithoutDigits(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '#');
  return text;
}

std::string NameOf(const std::string& command) { return command.empty() ? "the greeting" : command; }

}  // namespace

// ---- replies ----

TEST_F(PeersFtp, EndlessRepliesAreRefused) {
  for (const bool isUpload : {false, true}) {
    for (const std::string& command : CommandsOf(isUpload)) {
      for (const std::string& piece :
           {std::string("150-and so on\r\n"), std::string("x"), std::string("150-\r\n"), std::string("nonsense\r\n")}) {
        const Met met = Meet(
            "endless \"" + piece.substr(0, 8) + "\" for " + NameOf(command),
            [&](FtpConnection& client) {
              if (ServeUpTo(client, command)) {
                client.Control().SendForEver(piece);
              }
            },
            isUpload);
        EXPECT_FALSE(met.done) << command;
        EXPECT_THAT(met.names, IsEmpty());
      }
    }
  }
}

// What is no reply is waited behind for one; so much longer than the patience of a second that it is none of it.
TEST_F(PeersFtp, SilenceAndNonsenseInThePlaceOfARepliesAreGivenUp) {
  const ShortPatience patience;
  std::vector<std::thread> clients;
  for (const bool isUpload : {false, true}) {
    for (const std::string& command : CommandsOf(isUpload)) {
      for (const std::string& reply :
           {std::string(), std::string("nonsense\r\n"), std::string("2"), std::string("\0\0\0\r\n", 5),
            std::string("150-more\r\n"), std::string("\r\n\r\n"), std::string("000 What\r\n")}) {
        clients.emplace_back([=, this] {
          const std::string peer = "\"" + reply.substr(0, 8) + "\" and silence for " + NameOf(command);
          const Met met = Meet(peer, SayingAt(command, reply), isUpload);
          EXPECT_FALSE(met.done) << peer;
          EXPECT_GE(met.cost.time, milliseconds(900)) << peer;
        });
      }
    }
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

// As a whole, a reply has no more time than any other. Each byte comes well within it.
TEST_F(PeersFtp, ASlowReplyHasNoMoreTimeThanAnother) {
  const ShortPatience patience;
  for (const char* command : {"", "PASS", "STOR"}) {
    const Met met = Meet(
        std::string("20 bytes a second for ") + NameOf(command),
        [&](FtpConnection& client) {
          if (ServeUpTo(client, command)) {
            while (client.Control().SendSlowly("220-more\r\n", milliseconds(50))) {
            }
          }
        },
        true);
    EXPECT_FALSE(met.done) << command;
  }
}

TEST_F(PeersFtp, RefusalsAndWrongNumbersAreFailures) {
  const ShortPatience patience;  // with the farewell that is not answered
  for (const bool isUpload : {false, true}) {
    for (const std::string& command : CommandsOf(isUpload)) {
      for (const char* reply : {"500 No\r\n", "421 Going\r\n", "999 What\r\n"}) {
        if (command == "PWD" || command == "EPSV") {
          continue;  // libcurl does without, or asks by PASV
        }
        const Met met = Meet(std::string(reply, 3) + " for " + NameOf(command), SayingAt(command, reply), isUpload);
        EXPECT_FALSE(met.done) << command << reply;
      }
    }
  }
}

TEST_F(PeersFtp, RepliesMayComeByteForByte) {
  for (const bool isUpload : {false, true}) {
    const Met met = Meet(
        "a byte at a time",
        [](FtpConnection& client) {
          client.pause = milliseconds(1);
          client.listing = "a\r\nb\r\n";
          client.ServeToTheEnd();
        },
        isUpload);
    EXPECT_TRUE(met.done) << met.errorText;
    EXPECT_EQ(met.names, isUpload ? std::vector<std::string>() : (std::vector<std::string>{"a", "b"}));
  }
}

// The control connection ends anywhere in what the server says up to the last reply.
TEST_F(PeersFtp, AnEndAtEveryByteOfTheReplies) {
  for (const bool isUpload : {false, true}) {
    std::size_t all = 0;
    std::string wholeLog;
    {
      const ScriptedFtpServer server([&](FtpConnection& client) {
        client.listing = "a\r\nb\r\n";
        client.ServeUntil("QUIT");
        all = client.said;
      });
      wholeLog = Transfer(server.Login(), isUpload).log;
    }
    ASSERT_EQ(wholeLog.size(), all);
    const Cost cost = CostOf([&] {
      for (const bool reset : {false, true}) {
        for (std::size_t size = 0; size <= all && !HasFailure(); ++size) {
          SCOPED_TRACE(wholeLog.substr(0, size) + (reset ? "<reset>" : "<end>"));
          ScriptedFtpServer server([&](FtpConnection& client) {
            client.Control().EndAfter(size, reset);
            client.listing = "a\r\nb\r\n";
            client.ServeToTheEnd();
          });
          const Met met = Transfer(server.Login(), isUpload);
          EXPECT_EQ(met.done, size == all) << met.errorText;
          EXPECT_EQ(met.done, met.errorText.empty());
          EXPECT_THAT(WithoutDigits(wholeLog), StartsWith(WithoutDigits(met.log)));
          if (met.done && !isUpload) {
            EXPECT_THAT(met.names, ElementsAre("a", "b"));
          }
        }
      }
    });
    Tell("an end at each of " + std::to_string(all) + " bytes of replies", cost, isUpload ? "upload" : "listing");
  }
}

// ---- data connections ----

namespace {

constexpr const char* kListing = "a\r\nbb\r\nccc\r\n";

// A listing that ends after so many bytes, with a reset or without.
Script ListingUpTo(std::size_t size, bool reset, const std::string& verdict) {
  return [=](FtpConnection& client) {
    if (client.ServeUntil("NLST")) {
      client.Say("150 Here it comes");
      {
        Connection data = client.Data();
        data.EndAfter(size, reset);
        data.Send(std::string(kListing) + "!");
      }
      client.Say(verdict);
      client.ServeToTheEnd();
    }
  };
}

}  // namespace

// A listing has no length: only the server's verdict or a reset tells that it was cut off.
TEST_F(PeersFtp, AnEndAtEveryByteOfAListing) {
  for (std::size_t size = 0; size <= std::string(kListing).size(); ++size) {
    for (const bool reset : {false, true}) {
      for (const char* verdict : {"226 Listed", "426 Broken off"}) {
        SCOPED_TRACE(std::to_string(size) + (reset ? " and a reset, " : ", ") + verdict);
        const ScriptedFtpServer server(ListingUpTo(size, reset, verdict));
        const Met met = Transfer(server.Login(), false);
        EXPECT_EQ(met.done, !reset && verdict[0] == '2') << met.errorText;
        std::string names;
        for (const std::string& name : met.names) {
          EXPECT_EQ(name.find_first_of("\r\n"), std::string::npos);
          names += name;
        }
        std::string expected = std::string(kListing).substr(0, size);
        std::erase(expected, '\r');
        std::erase(expected, '\n');
        EXPECT_EQ(names, expected) << "what came is handed over";
      }
    }
  }
}

// What came is made names of.
TEST_F(PeersFtp, AnEndlessListingIsRefused) {
  for (const std::size_t length : {1U, 255U}) {
    const std::string line = std::string(length, 'x') + "\r\n";
    const Met met = Meet(
        "endless listing, names of " + std::to_string(length),
        [&](FtpConnection& client) {
          if (client.ServeUntil("NLST")) {
            client.Say("150 Here it comes");
            client.Data().SendForEver(line);
            client.ServeToTheEnd();
          }
        },
        false, std::int64_t{1} << 30);
    EXPECT_FALSE(met.done);
    // libcurl makes one byte of CR and LF, and hands over up to 16 KiB at once.
    const std::size_t most = std::min<std::size_t>(10000000, (std::size_t{256} << 20) / (length + 1));
    EXPECT_LE(met.names.size(), most + 1);
    EXPECT_GE(met.names.size(), most - 16384);
  }
}

TEST_F(PeersFtp, AMillionNamesAreListed) {
  const Met met = Meet(
      "1,000,000 names of 100 characters",
      [](FtpConnection& client) {
        for (int i = 0; i < 1000000; ++i) {
          client.listing += std::to_string(1000000 + i) + std::string(93, 'x') + "\r\n";
        }
        client.ServeToTheEnd();
      },
      false, std::int64_t{1} << 30);
  EXPECT_TRUE(met.done) << met.errorText;
  ASSERT_EQ(met.names.size(), 1000000u);
  EXPECT_EQ(met.names.back(), "1999999" + std::string(93, 'x'));
}

TEST_F(PeersFtp, AnAnnouncementOfFourGibibytesTakesNoMemory) {
  for (const char* size : {"4294967296", "9223372036854775807", "-1", "99999999999999999999999"}) {
    const Met met = Meet(
        std::string("a listing of ") + size + " bytes announced",
        [&](FtpConnection& client) {
          if (client.ServeUntil("NLST")) {
            client.Say(std::string("150 Opening ASCII mode data connection (") + size + " bytes)");
            client.Data().Send(kListing);
            client.Say("226 Listed");
            client.ServeToTheEnd();
          }
        },
        false);
    ExpectNothingReserved(size, met.cost);
    EXPECT_TRUE(met.done) << met.errorText;
    EXPECT_THAT(met.names, ElementsAre("a", "bb", "ccc"));
  }
}

TEST_F(PeersFtp, UploadsThatNobodyTakesAreGivenUp) {
  const ShortPatience patience;
  const std::string large = _dir.Write("large", Noise(64 << 20));
  const ScriptedFtpServer server([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      const Connection data = client.Data();
      client.Control().WaitForClose();
    }
  });
  std::string errorText;
  const Cost cost = CostOf([&] { EXPECT_FALSE(QsFTPUpload({server.Login(), {large, "", ""}}, errorText)); });
  Tell("an upload of 64 MiB that nobody takes", cost, errorText);
  ExpectBounded("upload", cost);
}

// ---- led astray ----

namespace {

// Listens where a reply leads to, and must not be come to.
class Bait {
 public:
  // On 127.0.0.2 at that port, or on 127.0.0.1 at any.
  explicit Bait(int port) : _listener(NewSocket()) {
    sockaddr_in address = LoopbackAddress(port);
    address.sin_addr.s_addr = htonl(port == 0 ? INADDR_LOOPBACK : INADDR_LOOPBACK + 1);
    if (bind(_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(_listener.Get(), 5) != 0) {
      throw std::runtime_error("cannot listen on loopback");
    }
    fcntl(_listener.Get(), F_SETFL, O_NONBLOCK);
  }

  int Port() const { return PortOf(_listener); }
  bool WasCome() const { return Socket(accept4(_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)).Get() != -1; }

 private:
  Socket _listener;
};

std::string PassiveReply(const std::string& host, int port) {
  return "227 Entering Passive Mode (" + host + "," + std::to_string(port / 256) + "," + std::to_string(port % 256) +
         ")";
}

}  // namespace

// By an option, which libcurl has set by itself since 7.74: the test shows that nobody unsets it.
TEST_F(PeersFtp, PassiveRepliesLeadToNoOtherHost) {
  for (const bool isExtended : {false, true}) {
    bool wasCome = true;
    const Met met = Meet(
        isExtended ? "EPSV to another host" : "PASV to another host",
        [&](FtpConnection& client) {
          client.ServeUntil("EPSV");
          const int port = client.OpenDoor();
          const Bait bait(port);
          if (isExtended) {
            client.Say("229 Entering (|1|127.0.0.2|" + std::to_string(port) + "|)");
            client.ServeUntil("PASV");
          } else {
            client.Say("500 What");
            client.ServeUntil("PASV");
            client.Say(PassiveReply("127,0,0,2", port));
          }
          const bool isAsked = client.ServeUntil("NLST");  // by then the data connection stands
          wasCome = bait.WasCome();
          if (isAsked && !wasCome) {
            client.Say("150 Here it comes");
            client.Data().Send(kListing);
            client.Say("226 Listed");
            client.ServeToTheEnd();
          }
        },
        false);
    EXPECT_FALSE(wasCome);
    EXPECT_EQ(met.done, !isExtended) << met.errorText;
    EXPECT_EQ(met.names.size(), isExtended ? 0u : 3u);
  }
}

TEST_F(PeersFtp, PassiveRepliesThatLeadNowhere) {
  const int closed = FreePort();
  for (const bool isExtended : {false, true}) {
    for (const std::string& reply :
         {std::string("227 nonsense"), std::string("227 (1,2,3)"), std::string("227 (999,999,999,999,999,999)"),
          std::string("227 (127,0,0,1,0,0)"), PassiveReply("127,0,0,1", closed), std::string("229 nonsense"),
          std::string("229 (|||0|)"), std::string("229 (|||99999|)"), std::string("229 (|||-1|)"),
          "229 (|||" + std::to_string(closed) + "|)", "229 (" + std::string(3000, '|') + ")"}) {
      const Met met = Meet((isExtended ? "EPSV: " : "PASV: ") + reply.substr(0, 36),
                           [&](FtpConnection& client) {
                             if (client.ServeUntil("EPSV")) {
                               client.Say(isExtended ? reply : "500 What");
                             }
                             while (client.ServeUntil("PASV")) {
                               client.Say(isExtended ? "500 What" : reply);
                             }
                           },
                           false);
      EXPECT_FALSE(met.done) << reply;
    }
  }
}

// Nothing in a reply or a listing makes a command, and nothing redirects: the commands are those of any transfer.
TEST_F(PeersFtp, WhatTheServerSaysIsNotObeyed) {
  const Bait bait(0);
  const std::string port = std::to_string(bait.Port());
  const std::string lure = "127,0,0,1," + std::to_string(bait.Port() / 256) + "," + std::to_string(bait.Port() % 256);
  for (const bool isUpload : {false, true}) {
    std::vector<std::string> commands;
    std::vector<std::string> stored;
    Met met;
    {
      const ScriptedFtpServer server([&](FtpConnection& client) {
        if (client.ServeUntil("PWD")) {
          client.Say("257 \"/\r\nDELE x\r\nPORT " + lure + "\" is here");
        }
        client.listing = "ftp://127.0.0.1:" + port + "/\r\n../../x\r\n";
        client.ServeToTheEnd();
        commands = client.commands;
        stored = client.stored;
      });
      met = Transfer(server.Login(), isUpload);
    }
    EXPECT_TRUE(met.done) << met.errorText << met.log;
    EXPECT_THAT(met.log, HasSubstr("\r\nDELE x\r\nPORT 127,0,0,1,"));
    EXPECT_THAT(commands, ElementsAre("USER joe", "PASS secret", "PWD", "CWD d", "EPSV", isUpload ? "TYPE I" : "TYPE A",
                                      isUpload ? "STOR name" : "NLST", "QUIT"));
    if (isUpload) {
      EXPECT_THAT(stored, ElementsAre(kContent));
    } else {
      EXPECT_THAT(met.names, ElementsAre("ftp://127.0.0.1:" + port + "/", "../../x"));
    }
  }
  EXPECT_FALSE(bait.WasCome());
}
