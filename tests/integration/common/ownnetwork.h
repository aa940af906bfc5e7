/// \file
/// A network, host name and resolver configuration of the test's own, in namespaces of the kernel.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_OWNNETWORK_H
#define QSBASE_TESTS_INTEGRATION_COMMON_OWNNETWORK_H

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <common/tempdir.h>
#include <integration/common/childprocess.h>

namespace qsbase::testing {

/// For the calling thread and whatever it starts from then on. Skips the test where the system grants no namespaces;
/// with them, anything that does not work is a failure.
class OwnNetwork : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0 || unshare(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS) != 0) {
      GTEST_SKIP() << "only root can make namespaces, and not in every container";
    }
    Mount(nullptr, "/", MS_REC | MS_PRIVATE);
    Mount(_dir.Write("hosts", "127.0.0.1 localhost\n::1 localhost\n").c_str(), "/etc/hosts", MS_BIND);
    Mount(_dir.Write("resolv.conf", "").c_str(), "/etc/resolv.conf", MS_BIND);
    Ip("link set lo up");
  }

  /// Runs the command ip.
  void Ip(const std::string& arguments) const { RunTool(_dir, {"sh", "-c", "ip " + arguments}); }

  /// The files that stand in the place of those in /etc.
  void SetHosts(const std::string& content) const { _dir.Write("hosts", content); }
  void SetResolver(const std::string& content) const { _dir.Write("resolv.conf", content); }

  const TempDir _dir;

 private:
  static void Mount(const char* what, const char* where, unsigned long flags) {
    if (mount(what, where, nullptr, flags, nullptr) != 0) {
      throw std::runtime_error(std::string("cannot mount ") + where);
    }
  }
};

}  // namespace qsbase::testing

#endif
