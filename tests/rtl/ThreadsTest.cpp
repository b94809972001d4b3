#include <ostrel/rtl/Threads.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace ostrel {
namespace {

// Leaves nothing queued for the next test.
void Drain() {
  while (CheckSynchronize()) {
  }
}

TEST(MainThreadQueue, SynchronizeRunsOnTheMainThreadWaitsAndCarriesExceptionsBack) {
  std::thread::id ranOn;
  std::string seen;
  std::atomic<bool> back{false};
  std::thread worker([&] {
    int value = 0;
    TThread::Synchronize([&] {
      ranOn = std::this_thread::get_id();
      value = 42;
    });
    seen = std::to_string(value);  // the work has run by the time Synchronize returns
    try {
      TThread::Synchronize([] { throw EConvertError("'x' is not a valid integer value"); });
    } catch (const EConvertError& e) {  // the very class, not a copy as Exception
      seen += std::string(" ") + e.ClassName() + ": " + e.Message();
    }
    try {
      TThread::Synchronize([] { throw std::out_of_range("plain C++"); });
    } catch (const std::out_of_range& e) {
      seen += std::string(" / ") + e.what();
    }
    back = true;
  });
  testutil::ServeUntil([&] { return back.load(); });
  worker.join();
  EXPECT_EQ(ranOn, MainThreadID());
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_EQ(seen, "42 EConvertError: 'x' is not a valid integer value / plain C++");
}

TEST(MainThreadQueue, OnTheMainThreadWorkRunsAtOnce) {
  int ran = 0;
  TThread::Synchronize([&] { ++ran; });
  TThread::Queue([&] { ++ran; });
  EXPECT_EQ(ran, 2);
  EXPECT_FALSE(CheckSynchronize());
  TThread::ForceQueue([&] { ++ran; });  // ... unless forced into the queue
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(CheckSynchronize());
  EXPECT_EQ(ran, 3);
  EXPECT_EQ(
      testutil::MessageOf<EThread>([] { TThread::Synchronize([] { throw EThread("inner"); }); }),
      "inner");
}

TEST(MainThreadQueue, OnlyTheMainThreadRunsTheQueue) {
  std::string message;
  int ran = 0;
  std::thread worker([&] {
    message = testutil::MessageOf<EThread>([] { CheckSynchronize(); });
    TThread::Queue([&] { ++ran; });
    Application::ProcessMessages();  // a worker has nothing to pump
  });
  worker.join();
  EXPECT_EQ(message, "CheckSynchronize called from a thread that is not the main thread");
  EXPECT_EQ(ran, 0);
  Application::ProcessMessages();
  EXPECT_EQ(ran, 1);
}

TEST(MainThreadQueue, AsynchronousWorkRunsInOrderAndAFailureLeavesTheRestQueued) {
  std::string log;
  TThread::ForceQueue([&] { log += "a"; });
  TThread::ForceQueue([&] {
    log += "b";
    throw EAbort("stop");
  });
  TThread::ForceQueue([&] {
    log += "c";
    TThread::ForceQueue([&] { log += "e"; });  // queued while running: waits for the next call
  });
  TThread::ForceQueue([&] { log += "d"; });
  EXPECT_EQ(testutil::MessageOf<EAbort>([] { CheckSynchronize(); }), "stop");
  EXPECT_EQ(log, "ab");
  EXPECT_TRUE(CheckSynchronize());
  EXPECT_EQ(log, "abcd");
  EXPECT_TRUE(CheckSynchronize());
  EXPECT_EQ(log, "abcde");
  EXPECT_FALSE(CheckSynchronize());
}

TEST(MainThreadQueue, RemovedWorkNeverRunsEvenWhenRemovedByEarlierWork) {
  std::string log;
  int tagA = 0, tagB = 0;
  TThread::ForceQueue([&] { log += "1"; }, &tagA);
  TThread::ForceQueue([&] { log += "2"; }, &tagB);
  TThread::ForceQueue([&] { log += "3"; });
  TThread::RemoveQueuedEvents(&tagA);
  CheckSynchronize();
  TThread::ForceQueue([&] {
    log += "4";
    TThread::RemoveQueuedEvents(&tagB);
  });
  TThread::ForceQueue([&] { log += "5"; }, &tagB);
  TThread::ForceQueue([&] { log += "6"; });
  CheckSynchronize();
  EXPECT_EQ(log, "2346");
}

TEST(MainThreadQueue, WaitingSleepsUntilWorkArrivesAndWakesTheEventLoop) {
  EXPECT_FALSE(CheckSynchronize(1));  // nothing queued: returns after the time-out
  std::atomic<int> wakes{0};
  TWakeMainThread old = SetWakeMainThread([&] { ++wakes; });
  std::atomic<bool> ran{false};
  std::thread worker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    TThread::Queue([&] { ran = true; });
  });
  EXPECT_TRUE(CheckSynchronize(10000));  // returns as soon as the work is there and has run
  worker.join();
  EXPECT_TRUE(ran);
  EXPECT_EQ(wakes, 1);
  EXPECT_FALSE(SetWakeMainThread(old) == nullptr);
  TThread::ForceQueue([] {});
  EXPECT_EQ(wakes, 1);  // removed
  Drain();
}

class TCountingThread : public TThread {
 public:
  TCountingThread(bool suspended, std::function<void(TCountingThread&)> body)
      : TThread(true), fBody(std::move(body)) {
    if (!suspended) Start();
  }
  ~TCountingThread() override {
    Terminate();
    WaitFor();  // before fBody goes
  }
  void SetReturnValue(Integer v) { ReturnValue = v; }

 protected:
  void Execute() override { fBody(*this); }

 private:
  std::function<void(TCountingThread&)> fBody;
};

TEST(Thread, RunsExecuteAndGivesItsResultAndItsFailure) {
  std::thread::id ranOn;
  TCountingThread t(true, [&](TCountingThread& self) {
    ranOn = std::this_thread::get_id();
    self.SetReturnValue(7);
  });
  EXPECT_EQ(testutil::MessageOf<EThread>([&] { t.WaitFor(); }),
            "Thread Error: the thread was never started");
  t.Start();
  EXPECT_EQ(t.WaitFor(), 7);
  EXPECT_TRUE(t.Finished());
  EXPECT_NE(ranOn, std::this_thread::get_id());
  EXPECT_EQ(t.WaitFor(), 7);  // again: still the result
  EXPECT_EQ(testutil::MessageOf<EThread>([&] { t.Start(); }),
            "Cannot call Start on a running or terminated thread");

  TCountingThread failing(false, [](TCountingThread&) { throw EConvertError("bad"); });
  failing.WaitFor();
  ASSERT_TRUE(failing.FatalException());
  EXPECT_EQ(
      testutil::MessageOf<EConvertError>([&] { std::rethrow_exception(failing.FatalException()); }),
      "bad");
}

TEST(Thread, WaitingOnTheMainThreadServesSynchronizeButKeepsQueuedWork) {
  std::string log;
  std::atomic<bool> queued{false};
  auto t = std::make_unique<TCountingThread>(false, [&](TCountingThread& self) {
    TThread::Queue([&] { log += "q"; });
    queued = true;
    while (!self.Terminated()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    TThread::Synchronize([&] { log += "s"; });  // the main thread is inside WaitFor by now
  });
  while (!queued) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  t.reset();  // terminates and waits, running the synchronised work meanwhile
  EXPECT_EQ(log, "s");
  CheckSynchronize();
  EXPECT_EQ(log, "sq");
}

TEST(Thread, ManyThreadsSynchronizingAtOnceAllGetTheirTurn) {
  int counter = 0;  // touched on the main thread only
  std::vector<std::unique_ptr<TCountingThread>> threads;
  for (int i = 0; i < 4; ++i)
    threads.push_back(std::make_unique<TCountingThread>(false, [&](TCountingThread&) {
      for (int k = 0; k < 50; ++k) TThread::Synchronize([&] { ++counter; });
    }));
  for (auto& t : threads) t->WaitFor();
  EXPECT_EQ(counter, 200);
}

}  // namespace
}  // namespace ostrel
