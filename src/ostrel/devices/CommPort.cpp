// TkxCommPort: settings, open and close, transfers, the worker thread and its dispatch, and
// the settings-store parameters. Everything the system does is behind TCommDevice and
// TCommWindow (detail/CommDevice.h), so this file is the same on every platform.
#include <ostrel/devices/Kxcommport.h>
#include <ostrel/devices/detail/CommDevice.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Registry.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Threads.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <vector>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxCommBuffer)
OSTREL_DEFINE_CLASS(TkxCommTimeouts)
OSTREL_DEFINE_CLASS(TkxCommPort)

// ---- events, rates, device names ------------------------------------------------------

namespace {

// The Windows mask bit of each event, in event order.
constexpr Cardinal EventBits[10] = {
    CommMask::RxChar, CommMask::TxEmpty, CommMask::RxFlag, CommMask::Ring, CommMask::Break,
    CommMask::Cts,    CommMask::Dsr,     CommMask::Err,    CommMask::Rlsd, CommMask::Rx80Full};

std::mutex deviceMapLock;
std::map<Integer, AnsiString> deviceMap;

}  // namespace

Cardinal EventsToMask(TkxCommEvents events) {
  Cardinal mask = 0;
  for (int i = 0; i < 10; ++i)
    if (events.Contains(static_cast<TkxCommEvent>(i))) mask |= EventBits[i];
  return mask;
}

TkxCommEvents MaskToEvents(Cardinal mask) {
  TkxCommEvents events;
  for (int i = 0; i < 10; ++i)
    if (mask & EventBits[i]) events.Include(static_cast<TkxCommEvent>(i));
  return events;
}

Cardinal RoundBaudRate(Cardinal value) {
  int i = 1;
  while (i < 16 && CommBaudRates[i] <= value) ++i;
  return CommBaudRates[i > 1 ? i - 1 : 1];
}

AnsiString CommPortDevice(Integer portNumber) {
  {
    std::lock_guard lock(deviceMapLock);
    auto it = deviceMap.find(portNumber);
    if (it != deviceMap.end()) return it->second;
  }
  return TCommDevice::DefaultPath(portNumber);
}

void SetCommPortDevice(Integer portNumber, std::string_view path) {
  std::lock_guard lock(deviceMapLock);
  if (path.empty())
    deviceMap.erase(portNumber);
  else
    deviceMap[portNumber] = AnsiString(path);
}

// ---- buffer and time-outs ------------------------------------------------------------

void TkxCommBuffer::SetSize(Integer& field, Integer value) {
  if (value == field) return;
  field = value;
  if (field > 0 && field % 2 != 0) --field;
  fOwner->UpdateBuffer();
}

void TkxCommBuffer::SetInputSize(Integer value) { SetSize(fInputSize, value); }
void TkxCommBuffer::SetOutputSize(Integer value) { SetSize(fOutputSize, value); }

void TkxCommTimeouts::Set(int index, Integer value) {
  if (fValues[index] == value) return;
  fValues[index] = value;
  fOwner->UpdateTimeouts();
}

// ---- the event thread -------------------------------------------------------------------

class TkxCommEventThread : public TThread {
 public:
  // The worker owns the window it sends to, so that the window lives as long as a worker
  // that may still be sending.
  TkxCommEventThread(TkxCommPort* port, std::shared_ptr<TCommDevice> device, Cardinal mask,
                     std::unique_ptr<TCommWindow> window)
      : TThread(true),
        fPort(port),
        fDevice(std::move(device)),
        fWindow(std::move(window)),
        fSyncMethod(port->SyncMethod()),
        fWaiter(fDevice->CreateWaiter(mask)) {}

  ~TkxCommEventThread() override {
    if (ThreadID() == std::thread::id()) return;  // never started
    Stop();
    // A worker inside Send waits for this thread to take what it sends.
    if (fWindow) fWindow->WaitForSender(*this);
    WaitFor();
  }

  TCommWindow* Window() const noexcept { return fWindow.get(); }
  // The port no longer takes events; what is under way finds no port.
  void Detach() noexcept {
    fPort.store(nullptr);
    if (fWindow) fWindow->Detach();
  }
  void Stop() {
    fStopping.store(true);
    fWaiter->Stop();
    std::this_thread::yield();
  }

 protected:
  void Execute() override {
    Cardinal mask = 0;
    struct Leave {
      TkxCommEventThread& self;
      ~Leave() {
        self.fWaiter->Leave();
        // A worker left to finish after a close inside a handler frees the device as it
        // ends, not when someone gets round to freeing the worker.
        self.fDevice.reset();
      }
    } leave{*this};
    while (fWaiter->Wait(mask)) {
      Dispatch(mask);
      for (;;) {
        TkxCommPort* port = fPort.load();
        if (fStopping.load() || !port || !port->fReceiveFull.exchange(false)) break;
        Dispatch(CommMask::RxChar);
      }
    }
  }

 private:
  void Dispatch(Cardinal mask) {
    std::exception_ptr failure;
    try {
      switch (fSyncMethod) {
        case smThreadSync:
          Synchronize([this, mask] {
            if (TkxCommPort* port = fPort.load()) port->DispatchEvents(mask);
          });
          break;
        case smWindowSync:
          if (fWindow) fWindow->Send(mask);
          break;
        case smNone:
          if (TkxCommPort* port = fPort.load()) port->DispatchEvents(mask);
          break;
      }
    } catch (...) {
      failure = std::current_exception();
    }
    // A handler's failure belongs to the application, not to the worker: it is raised on the
    // main thread at its next CheckSynchronize, and events keep coming. (Handed over once the
    // catch is over, so that only the main thread holds the exception from then on.)
    if (failure) ForceQueue([e = std::move(failure)] { std::rethrow_exception(e); });
  }

  std::atomic<TkxCommPort*> fPort;
  std::atomic<bool> fStopping{false};
  std::shared_ptr<TCommDevice> fDevice;
  std::unique_ptr<TCommWindow> fWindow;
  TkxCommSyncMethod fSyncMethod;
  std::unique_ptr<TCommWaiter> fWaiter;
};

// ---- the port -------------------------------------------------------------------------

TkxCommPort::TkxCommPort(TComponent* owner)
    : TComponent(owner),
      fBuffer(std::make_unique<TkxCommBuffer>(this)),
      fTimeouts(std::make_unique<TkxCommTimeouts>(this)) {}

TkxCommPort::~TkxCommPort() {
  try {
    Close();
  } catch (...) {
    // a destructor cannot report; the device is released below in any case
  }
}

void TkxCommPort::SetActive(bool value) {
  if (value == fActive) return;
  if (value)
    Open();
  else
    Close();
}

void TkxCommPort::CheckClosed() {
  if (HandleAllocated()) throw Exception(CommConst::SPortAlreadyOpen);
}

void TkxCommPort::Open() {
  FinishStopped();  // a worker stopped inside a handler may still hold the device
  if (HandleAllocated()) return;
  TComponentState state = ComponentState();
  if (state.Contains(csLoading) || state.Contains(csDesigning)) {
    fActive = true;
    return;
  }
  CreateHandle();
  try {
    UpdateBuffer();
    UpdateDCB();
    UpdateTimeouts();
    fActive = true;
    if (!fEvents.Empty()) {
      auto window = fSyncMethod == smWindowSync ? TCommWindow::Create(this) : nullptr;
      // Created suspended: the port is complete before a handler can see it.
      auto thread = std::make_unique<TkxCommEventThread>(this, fDevice, EventsToMask(fEvents),
                                                         std::move(window));
      fWindow = thread->Window();
      fThread = std::move(thread);
      // Last: from here on a handler (on the worker, with smNone) may already close the port.
      fThread->Start();
    }
  } catch (...) {
    fThread.reset();  // one that could not start, with its window
    fWindow = nullptr;
    DestroyHandle();
    fActive = false;
    throw;
  }
}

void TkxCommPort::Close() {
  {
    std::lock_guard lock(fLock);
    ClearBuffers();
    if (fThread) {
      fThread->Detach();
      fThread->Stop();
      fStopped.push_back(std::move(fThread));
    }
    fWindow = nullptr;
  }
  // Outside a handler the worker is waited for before the device goes, so that a handler it
  // runs (smNone) still finds the port whole; inside one, the worker holds its own reference.
  FinishStopped();
  std::lock_guard lock(fLock);
  DestroyHandle();
  fActive = false;
}

void TkxCommPort::FinishStopped() {
  // Inside a handler the worker waits for this very handler to return (or runs it).
  if (fHandlerThread.load() == std::this_thread::get_id()) return;
  std::vector<std::unique_ptr<TkxCommEventThread>> stopped;
  {
    std::lock_guard lock(fLock);
    stopped.swap(fStopped);
  }
  // Freed (each waited for) without the lock: a handler still running may close the port too.
  stopped.clear();
}

void TkxCommPort::Loaded() {
  TComponent::Loaded();
  if (fActive) {
    fActive = false;
    Open();
  }
}

void TkxCommPort::CreateHandle() {
  AnsiString path = fDevicePath.empty() ? CommPortDevice(fPortNumber) : fDevicePath;
  AnsiString reason;
  fDevice = TCommDevice::Open(path, reason);
  if (fDevice) return;
  // A port given by number keeps the classic text; a path given by the user is named back to
  // them with the reason, since the number would be one they never gave.
  if (fDevicePath.empty())
    throw Exception(Format(CommConst::SPortBusy.Str(), static_cast<Integer>(fPortNumber)));
  throw Exception(Format(CommConst::SDeviceUnavailable.Str(), fDevicePath, reason));
}

bool TkxCommPort::DeviceLost() const {
  std::shared_ptr<TCommDevice> device = fDevice;
  return device && device->Lost();
}

void TkxCommPort::DestroyHandle() { fDevice.reset(); }

namespace {

// Every way a line setting comes in (the setters, AssignDCB, the settings store) passes these
// checks, so that no value outside its enumeration reaches the device block or the saved text.
void CheckPortNumber(Integer value) {
  if (value < 1 || value > 16)
    throw EInvalidArgument(Format("SetPortNumber: port number %d is outside 1 to 16", value));
}

void CheckDataBits(Integer value) {
  if (value < 5 || value > 8)
    throw EInvalidArgument(Format("SetDataBits: %d data bits are outside 5 to 8", value));
}

void CheckParity(Integer value) {
  if (value < ptNone || value > ptSpace)
    throw EInvalidArgument(Format("SetParity: parity %d is outside 0 (none) to 4 (space)", value));
}

void CheckStopBits(Integer value) {
  if (value < sb1 || value > sb2)
    throw EInvalidArgument(
        Format("SetStopBits: stop bits %d are outside 0 (one) to 2 (two)", value));
}

void CheckFlowControl(Integer value) {
  if (value < fcNone || value > fcXonXoff)
    throw EInvalidArgument(
        Format("SetFlowControl: flow control %d is outside 0 (none) to 2 (xon/xoff)", value));
}

}  // namespace

void TkxCommPort::SetPortNumber(TkxCommPortNumber value) {
  if (value == fPortNumber) return;
  CheckClosed();
  CheckPortNumber(value);
  fPortNumber = value;
}

void TkxCommPort::SetDevicePath(std::string_view path) {
  if (path == fDevicePath) return;
  CheckClosed();
  fDevicePath = AnsiString(path);
}

void TkxCommPort::SetBaudRate(TkxCommPortBaudRate value) {
  SetLineSetting(fBaudRate, RoundBaudRate(value));
}

void TkxCommPort::SetDataBits(TkxCommPortDataBits value) {
  if (value == fDataBits) return;  // an unchanged value is never checked
  CheckDataBits(value);
  SetLineSetting(fDataBits, value);
}

void TkxCommPort::SetParity(TkxCommPortParity value) {
  CheckParity(value);
  SetLineSetting(fParity, value);
}

void TkxCommPort::SetStopBits(TkxCommPortStopBits value) {
  CheckStopBits(value);
  SetLineSetting(fStopBits, value);
}

void TkxCommPort::SetFlowControl(TkxCommPortFlowControl value) {
  CheckFlowControl(value);
  SetLineSetting(fFlowControl, value);
}

void TkxCommPort::SetEvents(TkxCommEvents value) {
  if (value == fEvents) return;
  CheckClosed();
  fEvents = value;
}

void TkxCommPort::SetSyncMethod(TkxCommSyncMethod value) {
  if (value == fSyncMethod) return;
  CheckClosed();
  fSyncMethod = value;
}

void TkxCommPort::BuildDCB(TDCB& dcb) {
  dcb = TDCB{};
  dcb.DCBlength = sizeof(TDCB);
  if (fDevice) fDevice->GetState(dcb);
  dcb.BaudRate = RoundBaudRate(fBaudRate);
  dcb.ByteSize = fDataBits;
  dcb.Parity = fParity;
  dcb.StopBits = fStopBits;
  dcb.XonLim = dcb.XoffLim = static_cast<Word>(fBuffer->InputSize() / 4);
  dcb.Flags = 0;
  if (fFlowControl == fcHardware) dcb.Flags |= DcbFlag::OutxCtsFlow | DcbFlag::RtsHandshake;
  if (fFlowControl == fcXonXoff) dcb.Flags |= DcbFlag::OutX | DcbFlag::InX;
  dcb.Flags |= DcbFlag::Binary;
}

void TkxCommPort::AssignDCB(const TDCB& dcb) {
  // All checked before anything is taken, so that a bad block changes nothing.
  if (dcb.ByteSize != fDataBits) CheckDataBits(dcb.ByteSize);
  CheckParity(dcb.Parity);
  CheckStopBits(dcb.StopBits);
  SetBaudRate(dcb.BaudRate);
  SetDataBits(dcb.ByteSize);
  SetParity(static_cast<TkxCommPortParity>(dcb.Parity));
  SetStopBits(static_cast<TkxCommPortStopBits>(dcb.StopBits));
}

void TkxCommPort::UpdateDCB() {
  if (!fDevice) return;
  TDCB dcb;
  BuildDCB(dcb);
  fDevice->SetState(dcb);
}

void TkxCommPort::UpdateBuffer() {
  if (fDevice) fDevice->Setup(fBuffer->InputSize(), fBuffer->OutputSize());
}

void TkxCommPort::UpdateTimeouts() {
  if (!fDevice) return;
  auto value = [](Integer v) { return v < 0 ? 0xFFFFFFFFu : static_cast<Cardinal>(v); };
  const TkxCommTimeouts& t = *fTimeouts;
  fDevice->SetTimeouts({value(t.ReadInterval()), value(t.ReadTotalMultiplier()),
                        value(t.ReadTotalConstant()), value(t.WriteTotalMultiplier()),
                        value(t.WriteTotalConstant())});
}

void TkxCommPort::ClearBuffers() {
  if (fDevice) fDevice->Purge(CommPurge::TxAbort | CommPurge::RxAbort);
}

Integer TkxCommPort::InputCount() {
  if (!fDevice) TCommDevice::RaiseNotOpen();
  Integer in = 0, out = 0;
  fDevice->Queues(in, out);
  return in;
}

Integer TkxCommPort::OutputCount() {
  if (!fDevice) TCommDevice::RaiseNotOpen();
  Integer in = 0, out = 0;
  fDevice->Queues(in, out);
  return out;
}

Integer TkxCommPort::Transfer(TTransfer op, void* buffer, Integer count, Integer timeout,
                              Cardinal budget) {
  using Clock = std::chrono::steady_clock;
  Cardinal limit = timeout < 0 ? budget : static_cast<Cardinal>(timeout);
  Clock::time_point start = Clock::now();
  if (count < 1) return 0;
  // A handler run by ProcessMessages may close the port; the device stays until this ends.
  std::shared_ptr<TCommDevice> device = fDevice;
  if (!device) TCommDevice::RaiseNotOpen();
  auto* p = static_cast<char*>(buffer);
  Integer total = 0;
  for (;;) {
    Integer n = ((*device).*op)(p, count);
    count -= n;
    total += n;
    p += n;
    auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    if (elapsed >= static_cast<long long>(limit)) break;
    Application::ProcessMessages();
    if (count <= 0) break;
    // A short transfer has emptied (or filled) the driver's queue: asking again at once would
    // only move nothing, so wait for the device first (briefly, so that the main thread's
    // queue keeps running).
    device->WaitReady(
        op == static_cast<TTransfer>(&TCommDevice::Write),
        static_cast<int>(std::min<long long>(10, static_cast<long long>(limit) - elapsed)));
  }
  return total;
}

Integer TkxCommPort::Read(void* buffer, Integer count, Integer timeout) {
  return Transfer(&TCommDevice::Read, buffer, count, timeout, fBuffer->ReadTimeout);
}

Integer TkxCommPort::Write(const void* buffer, Integer count, Integer timeout) {
  // The device only reads the bytes; one transfer loop serves both directions.
  return Transfer(&TCommDevice::Write, const_cast<void*>(buffer), count, timeout,
                  fBuffer->WriteTimeout);
}

Integer TkxCommPort::ReadStr(AnsiString& s, Integer count, Integer timeout) {
  s.assign(static_cast<std::size_t>(std::max(count, 0)), '\0');
  Integer n = Read(s.data(), count, timeout);
  s.resize(static_cast<std::size_t>(n));
  return n;
}

Integer TkxCommPort::WriteStr(std::string_view s, Integer timeout) {
  return Write(s.data(), static_cast<Integer>(s.size()), timeout);
}

void TkxCommPort::HandleEvents(TkxCommEvents events) {
  if (events.Contains(evRxChar)) DoReceive();
  TkxCommEvents mine = events * fEvents;
  if (OnEvent && !mine.Empty()) OnEvent(this, mine);
}

void TkxCommPort::DoReceive() {
  // What the driver holds goes out in one call of OnReceiveData, bytes that arrive while it
  // is read included, so a fast device costs one read per driver buffer rather than a wake-up,
  // a queue query and a handler call per buffer. A batch is at most 64 KB: at a full one the
  // worker comes back for the rest without waiting for an event (a device that never pauses
  // would otherwise keep this loop, and a close, waiting for ever). The port's buffer serves
  // every batch; a handler that processes messages and so receives again inside this one
  // gets a buffer of its own.
  constexpr Integer kBatch = 1 << 16;
  std::shared_ptr<TCommDevice> device = fDevice;
  if (!device) TCommDevice::RaiseNotOpen();
  std::unique_ptr<char[]> nested;
  char* buffer;
  if (!fReceiving.exchange(true)) {
    if (!fReceiveBuffer) fReceiveBuffer = std::make_unique_for_overwrite<char[]>(kBatch);
    buffer = fReceiveBuffer.get();
  } else {
    nested = std::make_unique_for_overwrite<char[]>(kBatch);
    buffer = nested.get();
  }
  struct Release {
    std::atomic<bool>* flag;
    ~Release() {
      if (flag) flag->store(false);
    }
  } release{nested ? nullptr : &fReceiving};
  Integer size = 0;
  while (size < kBatch) {
    Integer got = 0;
    try {
      got = device->ReadQueued(buffer + size, kBatch - size);
    } catch (const EOSError&) {
      // Bytes and the hang-up may come in one batch: the loss is what the handlers hear of,
      // as evError, not a failure of this read. What was read before it still goes out.
      if (!DeviceLost()) throw;
    }
    if (got <= 0) break;
    size += got;
  }
  fReceiveFull.store(size == kBatch);
  if (size > 0) ReceiveData(buffer, size);
}

void TkxCommPort::ReceiveData(const void* data, Integer size) {
  if (OnReceiveData) OnReceiveData(this, data, size);
}

void TkxCommPort::DispatchEvents(Cardinal mask) {
  std::thread::id previous = fHandlerThread.exchange(std::this_thread::get_id());
  struct Restore {
    std::atomic<std::thread::id>& slot;
    std::thread::id value;
    ~Restore() { slot.store(value); }
  } restore{fHandlerThread, previous};
  HandleEvents(MaskToEvents(mask));
}

void TkxCommPort::WndProc(TMessage& message) {
  if (message.Msg == CM_COMMEVENT) {
    DispatchEvents(static_cast<Cardinal>(message.WParam));
    message.Result = 0;
  } else if (fWindow) {
    fWindow->Default(message);
  }
}

// ---- settings ------------------------------------------------------------------------

AnsiString TkxCommPort::ParamsText() const {
  static constexpr const char* parityLetters[] = {"N", "O", "E", "M", "S"};
  // One and a half stop bits are saved as one: the saved text reads back as one stop bit.
  static constexpr const char* stopTexts[] = {"1", "1", "2"};
  return Format("COM%d: BAUD=%d PARITY=%s DATA=%d STOP=%s", static_cast<Integer>(fPortNumber),
                static_cast<Int64>(fBaudRate), parityLetters[fParity],
                static_cast<Integer>(fDataBits), stopTexts[fStopBits]);
}

bool TkxCommPort::RegSaveParams(TRootKey rootKey, std::string_view key) {
  TRegistry reg;
  reg.SetRootKey(rootKey);
  if (!reg.OpenKey(key, true)) return false;
  reg.WriteString("Comm.DCB", ParamsText());
  return true;
}

bool TkxCommPort::RegLoadParams(TRootKey rootKey, std::string_view key, bool loadPortNumber) {
  TRegistry reg;
  reg.SetRootKey(rootKey);
  if (!reg.OpenKeyReadOnly(key)) return false;
  return LoadParamsText(reg.ReadString("Comm.DCB"), loadPortNumber);
}

bool TkxCommPort::LoadParamsText(std::string_view value, bool loadPortNumber) {
  AnsiString text = Trim(value);
  if (text.empty()) return false;
  if (SameText(Copy(text, 1, 3), "COM")) {
    std::size_t end = text.find_first_of(" :", 3);
    if (loadPortNumber) {
      Integer n = StrToInt(text.substr(3, end == std::string::npos ? std::string::npos : end - 3));
      CheckPortNumber(n);
      SetPortNumber(static_cast<TkxCommPortNumber>(n));
    }
    text = end == std::string::npos ? AnsiString() : TrimLeft(text.substr(end + 1));
  }
  if (!text.empty()) {
    TDCB dcb{};
    dcb.DCBlength = sizeof(TDCB);
    if (CommModeToDCB(text, dcb)) {
      // A text that names no data bits leaves them as they are.
      if (dcb.ByteSize == 0) dcb.ByteSize = fDataBits;
      AssignDCB(dcb);
    }
  }
  return true;
}

}  // namespace ostrel
