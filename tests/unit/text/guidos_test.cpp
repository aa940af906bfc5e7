// A program of its own: the first GUID of a process makes the lock of all.
#include <QSbase/text/guid.h>

#include <common/memorylimit.h>
#include <gtest/gtest.h>

#include <exception>

namespace {

using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;

/// Whether Create() has thrown.
bool FailsToCreate(QsGUID& guid) {
  try {
    guid.Create();
    return false;
  } catch (const std::exception&) {
    return true;
  }
}

TEST(QsGUIDLock, WithoutMemoryTheNextOneMakesIt) {
  QsGUID guid;
  largestAllocation = 0;
  const bool failed = FailsToCreate(guid);
  largestAllocation = kNoLimit;
  EXPECT_TRUE(failed);
  EXPECT_FALSE(guid.IsValid());
  ASSERT_FALSE(FailsToCreate(guid)) << "memory is there again";
  EXPECT_TRUE(guid.IsValid());
}

}  // namespace
