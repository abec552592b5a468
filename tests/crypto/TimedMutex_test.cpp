#include "pkcs11/TimedMutex.h"

#include <gtest/gtest.h>

#include <thread>

using velcrypto::TimedMutex;

namespace {

TEST(TimedMutex, IsNotTakenTwice) {
  TimedMutex mutex;
  mutex.lock();
  EXPECT_FALSE(mutex.try_lock_for(std::chrono::milliseconds(1)));
  mutex.unlock();
  EXPECT_TRUE(mutex.try_lock_for(std::chrono::milliseconds(0)));
  mutex.unlock();
}

TEST(TimedMutex, WakesTheOneThatWaits) {
  TimedMutex mutex;
  mutex.lock();
  bool taken = false;
  std::thread waiter([&] {
    taken = mutex.try_lock_for(std::chrono::minutes(1));
    mutex.unlock();
  });
  mutex.unlock();
  waiter.join();
  EXPECT_TRUE(taken);
}

TEST(TimedMutex, KeepsThreadsApart) {
  TimedMutex mutex;
  int sum = 0;
  const auto add = [&] {
    for (int i = 0; i < 1000; ++i) {
      const std::unique_lock<TimedMutex> lock(mutex, std::chrono::minutes(1));
      ++sum;
    }
  };
  std::thread first(add), second(add);
  first.join();
  second.join();
  EXPECT_EQ(sum, 2000);
}

}  // namespace
