// kolm_probe.exe: starts and stops driver services and has the probe's driver call Kolm.
//   kolm_probe effects   the whole list of calls; the photograph on standard input, each request
//   and
//                        its answer on standard output
//   kolm_probe background FOLDER  the same for background replacement, with the files that the host
//                        program wrote into FOLDER, its name on the host
//   kolm_probe tracking    the same for face tracking, with the scene on standard input
//   kolm_probe speed       prints the milliseconds of a frame of the scene on standard input
//   kolm_probe trackers N  N rounds of face tracking with one tracker, N with two
//   kolm_probe shortage    face tracking of the scene on standard input with too little memory
//   kolm_probe rounds N  N times: start the driver, check what it loaded, one pass over all effects
//                        on a small frame, stop
//   kolm_probe service NAME DRIVER  starts and stops DRIVER.sys as the service NAME
// The drivers are in the system's folder for drivers. The exit code is 0 if all went well.
#include <windows.h>
#include <winioctl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "probe/calls.h"

namespace kolm::probe {
namespace {

[[noreturn]] void Fail(const std::string& what, DWORD error) {
  throw std::runtime_error(what + ": error " + std::to_string(error));
}

// A driver service that exists as long as the object.
class DriverService {
 public:
  DriverService(const std::string& name, const std::string& driver)
      : name_(name), manager_(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
    if (manager_ == nullptr) Fail("no service manager", GetLastError());
    char system[MAX_PATH];
    if (GetSystemDirectoryA(system, sizeof system) == 0) Fail("no folder", GetLastError());
    const std::string path = std::string(system) + "\\drivers\\" + driver + ".sys";
    service_ = CreateServiceA(manager_, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                              SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                              path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    // A run that was broken off leaves it behind.
    if (service_ == nullptr && GetLastError() == ERROR_SERVICE_EXISTS) {
      service_ = OpenServiceA(manager_, name.c_str(), SERVICE_ALL_ACCESS);
    }
    if (service_ == nullptr) Fail("cannot create the service " + name, GetLastError());
  }

  DriverService(const DriverService&) = delete;
  DriverService& operator=(const DriverService&) = delete;

  ~DriverService() {
    SERVICE_STATUS status;
    ControlService(service_, SERVICE_CONTROL_STOP, &status);
    DeleteService(service_);
    CloseServiceHandle(service_);
    CloseServiceHandle(manager_);
  }

  void Start() {
    if (!StartServiceA(service_, 0, nullptr)) Fail("cannot start " + name_, GetLastError());
    AwaitState(SERVICE_RUNNING);
  }

  void Stop() {
    SERVICE_STATUS status;
    if (!ControlService(service_, SERVICE_CONTROL_STOP, &status)) {
      Fail("cannot stop " + name_, GetLastError());
    }
    AwaitState(SERVICE_STOPPED);
  }

 private:
  void AwaitState(DWORD state) {
    SERVICE_STATUS status;
    for (int wait = 0; wait < 1000; ++wait) {
      if (!QueryServiceStatus(service_, &status)) Fail("no status of " + name_, GetLastError());
      if (status.dwCurrentState == state) return;
      Sleep(10);
    }
    throw std::runtime_error(name_ + " stays in state " + std::to_string(status.dwCurrentState));
  }

  std::string name_;
  SC_HANDLE manager_;
  SC_HANDLE service_;
};

// The open control device of KolmProbe.sys.
class ProbeDevice {
 public:
  ProbeDevice()
      : handle_(CreateFileA("\\\\.\\KolmProbe", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                            OPEN_EXISTING, 0, nullptr)) {
    if (handle_ == INVALID_HANDLE_VALUE) Fail("cannot open the probe's device", GetLastError());
  }

  ProbeDevice(const ProbeDevice&) = delete;
  ProbeDevice& operator=(const ProbeDevice&) = delete;

  ~ProbeDevice() { CloseHandle(handle_); }

  Answer Call(const ClientRequest& request, const std::vector<uint8_t>& frame) {
    const uint64_t answerBytes = ClientDestinationBytes(&request);
    const auto* head = reinterpret_cast<const uint8_t*>(&request);
    std::vector<uint8_t> input(head, head + sizeof request);
    input.insert(input.end(), frame.begin(), frame.end());
    std::vector<uint8_t> output(sizeof(ClientReply) + answerBytes);
    DWORD returned = 0;
    if (!DeviceIoControl(handle_, CLIENT_CONTROL_CODE, input.data(),
                         static_cast<DWORD>(input.size()), output.data(),
                         static_cast<DWORD>(output.size()), &returned, nullptr)) {
      Fail("operation " + std::to_string(request.operation) + " failed", GetLastError());
    }
    if (returned != output.size()) {
      throw std::runtime_error("operation " + std::to_string(request.operation) + " returned " +
                               std::to_string(returned) + " bytes");
    }
    Answer answer;
    std::memcpy(&answer.reply, output.data(), sizeof answer.reply);
    answer.frame.assign(output.begin() + sizeof answer.reply, output.end());
    return answer;
  }

 private:
  HANDLE handle_;
};

void ReadAll(HANDLE file, std::vector<uint8_t>* bytes) {
  for (size_t done = 0; done < bytes->size();) {
    DWORD part = 0;
    if (!ReadFile(file, bytes->data() + done, static_cast<DWORD>(bytes->size() - done), &part,
                  nullptr) ||
        part == 0) {
      Fail("cannot read the photograph's frames", GetLastError());
    }
    done += part;
  }
}

void WriteAll(HANDLE file, const void* bytes, size_t size) {
  for (size_t done = 0; done < size;) {
    DWORD part = 0;
    if (!WriteFile(file, static_cast<const uint8_t*>(bytes) + done, static_cast<DWORD>(size - done),
                   &part, nullptr)) {
      Fail("cannot write the answers", GetLastError());
    }
    done += part;
  }
}

void CheckLoad(ProbeDevice* device) {
  const ClientReply load = device->Call({kClientLoadCheck, 0, 0, 0, 0}, {}).reply;
  if (std::strcmp(load.imageName, "Kolm.sys") != 0 || load.values[0] != 12 ||
      load.values[1] != 14) {
    throw std::runtime_error("the imports lead to " + std::string(load.imageName) + ", " +
                             std::to_string(load.values[0]) + " of 12; it exports " +
                             std::to_string(load.values[1]) + " names");
  }
}

template <size_t count>
std::vector<std::vector<uint8_t>> ReadPhotographs(const Size (&sizes)[count]) {
  std::vector<std::vector<uint8_t>> photographs;
  for (const Size& size : sizes) {
    photographs.emplace_back(FrameBytes(size.width, size.height));
    ReadAll(GetStdHandle(STD_INPUT_HANDLE), &photographs.back());
  }
  return photographs;
}

// Has the driver make the calls, and writes requests and answers to standard output.
void WriteAnswers(const std::function<void(const Call& call)>& makeCalls) {
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);

  DriverService service("KolmProbe", "KolmProbe");
  service.Start();
  {
    ProbeDevice device;
    CheckLoad(&device);
    makeCalls([&](const ClientRequest& request, const std::vector<uint8_t>& frame) {
      Answer answer = device.Call(request, frame);
      WriteAll(output, &request, sizeof request);
      WriteAll(output, &answer.reply, sizeof answer.reply);
      WriteAll(output, answer.frame.data(), answer.frame.size());
      return answer;
    });
  }
  service.Stop();
}

void Effects() {
  const std::vector<std::vector<uint8_t>> photographs = ReadPhotographs(kSizes);
  WriteAnswers([&](const Call& call) { MakeAllCalls(call, photographs); });
}

void Background(const std::string& folder) {
  const std::vector<std::vector<uint8_t>> photographs = ReadPhotographs(kOverlaySizes);
  const Files files = {folder, "Z:", "C:\\windows"};
  WriteAnswers([&](const Call& call) { MakeBackgroundCalls(call, files, photographs); });
}

ClientReply AskPool(ProbeDevice* device) {
  return device->Call({kClientPool, 0, 0, 0, 0}, {}).reply;
}

void ExpectNoBlock(ProbeDevice* device, const std::string& when) {
  const uint32_t held = AskPool(device).values[0];
  if (held != 0) throw std::runtime_error(std::to_string(held) + " blocks are held " + when);
}

std::vector<uint8_t> ReadScene() {
  std::vector<uint8_t> scene(FrameBytes(kScene.width, kScene.height));
  ReadAll(GetStdHandle(STD_INPUT_HANDLE), &scene);
  return scene;
}

void Speed() {
  LARGE_INTEGER perSecond;
  QueryPerformanceFrequency(&perSecond);
  const auto now = [&] {
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return 1000.0 * static_cast<double>(count.QuadPart) / static_cast<double>(perSecond.QuadPart);
  };
  const std::vector<uint8_t> scene = ReadScene();
  DriverService service("KolmProbe", "KolmProbe");
  service.Start();
  {
    ProbeDevice device;
    const Call call = [&](const ClientRequest& request, const std::vector<uint8_t>& frame) {
      return device.Call(request, frame);
    };
    std::printf("%.3f\n", TimeTracking(call, scene, now));
  }
  service.Stop();
}

void Tracking() {
  constexpr uint32_t kStackLimit = 12 * 1024;
  const std::vector<uint8_t> scene = ReadScene();
  uint32_t deepest[3] = {};
  WriteAnswers([&](const Call& call) {
    const Call measured = [&](const ClientRequest& request, const std::vector<uint8_t>& frame) {
      Answer answer = call(request, frame);
      uint32_t& depth = deepest[request.operation - kClientTrackBegin];
      depth = std::max(depth, answer.reply.stackBytes);
      return answer;
    };
    MakeTrackingCalls(measured, scene);
  });
  std::fprintf(stderr, "deepest stack use: Init %u, Do %u, Uninit %u bytes\n", deepest[0],
               deepest[1], deepest[2]);
  for (const uint32_t depth : deepest) {
    if (depth == 0 || depth > kStackLimit) {
      throw std::runtime_error("a stack use of " + std::to_string(depth) + " bytes; the limit is " +
                               std::to_string(kStackLimit));
    }
  }
}

constexpr Size kSmallFrame = {128, 96};

void Trackers(int rounds) {
  const std::vector<uint8_t> frame = DrawFrame(kSmallFrame.width, kSmallFrame.height);

  DriverService service("KolmProbe", "KolmProbe");
  service.Start();
  {
    ProbeDevice device;
    ExpectNoBlock(&device, "at the beginning");
    for (const uint32_t trackers : {1, 2}) {
      device.Call({kClientTrackRounds, trackers, kSmallFrame.width, kSmallFrame.height,
                   static_cast<uint32_t>(rounds)},
                  frame);
      ExpectNoBlock(&device, "after the rounds with " + std::to_string(trackers) + " trackers");
      std::printf("%d rounds with %u trackers: %u blocks asked for, none held\n", rounds, trackers,
                  AskPool(&device).values[1]);
    }
  }
  service.Stop();
}

// Refuses memory: each block and all behind it, each block alone, and the deeper stack. Of the
// thousands of blocks with which a tracker begins a sample is refused, of a frame's every one.
class ShortageTest {
 public:
  ShortageTest(ProbeDevice* device, const std::vector<uint8_t>& scene)
      : device_(device), view_(FilmScene(scene, 0, kSize)) {}

  void Run() {
    const uint32_t before = Asked();
    Begin();
    beginning_ = Asked() - before;
    Track();
    frame_ = Asked() - before - beginning_;
    End();
    if (beginning_ == 0 || frame_ == 0) throw std::runtime_error("nothing was asked for");
    Begin();
    const ClientReply once = Track();
    const ClientReply twice = Track();
    End();
    if (Alike(once, twice)) throw std::runtime_error("no face is followed in the scene");

    for (const uint32_t alone : {0, 1}) {
      for (uint32_t block = 1; block <= beginning_; block += 1 + block / 64) {
        Refuse(alone, block);
        Begin();
        Track();
        Refuse(0, 0);
        Track();
        End();
      }
      for (uint32_t block = 1; block <= frame_; ++block) {
        Begin();
        Refuse(alone, block);
        const ClientReply first = Track();
        Refuse(0, 0);
        // A frame without memory is one without a face, and the next one is as ever.
        const ClientReply second = Track();
        if (!Alike(second, Alike(first, once) ? twice : once)) {
          throw std::runtime_error("the frame after one without block " + std::to_string(block) +
                                   " is another");
        }
        End();
      }
    }
    std::printf(
        "a tracker begins with %u blocks, a frame takes %u: %u rounds with a shortage, no "
        "block held; deepest stack use %u bytes\n",
        beginning_, frame_, rounds_, deepest_);
  }

 private:
  static constexpr Size kSize = kTrackedSizes[0];
  static constexpr Size kDetection = kDetectionSizes[0];

  static bool Alike(const ClientReply& a, const ClientReply& b) {
    return std::memcmp(a.tracker, b.tracker, sizeof a.tracker) == 0;
  }

  uint32_t Asked() { return AskPool(device_).values[1]; }

  void Refuse(uint32_t alone, uint32_t block) {
    device_->Call({kClientPoolLimit, alone, 0, 0, block}, {});
  }

  ClientReply Call(uint32_t operation, uint32_t parameter) {
    const ClientReply reply =
        device_->Call({operation, 0, kSize.width, kSize.height, parameter}, view_).reply;
    deepest_ = std::max(deepest_, reply.stackBytes);
    return reply;
  }

  void RefuseStack(bool refuse) {
    device_->Call({kClientStackLimit, 0, 0, 0, refuse ? 1u : 0u}, {});
  }

  ClientReply Begin() {
    return Call(kClientTrackBegin, kDetection.width << 16 | kDetection.height);
  }
  ClientReply Track() { return Call(kClientTrack, 0); }
  void End() {
    Call(kClientTrackEnd, 0);
    ++rounds_;
    ExpectNoBlock(device_, "after round " + std::to_string(rounds_) + " with a shortage");
  }

  ProbeDevice* device_;
  std::vector<uint8_t> view_;
  uint32_t beginning_ = 0;
  uint32_t frame_ = 0;
  uint32_t rounds_ = 0;
  uint32_t deepest_ = 0;
};

void Shortage() {
  const std::vector<uint8_t> scene = ReadScene();
  DriverService service("KolmProbe", "KolmProbe");
  service.Start();
  {
    ProbeDevice device;
    ShortageTest(&device, scene).Run();
  }
  service.Stop();
}

void Rounds(int rounds) {
  constexpr uint32_t kWidth = 64;
  constexpr uint32_t kHeight = 48;
  const std::vector<uint8_t> frame = DrawFrame(kWidth, kHeight);

  DriverService service("KolmProbe", "KolmProbe");
  for (int round = 0; round < rounds; ++round) {
    service.Start();
    {
      ProbeDevice device;
      CheckLoad(&device);
      device.Call({kClientLoaded, 0, 0, 0, 0}, {});
      RunAllEffects(
          [&](const ClientRequest& request, const std::vector<uint8_t>& source) {
            return device.Call(request, source);
          },
          kWidth, kHeight, frame);
      device.Call({kClientUnloading, 0, 0, 0, 0}, {});
    }
    service.Stop();
  }
  std::printf("%d rounds\n", rounds);
}

void Service(const std::string& name, const std::string& driver) {
  DriverService service(name, driver);
  service.Start();
  service.Stop();
  std::printf("%s started and stopped\n", name.c_str());
}

}  // namespace
}  // namespace kolm::probe

int main(int argumentCount, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  try {
    if (words.size() == 1 && words[0] == "effects") {
      kolm::probe::Effects();
    } else if (words.size() == 2 && words[0] == "background") {
      kolm::probe::Background(words[1]);
    } else if (words.size() == 1 && words[0] == "tracking") {
      kolm::probe::Tracking();
    } else if (words.size() == 1 && words[0] == "speed") {
      kolm::probe::Speed();
    } else if (words.size() == 2 && words[0] == "trackers") {
      kolm::probe::Trackers(std::atoi(words[1].c_str()));
    } else if (words.size() == 1 && words[0] == "shortage") {
      kolm::probe::Shortage();
    } else if (words.size() == 2 && words[0] == "rounds") {
      kolm::probe::Rounds(std::atoi(words[1].c_str()));
    } else if (words.size() == 3 && words[0] == "service") {
      kolm::probe::Service(words[1], words[2]);
    } else {
      throw std::runtime_error(
          "usage: kolm_probe effects | background FOLDER | tracking | speed | trackers N | "
          "shortage | rounds N | service NAME DRIVER");
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kolm_probe: %s\n", error.what());
    return 1;
  }
  return 0;
}
