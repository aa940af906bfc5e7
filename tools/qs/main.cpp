// qs: fetches articles, decodes and checks their attachments and stores them; encodes, decodes and hashes files.

#include <QSbase/errors.h>
#include <QSbase/export.h>
#include <QSbase/net/http.h>
#include <QSbase/startup.h>
#include <QSbase/support/filesupport.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "archive.h"
#include "coders.h"
#include "consoleos.h"
#include "demo.h"
#include "fetch.h"
#include "ftp.h"
#include "host.h"
#include "interrupt.h"
#include "sysinfo.h"
#include "url.h"
#include "xpath.h"

namespace {

// In MiB. Content, its attachments and the text they came from are in memory at the same time.
constexpr bool kSmallMemory = sizeof(void*) < 8;
constexpr unsigned int kDefaultMemory = kSmallMemory ? 256 : 1024;
constexpr unsigned int kMaxMemory = kSmallMemory ? 1024 : 4095;

constexpr const char* kNoMemory = "not enough memory";

struct Options {
  qs::FetchOptions fetch;
  qs::LogOptions log;
  qs::DemoOptions demo;
  qs::CodeOptions encode;
  qs::CodeOptions decode;
  qs::HashOptions hash;
  std::vector<std::string> uploadWords;  // the files, and the URL behind them
  qs::FtpOptions upload;
  qs::FtpOptions ls;
  std::vector<std::string> urls;
  qs::HostOptions host;
  qs::XPathOptions xpath;
  qs::ZipOptions zip;
  qs::UnzipOptions unzip;
  bool verbose = false;
  bool hmac = false;
  unsigned int memoryLimit = kDefaultMemory;
};

// Starts and stops the library for transfers. Before the log: what the sockets say of themselves is of no interest.
class Session {
 public:
  Session() { InitBase(1); }
  ~Session() { InitBase(2); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
};

std::string VersionText() {
  std::string curl;
  std::string ssl;
  QsGetCurlOpenSSLVersions(curl, ssl);
  return "qs " QSBASE_VERSION_STRING " (libcurl " + curl + ", SSL " + ssl + ")";
}

// The library's view of the file system: the parser's own takes names in another encoding on Windows.
std::string MissingFile(const std::string& path) {
  const auto type = QsGetFSObjectType(path);
  return type == FSO_NOTHING || type == FSO_DIRECTORY ? "no such file: " + path : "";
}

std::string MissingFolder(const std::string& path) {
  return QsGetFSObjectType(path) == FSO_DIRECTORY ? "" : "no such folder: " + path;
}

void AddLogOptions(CLI::App& command, int& level, bool& quiet, bool& verbose) {
  command.add_option("--level", level, "Log level: messages up to this detail are logged (0 to 99)")
      ->check(CLI::Range(0, 99))
      ->type_name("N");
  command.add_flag("-v,--verbose", verbose, "The same as --level 4: what the servers answer is logged too");
  command.add_flag("-q,--quiet", quiet, "No progress and no log lines on the console, the table only");
}

void AddFetch(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("fetch", "Fetch URLs, decode and check their attachments, store them");
  command->footer(
      "Mail and news articles and bare encoded texts are taken apart: yEnc (several parts too), UU, XX, Base64,\n"
      "quoted-printable, BinHex, MIME multipart. Anything else is stored as it came. A damaged attachment is\n"
      "reported and not stored. An existing file is never replaced.\n"
      "Exit codes: 0 all is well, 1 an item failed, 2 bad usage, 130 interrupted.");
  qs::FetchOptions& fetch = options.fetch;
  command->add_option("URL", fetch.urls, "http and https URLs")->required();
  command->add_option("-o,--output", fetch.outputFolder, "Folder for the files, made when missing (default: here)")
      ->type_name("DIR");
  command->add_option("--log", options.log.folder, "Write a log file qs.log in this folder; old ones go to backup/")
      ->type_name("DIR");
  AddLogOptions(*command, options.log.level, options.log.quiet, options.verbose);
  command->add_option("--user", fetch.transfer.user, "User name for the servers")->type_name("NAME");
  command->add_option("--password", fetch.transfer.password, "Password for the servers")->type_name("TEXT");
  command->add_option("--proxy", fetch.transfer.proxy, "HTTP proxy, as host:port or URL")->type_name("PROXY");
  command->add_option("--proxy-user", fetch.transfer.proxyUser, "User name for the proxy")->type_name("NAME");
  command->add_option("--proxy-password", fetch.transfer.proxyPassword, "Password for the proxy")->type_name("TEXT");
  command
      ->add_option("--ca", fetch.transfer.caFile,
                   "Trust the certificate authorities in this PEM file only (default: the system's)")
      ->check(&MissingFile)
      ->type_name("FILE");
  command->add_flag("--insecure", fetch.transfer.insecure, "Do not verify certificates and host names (dangerous)");
  command->add_flag("--resume", fetch.resume,
                    "Keep NAME.part of a transfer that was cut off, and go on with one that is there");
  command->add_option("--timeout", fetch.transfer.connectTimeout, "Seconds to wait for a connection (default: 30)")
      ->check(CLI::Range(1, 86400))
      ->type_name("SECONDS");
  command
      ->add_option("--memory", options.memoryLimit,
                   "Look into content of at most so many MiB (default: " + std::to_string(kDefaultMemory) + ")")
      ->check(CLI::Range(1U, kMaxMemory))
      ->type_name("MIB");
}

void AddDemo(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("demo", "Serve example articles on 127.0.0.1 and fetch all of them");
  command->add_option("--data", options.demo.articles, "Folder of the articles (default: the examples)")
      ->check(&MissingFolder)
      ->type_name("DIR");
  command->add_option("-o,--output", options.demo.outputFolder, "Folder for files and log (default: a temporary one)")
      ->type_name("DIR");
  AddLogOptions(*command, options.demo.level, options.demo.quiet, options.verbose);
  command->footer("Exit code 0 when every article is as expected: those named damaged-* reported, all others stored.");
}

CLI::Option_group* AddCodecs(CLI::App& command, qs::CodeOptions& code) {
  CLI::Option_group* group = command.add_option_group("Encoding");
  const auto flag = [group, &code](const char* name, qs::Codec codec, const char* help) {
    group->add_flag_callback(
        name, [&code, codec] { code.codec = codec; }, help);
  };
  flag("--base64", qs::Codec::Base64, "Base64 (RFC 2045)");
  flag("--qp", qs::Codec::QuotedPrintable, "Quoted-printable (RFC 2045)");
  flag("--uu", qs::Codec::UU, "UU");
  flag("--xx", qs::Codec::XX, "XX");
  flag("--yenc", qs::Codec::YEnc, "yEnc 1.3");
  return group;
}

void AddFiles(CLI::App& command, qs::CodeOptions& code, const char* outputHelp) {
  command.add_option("FILE", code.input, "Input, \"-\" for standard input (default)");
  command.add_option("-o,--output", code.output, outputHelp)->type_name("FILE");
}

void AddEncode(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("encode", "Encode a file or standard input");
  AddCodecs(*command, options.encode)->require_option(1);
  AddFiles(*command, options.encode, "Output, replaced in one step (default: standard output)");
  command->add_option("--name", options.encode.name, "Name for the yEnc header; UU and XX get begin and end lines")
      ->type_name("NAME");
  command->add_option("--line-length", options.encode.lineLength, "Longest line of Base64, quoted-printable and yEnc")
      ->check(CLI::Range(21, 998))
      ->type_name("N");
  command->add_flag("--text", options.encode.text, "Quoted-printable: line breaks stay line breaks");
  command->add_flag("--lf", options.encode.plainLineFeeds, "End lines with LF instead of CR LF");
}

void AddDecode(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("decode", "Decode a file or standard input, finding out its encoding");
  CLI::Option_group* codecs = AddCodecs(*command, options.decode);
  codecs->add_flag_callback(
      "--binhex", [&options] { options.decode.codec = qs::Codec::BinHex; }, "BinHex 4.0");
  codecs->require_option(0, 1);
  AddFiles(*command, options.decode,
           "Output, replaced in one step, or an existing folder for all attachments (default: standard output)");
}

void AddHash(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("hash", "MD5, CRC-32 or HMAC-MD5 of files, in the form of md5sum");
  CLI::Option_group* group = command->add_option_group("Digest");
  group->add_flag_callback(
      "--md5", [&options] { options.hash.digest = qs::Digest::MD5; }, "MD5 (default)");
  group->add_flag_callback(
      "--crc32", [&options] { options.hash.digest = qs::Digest::CRC32; }, "CRC-32");
  group
      ->add_option_function<std::string>(
          "--hmac-key",
          [&options](const std::string& key) {
            options.hash.digest = qs::Digest::HMAC;
            options.hash.key = key;
          },
          "HMAC-MD5 with this key")
      ->type_name("TEXT");
  group->require_option(0, 1);
  command->add_option("FILE", options.hash.inputs, "Inputs, \"-\" for standard input (default)");
}

void AddFtpLogin(CLI::App& command, qs::FtpOptions& options) {
  command.add_option("--user", options.user, "User name, instead of the URL's (default: anonymous)")->type_name("NAME");
  command.add_option("--password", options.password, "Password, instead of the URL's")->type_name("TEXT");
}

void AddUpload(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("upload", "Upload files to a directory of an FTP server");
  command->footer(
      "The directory is made when missing; it is below the one that the log-in leads to, or below the root when it\n"
      "begins with %2F. A file of the same name there is replaced. Ctrl-C stops when the file on its way has arrived.\n"
      "Exit codes: 0 all is well, 1 a file failed, 2 bad usage, 130 interrupted.");
  command
      ->add_option("FILE... URL", options.uploadWords, "Files, and behind them ftp://[USER[:PASSWORD]@]HOST[:PORT]/DIR")
      ->required();
  AddFtpLogin(*command, options.upload);
  command->add_option("--log", options.log.folder, "Write a log file qs.log in this folder; old ones go to backup/")
      ->type_name("DIR");
  AddLogOptions(*command, options.log.level, options.log.quiet, options.verbose);
}

void AddLs(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("ls", "List the names in a directory of an FTP server");
  command->add_option("URL", options.ls.url, "ftp://[USER[:PASSWORD]@]HOST[:PORT]/DIR")->required();
  AddFtpLogin(*command, options.ls);
}

void AddHost(CLI::App& app, Options& options) {
  CLI::App* command =
      app.add_subcommand("host", "Show names, user and network adapters of this machine, or the addresses of a name");
  command->add_option("NAME", options.host.name, "Look up the IPv4 addresses of this host");
  command->footer("Exit codes: 0 all is well, 1 the name has no address or the system does not tell, 2 bad usage.");
}

void AddUrl(CLI::App& app, Options& options) {
  CLI::App* command =
      app.add_subcommand("url", "Show the parts and the normal form of URLs, and whether they are valid");
  command->add_option("TEXT", options.urls, "URLs; what they lack is not shown")->required();
  command->footer(
      "Valid are http and https URLs of the strict form: no \"~\", no \"#\", no password, a \"/\" before the \"?\".\n"
      "Others may well work. The normal form is for comparing URLs, not for fetching.\n"
      "Exit codes: 0 all are valid, 1 one is not, 2 bad usage.");
}

void AddXPath(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("xpath", "Print what an XPath expression finds in an XML file");
  command->add_option("EXPR", options.xpath.expression, "XPath 1.0, such as //title or /a/b/@c")->required();
  command->add_option("FILE", options.xpath.input, "XML, \"-\" for standard input (default)");
  command->footer(
      "Attributes are printed as their values, other nodes as XML, one after the other, in UTF-8. Nothing else is "
      "read\n"
      "for the file: neither external entities nor the network.\n"
      "Exit codes: 0 something was found, 1 nothing was found or the file is no XML, 2 bad usage.");
}

void AddZip(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("zip", "Write files and folders to a zip archive, replacing it in one step");
  command->add_option("ARCHIVE", options.zip.archive, "The archive")->required();
  command->add_option("FILE", options.zip.inputs, "Files, and folders with all that is in them")->required();
  command->add_flag("-q,--quiet", options.zip.quiet, "No progress");
}

void AddUnzip(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("unzip", "Extract a zip archive; nothing is written outside the folder");
  command->add_option("ARCHIVE", options.unzip.archive, "The archive")->required();
  command->add_option("-d,--directory", options.unzip.outputFolder, "Folder to extract to (default: here)")
      ->type_name("DIR");
  command->add_flag("-l,--list", options.unzip.list, "List the files instead");
  command->add_flag("-q,--quiet", options.unzip.quiet, "No progress");
}

// The parser gives all words to the first positional that takes several.
void TakeUrlFromWords(const std::vector<std::string>& words, qs::FtpOptions& options) {
  if (!words.empty()) {
    options.files.assign(words.begin(), words.end() - 1);
    options.url = words.back();
  }
}

// What the parser cannot check by itself.
std::string UsageProblem(const CLI::App& app, const Options& options) {
  if (app.got_subcommand("upload")) {
    return options.upload.files.empty() ? "files and a URL are needed" : qs::FtpUsageProblem(options.upload);
  }
  if (app.got_subcommand("ls")) {
    return qs::FtpUsageProblem(options.ls);
  }
  if (!app.got_subcommand("encode")) {
    return {};
  }
  const qs::CodeOptions& code = options.encode;
  const bool uue = code.codec == qs::Codec::UU || code.codec == qs::Codec::XX;
  if (uue && code.lineLength != 0) {
    return "the lines of UU and XX have a fixed length";
  }
  if (code.codec == qs::Codec::Base64 && code.lineLength % 4 != 0) {
    return "a Base64 line length must be a multiple of 4";
  }
  if (code.text && code.codec != qs::Codec::QuotedPrintable) {
    return "--text goes with --qp only";
  }
  if (code.name.find_first_of("\r\n") != std::string::npos) {
    return "a name cannot hold line breaks";
  }
  return {};
}

// A transfer that is logged and may be interrupted.
template <typename Run>
int RunLogged(const qs::LogOptions& log, Run run) {
  qs::CatchInterrupts();
  const Session session;
  const std::string problem = qs::StartLog(log);
  return problem.empty() ? run() : qs::Fail(problem);
}

int RunCommand(const CLI::App& app, Options& options) {
  constexpr int kVerboseLevel = 4;
  if (options.verbose) {
    options.log.level = std::max(options.log.level, kVerboseLevel);
    options.demo.level = std::max(options.demo.level, kVerboseLevel);
  }
  if (app.got_subcommand("fetch")) {
    options.fetch.quiet = options.log.quiet;
    options.fetch.memoryLimit = std::uint64_t{options.memoryLimit} << 20;
    return RunLogged(options.log, [&] { return qs::RunFetch(options.fetch); });
  }
  if (app.got_subcommand("demo")) {
    qs::CatchInterrupts();
    const Session session;
    return qs::RunDemo(options.demo);
  }
  if (app.got_subcommand("encode")) {
    return qs::RunEncode(options.encode);
  }
  if (app.got_subcommand("decode")) {
    return qs::RunDecode(options.decode);
  }
  if (app.got_subcommand("upload")) {
    options.upload.quiet = options.log.quiet;
    return RunLogged(options.log, [&] { return qs::RunUpload(options.upload); });
  }
  if (app.got_subcommand("ls")) {
    const Session session;
    return qs::RunLs(options.ls);
  }
  if (app.got_subcommand("host")) {
    const Session session;
    return qs::RunHost(options.host);
  }
  if (app.got_subcommand("sysinfo")) {
    return qs::RunSysinfo();
  }
  if (app.got_subcommand("xpath")) {
    return qs::RunXPath(options.xpath);
  }
  if (app.got_subcommand("url")) {
    return qs::RunUrl(options.urls);
  }
  if (app.got_subcommand("zip")) {
    qs::CatchInterrupts();
    return qs::RunZip(options.zip);
  }
  if (app.got_subcommand("unzip")) {
    qs::CatchInterrupts();
    return qs::RunUnzip(options.unzip);
  }
  if (options.hash.inputs.empty()) {
    options.hash.inputs = {"-"};
  }
  return qs::RunHash(options.hash);
}

// What is still in the stream's buffer may find no room, too.
int WithOutput(int code) { return code != qs::kExitGood || qs::FlushOutput() ? code : qs::kExitFailed; }

int ParseAndRun(int argc, char** argv) {
  Options options;
  CLI::App app("Fetches articles, decodes and checks their attachments and stores them.", "qs");
  app.set_version_flag("--version", VersionText);
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // "/a.txt" is a file everywhere
  AddFetch(app, options);
  AddDemo(app, options);
  AddEncode(app, options);
  AddDecode(app, options);
  AddHash(app, options);
  AddZip(app, options);
  AddUnzip(app, options);
  AddUpload(app, options);
  AddLs(app, options);
  AddHost(app, options);
  app.add_subcommand("sysinfo", "Show the system, its processors, memory and file systems");
  AddUrl(app, options);
  AddXPath(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // --help and --version
      return WithOutput(app.exit(error));
    }
    qs::PrintError(std::string(error.what()) + " (see qs --help)");
    return qs::kExitUsage;
  }
  TakeUrlFromWords(options.uploadWords, options.upload);
  if (const std::string problem = UsageProblem(app, options); !problem.empty()) {
    qs::PrintError(problem);
    return qs::kExitUsage;
  }
  return WithOutput(RunCommand(app, options));
}

// The text of an error takes memory, too.
int RunOrTell(int argc, char** argv) {
  try {
    return ParseAndRun(argc, argv);
  } catch (const ExBase& error) {
    return qs::Fail(error.GetErrorText());
  }
}

// Where there may be no memory for a string.
int FailPlainly(const char* problem) {
  std::fprintf(stderr, "qs: %s\n", problem);
  return qs::kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  const qs::Utf8Console console;
  try {
    return RunOrTell(argc, argv);
  } catch (const std::bad_alloc&) {
    return FailPlainly(kNoMemory);
  } catch (const std::length_error&) {  // of a string, before the memory is even asked for
    return FailPlainly(kNoMemory);
  } catch (const std::exception& error) {
    return FailPlainly(error.what());
  }
}
