#include "pkcs11/Watch.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

using velcrypto::kOk;
using velcrypto::kTimeout;
using velcrypto::Outcome;
using velcrypto::Watch;

namespace {

// Longer than either side stays awake, and than quick work takes.
const std::chrono::milliseconds kLong(5);

Outcome Answer(unsigned long number) {
  return {kOk, number, ""};
}

std::function<Outcome()> Answering(unsigned long number) {
  return [number] { return Answer(number); };
}

// A busy machine may not come to the work in time.
void RunUntilItAnswers(Watch& watch, unsigned long number) {
  Outcome outcome;
  do {
    outcome = watch.Run(Answering(number));
  } while (outcome.code == kTimeout);
  EXPECT_EQ(outcome.native, number);
}

TEST(Watch, WorkAfterQuickWorkAndAfterSlowAndAfterAPauseComesBack) {
  Watch watch(std::chrono::minutes(5));
  unsigned long number = 0;
  for (const bool slow : {false, false, true, true, false, false}) {
    for (const bool pause : {false, true}) {
      if (pause) std::this_thread::sleep_for(kLong);
      const Outcome outcome = watch.Run([&] {
        if (slow) std::this_thread::sleep_for(kLong);
        return Answer(++number);
      });
      EXPECT_TRUE(outcome.ok());
      EXPECT_EQ(outcome.native, number);
    }
  }
  EXPECT_EQ(number, 12u);
}

TEST(Watch, AllWorkIsDoneByOneThread) {
  Watch watch(std::chrono::minutes(5));
  std::vector<std::thread::id> threads;
  for (int i = 0; i < 3; ++i) {
    watch.Run([&] {
      threads.push_back(std::this_thread::get_id());
      return Answer(0);
    });
  }
  EXPECT_NE(threads[0], std::this_thread::get_id());
  EXPECT_EQ(threads, std::vector<std::thread::id>(3, threads[0]));
}

TEST(Watch, WorkThatHangsIsGivenUpHoweverQuickTheWorkBeforeWas) {
  Watch watch(std::chrono::milliseconds(50));
  RunUntilItAnswers(watch, 0);
  RunUntilItAnswers(watch, 0);
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  EXPECT_EQ(watch
                .Run([released] {
                  released.wait();
                  return Answer(0);
                })
                .code,
            kTimeout);
  EXPECT_TRUE(watch.IsStuck());
  EXPECT_EQ(watch.Run(Answering(0)).code, kTimeout) << "nothing comes before it";
  release.set_value();
  RunUntilItAnswers(watch, 7);
  EXPECT_FALSE(watch.IsStuck());
}

TEST(Watch, CallersFromSeveralThreadsGetTheirOwnAnswers) {
  Watch watch(std::chrono::minutes(5));
  const auto call = [&](unsigned long first) {
    for (unsigned long i = first; i < first + 300; ++i) {
      EXPECT_EQ(watch.Run(Answering(i)).native, i);
    }
  };
  std::thread other(call, 1000);
  call(0);
  other.join();
}

TEST(Watch, WorkAfterARestStartsAThread) {
  Watch watch(std::chrono::minutes(5));
  for (unsigned long i = 1; i < 50; ++i) {
    EXPECT_EQ(watch.Run(Answering(i)).native, i);
    watch.Rest();
  }
}

TEST(Watch, WhatWorkOwnsIsGivenBackBeforeItsAnswer) {
  Watch watch(std::chrono::minutes(5));
  for (int i = 0; i < 50; ++i) {
    const auto owned = std::make_shared<int>(0);
    watch.Run([owned] { return Answer(0); });
    EXPECT_EQ(owned.use_count(), 1);
  }
}

}  // namespace
