// The main thread's work queue and TThread.
#include <ostrel/rtl/Threads.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace ostrel {

OSTREL_DEFINE_CLASS(TThread)
namespace {

// The thread that loads the library is the main thread, as in the classic runtime.
const std::thread::id gMainThreadID = std::this_thread::get_id();

// One piece of work for the main thread. Synchronous work has a waiter, whose thread sleeps
// until Done is set and then raises Error, if any.
struct SyncWaiter {
  bool Done = false;
  std::exception_ptr Error;
  std::condition_variable Cv;
};

struct SyncEntry {
  UInt64 Seq = 0;
  TThreadMethod Method;
  const void* Tag = nullptr;
  SyncWaiter* Waiter = nullptr;
};

// The queue and the one condition the main thread sleeps on: "work arrived" or "a thread
// that WaitFor watches has finished".
struct SyncQueue {
  std::mutex Lock;
  std::condition_variable WorkArrived;
  std::deque<SyncEntry> Entries;
  UInt64 NextSeq = 1;
  std::mutex WakeLock;
  TWakeMainThread Wake;
};

SyncQueue& TheQueue() {
  // Never destroyed: worker threads may still queue while the process is ending.
  static SyncQueue* queue = new SyncQueue;
  return *queue;
}

void Enqueue(TThreadMethod method, const void* tag, SyncWaiter* waiter) {
  SyncQueue& q = TheQueue();
  {
    std::lock_guard lock(q.Lock);
    q.Entries.push_back(SyncEntry{q.NextSeq++, std::move(method), tag, waiter});
  }
  q.WorkArrived.notify_all();
  TWakeMainThread wake;
  {
    std::lock_guard lock(q.WakeLock);
    wake = q.Wake;
  }
  if (wake) wake();
}

// Runs one entry on the main thread. Synchronous work hands its outcome to its waiter;
// an exception from asynchronous work goes to the caller.
void RunEntry(SyncEntry& entry) {
  if (!entry.Waiter) {
    entry.Method();
    return;
  }
  std::exception_ptr error;
  try {
    entry.Method();
  } catch (...) {
    error = std::current_exception();
  }
  SyncQueue& q = TheQueue();
  std::lock_guard lock(q.Lock);
  entry.Waiter->Error = std::move(error);  // the waiting thread alone holds it from now on
  entry.Waiter->Done = true;
  entry.Waiter->Cv.notify_one();
}

// Takes the first synchronous entry out of the queue; false when there is none.
bool TakeSynchronous(SyncQueue& q, SyncEntry& entry) {
  for (auto it = q.Entries.begin(); it != q.Entries.end(); ++it)
    if (it->Waiter) {
      entry = std::move(*it);
      q.Entries.erase(it);
      return true;
    }
  return false;
}

}  // namespace

bool IsMainThread() noexcept { return std::this_thread::get_id() == gMainThreadID; }
std::thread::id MainThreadID() noexcept { return gMainThreadID; }

bool CheckSynchronize(Integer timeoutMs) {
  if (!IsMainThread())
    throw EThread("CheckSynchronize called from a thread that is not the main thread");
  SyncQueue& q = TheQueue();
  UInt64 last = 0;
  {
    std::unique_lock lock(q.Lock);
    auto ready = [&] { return !q.Entries.empty(); };
    if (timeoutMs < 0)
      q.WorkArrived.wait(lock, ready);
    else if (timeoutMs > 0)
      q.WorkArrived.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready);
    if (q.Entries.empty()) return false;
    last = q.Entries.back().Seq;
  }
  // Entries are taken one at a time, so that work removed meanwhile (RemoveQueuedEvents from
  // running work, say when a control is destroyed) never runs.
  for (;;) {
    SyncEntry entry;
    {
      std::lock_guard lock(q.Lock);
      if (q.Entries.empty() || q.Entries.front().Seq > last) break;
      entry = std::move(q.Entries.front());
      q.Entries.pop_front();
    }
    RunEntry(entry);
  }
  return true;
}

TWakeMainThread SetWakeMainThread(TWakeMainThread wake) {
  SyncQueue& q = TheQueue();
  std::lock_guard lock(q.WakeLock);
  std::swap(q.Wake, wake);
  return wake;
}

// ---------------------------------------------------------------------------------------
// TThread

void TThread::Synchronize(const TThreadMethod& method) {
  if (IsMainThread()) {
    method();
    return;
  }
  SyncWaiter waiter;
  Enqueue(method, nullptr, &waiter);
  SyncQueue& q = TheQueue();
  std::unique_lock lock(q.Lock);
  waiter.Cv.wait(lock, [&] { return waiter.Done; });
  lock.unlock();
  if (waiter.Error) std::rethrow_exception(waiter.Error);
}

void TThread::Queue(TThreadMethod method, const void* tag) {
  if (IsMainThread())
    method();
  else
    Enqueue(std::move(method), tag, nullptr);
}

void TThread::ForceQueue(TThreadMethod method, const void* tag) {
  Enqueue(std::move(method), tag, nullptr);
}

void TThread::RemoveQueuedEvents(const void* tag) {
  SyncQueue& q = TheQueue();
  std::lock_guard lock(q.Lock);
  // Synchronous work is never dropped: its thread waits for it.
  std::erase_if(q.Entries, [&](const SyncEntry& e) { return !e.Waiter && e.Tag == tag; });
}

TThread::TThread(bool createSuspended) {
  if (!createSuspended) Start();
}

TThread::~TThread() {
  if (!fThread.joinable()) return;
  Terminate();
  // A thread that frees itself cannot wait for itself.
  if (std::this_thread::get_id() == fThreadID)
    fThread.detach();
  else
    WaitFor();
}

void TThread::Start() {
  if (fThread.joinable() || fFinished)
    throw EThread("Cannot call Start on a running or terminated thread");
  fThread = std::thread([this] { Run(); });
  fThreadID = fThread.get_id();
}

void TThread::Run() noexcept {
  try {
    Execute();
  } catch (...) {
    fFatalException = std::current_exception();
  }
  SyncQueue& q = TheQueue();
  {
    // Set under the queue's lock so that a main thread in WaitFor cannot miss it.
    std::lock_guard lock(q.Lock);
    fFinished = true;
  }
  q.WorkArrived.notify_all();
}

void TThread::Terminate() noexcept { fTerminated = true; }
bool TThread::Terminated() const noexcept { return fTerminated; }
bool TThread::Finished() const noexcept { return fFinished; }

Integer TThread::WaitFor() {
  if (!fThread.joinable()) {
    if (fFinished) return ReturnValue;
    throw EThread("Thread Error: the thread was never started");
  }
  if (std::this_thread::get_id() == fThreadID)
    throw EThread("Thread Error: a thread cannot wait for itself");
  if (IsMainThread()) {
    // Serve the synchronous work meanwhile: the thread may be waiting in Synchronize. Other
    // work keeps its place for the next CheckSynchronize (it may raise; running it here
    // would lose the exception or the wait).
    SyncQueue& q = TheQueue();
    std::unique_lock lock(q.Lock);
    for (;;) {
      SyncEntry entry;
      q.WorkArrived.wait(lock, [&] { return fFinished || TakeSynchronous(q, entry); });
      if (!entry.Waiter) break;
      lock.unlock();
      RunEntry(entry);
      lock.lock();
    }
  }
  fThread.join();
  return ReturnValue;
}

// ---------------------------------------------------------------------------------------

void Application::ProcessMessages() {
  if (IsMainThread()) CheckSynchronize();
}

}  // namespace ostrel
