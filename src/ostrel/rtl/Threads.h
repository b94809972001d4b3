// Threads and the main thread: TThread, the queue of work that other threads hand to the main
// thread (Synchronize, Queue), CheckSynchronize, and Application::ProcessMessages.
//
// The library's objects with a user interface side (controls, ports' notifications, scanners'
// messages) belong to the main thread: the thread that loaded the library. A worker thread
// never calls into them directly; it queues the work and the main thread runs it when it next
// calls CheckSynchronize or Application::ProcessMessages. Waiting for work never spins: the
// main thread sleeps in CheckSynchronize(timeout) until work arrives, and a program with its
// own event loop installs a wake-up function (SetWakeMainThread) that the queue calls whenever
// work is added.
#pragma once

#include <ostrel/rtl/System.h>

#include <exception>
#include <functional>
#include <thread>

namespace ostrel {

// Raised for a thread used against its rules (started twice, waited for unstarted, the
// main thread's queue run from another thread).
OSTREL_DECLARE_EXCEPTION(EThread, Exception);

// Work for another thread to run.
using TThreadMethod = std::function<void()>;

// Whether the calling thread is the main thread.
OSTREL_API bool IsMainThread() noexcept;
OSTREL_API std::thread::id MainThreadID() noexcept;

// Runs on the main thread the work queued so far (work queued while it runs waits for the
// next call), first waiting up to timeoutMs milliseconds for work when none is queued (a
// negative timeout waits without limit). Returns whether any work ran. Raises EThread when
// called on another thread. An exception from asynchronous work (Queue, a posted message)
// leaves CheckSynchronize, and the work behind it stays queued for the next call; an
// exception from synchronous work is carried back to the thread that waits for it.
OSTREL_API bool CheckSynchronize(Integer timeoutMs = 0);

// Called, on the thread that queues, each time work is added to the main thread's queue: a
// program with its own event loop uses it to wake that loop (which then calls
// CheckSynchronize). Returns the previous function; an empty one removes it.
using TWakeMainThread = std::function<void()>;
OSTREL_API TWakeMainThread SetWakeMainThread(TWakeMainThread wake);

// A thread of execution running Execute. Created suspended or started at once; Start runs a
// suspended one. The destructor terminates the thread and waits for it.
//
// WaitFor (and so the destructor), called on the main thread, runs the synchronous work that
// threads hand to the main thread while it waits, so that a thread inside Synchronize can
// always finish; asynchronous work keeps its place for the next CheckSynchronize.
class OSTREL_API TThread : public TObject {
  OSTREL_CLASS(TThread, TObject)
 public:
  explicit TThread(bool createSuspended);
  ~TThread() override;

  // Starts a suspended thread; raises EThread when it was started already.
  void Start();
  // Asks the thread to stop: sets Terminated, which Execute is expected to watch.
  void Terminate() noexcept;
  bool Terminated() const noexcept;
  bool Finished() const noexcept;
  // Waits until Execute has returned and gives ReturnValue; raises EThread for a thread never
  // started or when called from the thread itself.
  Integer WaitFor();
  // What Execute raised, if anything (it never leaves the thread otherwise).
  std::exception_ptr FatalException() const noexcept { return fFatalException; }
  std::thread::id ThreadID() const noexcept { return fThreadID; }

  // Runs the method on the main thread and returns when it has run; an exception it raises is
  // raised again here. On the main thread the method runs at once. The caller must not hold
  // anything that the main thread needs before it reaches CheckSynchronize.
  static void Synchronize(const TThreadMethod& method);
  // Runs the method on the main thread later, without waiting; on the main thread itself it
  // runs at once. `tag` identifies queued work for RemoveQueuedEvents.
  static void Queue(TThreadMethod method, const void* tag = nullptr);
  // As Queue, but always queued, also on the main thread.
  static void ForceQueue(TThreadMethod method, const void* tag = nullptr);
  // Drops the asynchronous work queued with this tag that has not run yet.
  static void RemoveQueuedEvents(const void* tag);

 protected:
  // The thread's work. An exception it raises ends the thread and is kept in FatalException.
  virtual void Execute() = 0;
  Integer ReturnValue = 0;

 private:
  void Run() noexcept;

  std::thread fThread;
  std::thread::id fThreadID;
  std::exception_ptr fFatalException;
  std::atomic<bool> fTerminated{false};
  std::atomic<bool> fFinished{false};
};

// The application as the main thread's owner.
namespace Application {
// Runs the work queued for the main thread so far (CheckSynchronize without waiting), so that
// long operations on the main thread let posted messages and synchronised calls through. On
// any other thread it does nothing: a worker has no queue of its own to pump.
OSTREL_API void ProcessMessages();
}  // namespace Application

}  // namespace ostrel
