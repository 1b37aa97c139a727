#pragma once
#include "platform/Handle.h"

// Owner of "Global\HalvernShutdownResponse": other processes on the computer wait on it to learn that
// Halvern has completed its exit. It is signalled only when this object is destroyed.
class SysPowerC {
public:
    SysPowerC();
    virtual ~SysPowerC();
    SysPowerC(const SysPowerC&) = delete;
    SysPowerC& operator=(const SysPowerC&) = delete;

private:
    platform::UniqueHandle m_hHalvernShutdownResponse;
};
