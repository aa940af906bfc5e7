// Uploads files by a queue, over one connection, and tells how it goes.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <string>

class Reporter : public QsFTPQueueCallback {
 public:
  int OnQueueEvent(int, int event, const char* localFile, const char*, const char* errorText) override {
    const std::string name = ExtractFileName(localFile);
    switch (event) {
      case 1:
        if (QsGetFSObjectType(localFile) != FSO_FILE) {
          std::printf("%s: no such file, skipped\n", name.c_str());
          return 3;
        }
        break;
      case 2:
        std::printf("%s: uploaded\n", name.c_str());
        break;
      default:
        std::printf("%s: failed: %s\n", name.c_str(), errorText);
        return 2;  // whoever queues the rest again, begins here
    }
    return 0;
  }
};

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: ftp_upload HOST PORT FILE...\n");
    return 2;
  }
  InitQsInetHttp(1);
  bool done = false;
  {
    QsFTPServer server;
    server.host = argv[1];
    server.port = argv[2];
    server.user = "joe";
    server.password = "secret";
    Reporter reporter;
    QsFTP ftp(server, &reporter);
    for (int index = 3; index < argc; ++index) {
      QueueItem item;
      item.localFile = argv[index];
      item.remoteName = UrlEncode(ExtractFileName(argv[index]).c_str());  // names go into the URL as they are
      item.remoteDir = "incoming";
      ftp.QueueForUpload(item);
    }
    done = ftp.StartUploadQueue();
    const std::string log = ftp.GetFTPLog();
    std::printf("the server said first: %s\n", log.substr(0, log.find('\r')).c_str());
  }
  InitQsInetHttp(2);  // when every QsFTP has gone
  return done ? 0 : 1;
}
