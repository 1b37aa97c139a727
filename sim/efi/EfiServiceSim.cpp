#include "sim/efi/EfiServiceSim.h"

#include <chrono>
#include <functional>

#include "platform/NamedPipe.h"
#include "platform/WinError.h"

namespace halvern::sim {

namespace {
const wchar_t* const kCommandPipe = L"\\\\.\\pipe\\EFIServiceIPC";
const wchar_t* const kNotifyPipe = L"\\\\.\\pipe\\EFIServiceNotify";
constexpr std::uint32_t kReadChunk = 4096;
}  // namespace

struct EfiServiceSimC::InstanceC {
    platform::UniqueHandle pipe;
};

std::wstring wireToText(const std::vector<unsigned char>& bytes)
{
    std::wstring text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto unit = static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
        if (unit == u'\0') break;
        text.push_back(static_cast<wchar_t>(unit));
    }
    return text;
}

std::vector<unsigned char> textToWire(const std::wstring& text)
{
    std::vector<unsigned char> bytes;
    bytes.reserve((text.size() + 1) * 2);
    for (wchar_t c : text) {
        const auto unit = static_cast<std::uint16_t>(c);
        bytes.push_back(static_cast<unsigned char>(unit & 0xFF));
        bytes.push_back(static_cast<unsigned char>(unit >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

EfiServiceSimC::EfiServiceSimC(EfiControllerModelC& model) : m_model(model) {}

EfiServiceSimC::~EfiServiceSimC()
{
    stop();
}

std::shared_ptr<EfiServiceSimC::InstanceC> EfiServiceSimC::newInstance(const std::wstring& name)
{
    // Made and registered under the lock that stop() takes to cancel them all, so that no instance can
    // slip in after the cancel and keep a thread waiting for a client for ever.
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_stopping) return nullptr;
    auto instance = std::make_shared<InstanceC>();
    instance->pipe = platform::createPipeServer(name);
    if (!instance->pipe) return nullptr;
    m_instances.push_back(instance);
    return instance;
}

void EfiServiceSimC::spawn(std::function<void()> body)
{
    ++m_activeThreads;
    m_threads.emplace_back([this, body = std::move(body)] {
        body();
        --m_activeThreads;
    });
}

bool EfiServiceSimC::start()
{
    if (m_running) return true;
    m_stopping = false;
    // The first instance of each pipe is made here, so that a client that comes right after start()
    // finds both names served.
    auto command = newInstance(kCommandPipe);
    auto notify = newInstance(kNotifyPipe);
    std::lock_guard<std::mutex> guard(m_lock);
    if (!command || !notify) {
        m_instances.clear();
        return false;
    }
    m_running = true;
    spawn([this, command] { serveCommands(command); });
    spawn([this, notify] { serveNotifications(notify); });
    return true;
}

void EfiServiceSimC::serveCommands(std::shared_ptr<InstanceC> instance)
{
    while (instance) {
        if (!platform::connectPipeClient(instance->pipe.get())) return;
        {
            std::lock_guard<std::mutex> guard(m_lock);
            if (m_stopping) return;
            spawn([this, instance] { serveSession(instance); });
        }
        instance = newInstance(kCommandPipe);
    }
}

void EfiServiceSimC::serveSession(std::shared_ptr<InstanceC> instance)
{
    std::vector<unsigned char> message;
    std::vector<unsigned char> chunk(kReadChunk);
    while (!m_stopping) {
        std::uint32_t got = 0;
        const bool ok = platform::readPipe(instance->pipe.get(), chunk.data(), kReadChunk, got);
        message.insert(message.end(), chunk.begin(), chunk.begin() + got);
        if (!ok && platform::lastError() == platform::kErrorMoreData) continue;
        if (!ok) break;
        const std::vector<unsigned char> reply = textToWire(m_model.answer(wireToText(message)));
        message.clear();
        if (!platform::writePipe(instance->pipe.get(), reply.data(), static_cast<std::uint32_t>(reply.size()))) break;
    }
}

void EfiServiceSimC::serveNotifications(std::shared_ptr<InstanceC> instance)
{
    while (instance) {
        if (!platform::connectPipeClient(instance->pipe.get())) return;
        {
            std::lock_guard<std::mutex> guard(m_lock);
            if (m_stopping) return;
            m_readers.push_back(instance);
        }
        instance = newInstance(kNotifyPipe);
    }
}

int EfiServiceSimC::notify(const std::wstring& text)
{
    const std::vector<unsigned char> bytes = textToWire(text);
    std::lock_guard<std::mutex> guard(m_lock);
    int reached = 0;
    for (auto it = m_readers.begin(); it != m_readers.end();) {
        if (platform::writePipe((*it)->pipe.get(), bytes.data(), static_cast<std::uint32_t>(bytes.size()))) {
            ++reached;
            ++it;
        } else {
            // The reader has gone; its instance is closed with the service.
            it = m_readers.erase(it);
        }
    }
    return reached;
}

int EfiServiceSimC::readers()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return static_cast<int>(m_readers.size());
}

void EfiServiceSimC::stop()
{
    if (!m_running) return;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_stopping = true;
    }
    // A thread may be about to block when a cancel comes, which then misses it: repeat until every
    // thread has seen the flag. A client of our own also releases an acceptor that waits for one.
    std::vector<platform::UniqueHandle> wakers;
    while (m_activeThreads > 0) {
        {
            std::lock_guard<std::mutex> guard(m_lock);
            for (auto& instance : m_instances)
                platform::cancelPipeIo(instance->pipe.get());
        }
        for (const wchar_t* name : {kCommandPipe, kNotifyPipe}) {
            platform::UniqueHandle waker = platform::openPipe(name);
            if (waker) wakers.push_back(std::move(waker));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        threads.swap(m_threads);
    }
    for (auto& thread : threads)
        thread.join();
    std::lock_guard<std::mutex> guard(m_lock);
    m_readers.clear();
    m_instances.clear();
    m_running = false;
}

}  // namespace halvern::sim
