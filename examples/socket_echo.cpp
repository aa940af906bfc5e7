// A server that sends back what it is sent, and a client of it.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <string>

// Mind that WriteBytes() would begin every piece at the start of the buffer.
bool WriteAll(QsSocket& socket, const char* bytes, int length) {
  for (int done = 0; done < length;) {
    const int count = socket.Write(bytes + done, length - done);
    if (count <= 0) {
      return false;
    }
    done += count;
  }
  return true;
}

bool ReadAll(QsSocket& socket, char* bytes, int length) {
  for (int done = 0; done < length;) {
    const int count = socket.WaitForData(10) == 1 ? socket.Read(bytes + done, length - done) : -1;
    if (count <= 0) {
      return false;
    }
    done += count;
  }
  return true;
}

// The first port that nobody else listens at; -1 without one.
int ListenSomewhere(QsSocket& listener) {
  for (int port = 47000; port < 47100; ++port) {
    if (listener.Bind("127.0.0.1", port) == 0 && listener.Listen(5) == 0) {
      return port;
    }
  }
  return -1;
}

class EchoServer : public QsThread {
 public:
  explicit EchoServer(QsSocket& listener) : QsThread("echo", nullptr), _listener(listener) {}

  void Execute() override {
    QsSocket client;
    if (_listener.WaitForData(10) != 1 || _listener.Accept(client) != 0) {
      return;
    }
    std::printf("connected: %s\n", IPAddress2String(static_cast<unsigned>(client.GetRemoteIP())).c_str());
    char buffer[1024];
    int count = 0;
    while ((count = client.Read(buffer, sizeof buffer)) > 0 && WriteAll(client, buffer, count)) {
    }
    std::printf("the client has gone\n");
  }

 private:
  QsSocket& _listener;
};

int main() {
  InitBase(1);
  QsSocket listener;
  const int port = ListenSomewhere(listener);
  EchoServer server(listener);
  server.Create();
  QsSocket socket;
  const std::string text = "a harbour at dawn";
  const int length = static_cast<int>(text.size());
  std::string echo(text.size(), '?');
  const bool isEchoed = socket.Connect("127.0.0.1", port, 0) == 0 && WriteAll(socket, text.data(), length) &&
                        ReadAll(socket, echo.data(), length);
  socket.Close();
  server.WaitFor(-1);
  std::printf("%s: %s\n", isEchoed ? "echoed" : "failed", echo.c_str());
  InitBase(2);
}
