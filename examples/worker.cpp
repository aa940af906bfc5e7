// A worker: other threads post jobs to its queue, and it does one after the other.
#include <QSbase/qsbase.h>

#include <cstdio>

enum { kQuit = 18, kAdd = 1024, kReport };

class Adder : public QsThreadMQ {
 public:
  Adder() : QsThreadMQ("adder", nullptr), _reported(false, false) {}

  bool Add(unsigned int number) { return PostMsg(kAdd, number, 0); }

  // Waits until everything that was posted before is added.
  unsigned int Total() {
    if (PostMsg(kReport, 0, 0)) {
      _reported.WaitFor(-1);
    }
    return _total;
  }

  void Execute() override {
    QsMSG msg;
    while (GetMsg(msg, 0, 0) && msg.message != kQuit) {
      if (msg.message == kAdd) {
        _total += msg.wParam;
      } else if (msg.message == kReport) {
        _reported.SetEvent();
      }
    }
  }

  void AtTermination() override { std::printf("adder: no more\n"); }

 private:
  QsEvent _reported;
  unsigned int _total = 0;  // the worker's, but for who has just been told
};

int main() {
  Adder adder;
  adder.Create();
  for (unsigned int number = 1; number <= 100; ++number) {
    adder.Add(number);
  }
  std::printf("total: %u\n", adder.Total());
  adder.TerminateAndQuit();
  adder.WaitFor(-1);
  std::printf("taken after the end: %s\n", adder.Add(1) ? "yes" : "no");
}
