#pragma once
// The EFI service of the simulated instrument: serves "\\.\pipe\EFIServiceIPC" (one request, one reply
// per message) and "\\.\pipe\EFIServiceNotify" (notifications pushed to every connected reader) from
// threads of the calling process. Stopping it breaks every client's pipes, as a stopped Windows service
// does; starting it again serves new clients.
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/Handle.h"
#include "sim/efi/EfiControllerModel.h"

namespace halvern::sim {

class EfiServiceSimC {
public:
    explicit EfiServiceSimC(EfiControllerModelC& model);
    ~EfiServiceSimC();
    EfiServiceSimC(const EfiServiceSimC&) = delete;
    EfiServiceSimC& operator=(const EfiServiceSimC&) = delete;

    // False when a pipe cannot be created (already served, no sim root); nothing runs then.
    bool start();
    void stop();
    bool running() const { return m_running; }
    // Sends `text` to every connected notification reader; the number of readers it reached.
    int notify(const std::wstring& text);
    // Readers connected to the notification pipe now; a notification sent before the first one is lost,
    // as with the real service.
    int readers();

private:
    struct InstanceC;
    std::shared_ptr<InstanceC> newInstance(const std::wstring& name);
    // Runs `body` on a thread that stop() waits for; m_lock is held.
    void spawn(std::function<void()> body);
    void serveCommands(std::shared_ptr<InstanceC> instance);
    void serveSession(std::shared_ptr<InstanceC> instance);
    void serveNotifications(std::shared_ptr<InstanceC> instance);

    EfiControllerModelC& m_model;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_activeThreads{0};
    std::mutex m_lock;
    std::vector<std::shared_ptr<InstanceC>> m_instances;
    std::vector<std::shared_ptr<InstanceC>> m_readers;
    std::vector<std::thread> m_threads;
};

// UTF-16 message text <-> wide string.
std::wstring wireToText(const std::vector<unsigned char>& bytes);
std::vector<unsigned char> textToWire(const std::wstring& text);

}  // namespace halvern::sim
