// A manager is told of the threads that run under it: here it counts them, so that nobody polls for their end.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

class Crew : public QsThreadManagerIntf {
 public:
  explicit Crew(int size) : _atWork(true, false), _home(true, false), _awaited(size) {}

  // Both run on the thread in question, several at once.
  void ThreadAdded(int threadId) override {
    const QsCriticalSectionAutoPtr guard(&_lock);
    _present.insert(threadId);
    ++_count;
    if (_count == _awaited) {
      _atWork.SetEvent();
    }
  }
  void ThreadRemoved(int threadId) override {
    const QsCriticalSectionAutoPtr guard(&_lock);
    _present.erase(threadId);
    if (_count == _awaited && _present.empty()) {
      _home.SetEvent();
    }
  }

  bool WaitUntilAtWork(int timeoutMs) { return _atWork.WaitFor(timeoutMs) == WaitResult::Signaled; }
  bool WaitUntilHome(int timeoutMs) { return _home.WaitFor(timeoutMs) == WaitResult::Signaled; }

 private:
  QsCriticalSection _lock;
  QsEvent _atWork;  // all have come
  QsEvent _home;    // and all have gone
  std::set<int> _present;
  const int _awaited;
  int _count = 0;
};

class Member : public QsThread {
 public:
  Member(const std::string& name, Crew& crew, QsEvent& end) : QsThread(name, &crew), _end(end) {}
  void Execute() override { _end.WaitFor(-1); }

 private:
  QsEvent& _end;
};

int main() {
  QsEvent end(true, false);
  Crew crew(3);
  std::vector<std::unique_ptr<Member>> members;
  for (const char* name : {"cook", "mate", "captain"}) {
    members.push_back(std::make_unique<Member>(name, crew, end));
    members.back()->Create();
  }
  std::printf("at work: %s\n", crew.WaitUntilAtWork(10000) ? "all" : "not all");

  std::map<int, std::string> threads;
  QsGetThreadList(threads);
  std::set<std::string> names;
  for (const auto& [id, name] : threads) {
    names.insert(name);
  }
  for (const std::string& name : names) {
    std::printf("- %s\n", name.c_str());
  }

  end.SetEvent();
  std::printf("home: %s\n", crew.WaitUntilHome(10000) ? "all" : "not all");
  for (const auto& member : members) {
    member->WaitFor(-1);  // the thread itself, which ends a little after it told the manager
  }
}
