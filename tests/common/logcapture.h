/// \file
/// Collects what the library logs while it lives. One at a time; safe to log from several threads.
#ifndef QSBASE_TESTS_COMMON_LOGCAPTURE_H
#define QSBASE_TESTS_COMMON_LOGCAPTURE_H

#include <QSbase/log/log.h>

#include <mutex>
#include <string>
#include <vector>

namespace qsbase::testing {

class LogCapture {
 public:
  struct Message {
    unsigned int flags;
    std::string text;
  };

  LogCapture() {
    std::lock_guard<std::mutex> lock(Mutex());
    Store().clear();
    SetLogCallback(&Receive);
  }

  ~LogCapture() { DisableLogCallback(&Receive); }

  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<Message> Messages() const {
    std::lock_guard<std::mutex> lock(Mutex());
    return Store();
  }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const Message& message : Messages()) {
      texts.push_back(message.text);
    }
    return texts;
  }

  void Clear() {
    std::lock_guard<std::mutex> lock(Mutex());
    Store().clear();
  }

 private:
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }

  static std::vector<Message>& Store() {
    static std::vector<Message> messages;
    return messages;
  }

  static void Receive(unsigned int flags, const char* text) {
    std::lock_guard<std::mutex> lock(Mutex());
    Store().push_back({flags, text});
  }
};

}  // namespace qsbase::testing

#endif
