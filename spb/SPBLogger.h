#pragma once
// The stream buffer behind the SPB library's diagnostic streams while a host process has registered a
// logger: each flushed message goes to its callback, cut at 255 characters.
#include <streambuf>

namespace halvern::spb {

using SPBLoggerCallback = void (*)(void* context, int level, const char* text);

class SPBLogger : public std::streambuf {
public:
    static constexpr std::size_t kBufferBytes = 256;
    // The level every message is handed over with.
    static constexpr int kLevel = 3;

    SPBLogger();
    void set(SPBLoggerCallback callback, void* context);

protected:
    int_type overflow(int_type c) override;
    int sync() override;

private:
    char m_buffer[kBufferBytes];
    SPBLoggerCallback m_callback = nullptr;
    void* m_context = nullptr;
};

}  // namespace halvern::spb
