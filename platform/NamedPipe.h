#pragma once
// Named pipes with Windows semantics, client and server side. Pipes are duplex and carry messages: a read
// returns one message, and a message longer than the buffer fails with ERROR_MORE_DATA (234) after
// filling it, the next read returning the rest. On the simulation platform "\\.\pipe\NAME" is a
// SOCK_SEQPACKET Unix socket $HALVERN_ROOT/pipe/NAME, which keeps message boundaries.
#include <cstdint>
#include <string>

#include "platform/Handle.h"

namespace platform {

// The client's errors: 2 no such pipe, 231 every instance busy, 109 the other end has gone, 233 the
// server disconnected, 232 a write to a pipe that is being closed, 995 the call was cancelled.

// CreateFileW for reading and writing, no sharing, existing only, synchronous. An empty owner with the
// last error set on failure.
UniqueHandle openPipe(const std::wstring& name);
// WaitNamedPipeW: true once an instance is free to connect to.
bool waitNamedPipe(const std::wstring& name, std::uint32_t milliseconds);
// SetNamedPipeHandleState with PIPE_READMODE_MESSAGE.
bool setPipeMessageReadMode(HandleValue pipe);
// TransactNamedPipe: writes one message and reads the reply into `reply`; a longer reply fails with 234
// and leaves its rest to be read.
bool transactPipe(HandleValue pipe, const void* request, std::uint32_t requestBytes, void* reply,
                  std::uint32_t replyBytes, std::uint32_t& bytesRead);
// ReadFile of one message (or of the rest of one after 234).
bool readPipe(HandleValue pipe, void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead);
// WriteFile of one message.
bool writePipe(HandleValue pipe, const void* data, std::uint32_t bytes);
// CancelIoEx: a read, transaction or connect that another thread has blocked in on this handle ends
// with 995. Used before closing a handle that a reader may still wait on.
bool cancelPipeIo(HandleValue pipe);

// CreateNamedPipeW: one more instance of a duplex message pipe in message read mode, unlimited instances,
// blocking. An empty owner with the last error set on failure.
UniqueHandle createPipeServer(const std::wstring& name);
// ConnectNamedPipe: waits until a client opens this instance (true too when it already has).
bool connectPipeClient(HandleValue pipe);
// DisconnectNamedPipe: the client's next read fails with 233 or 109; the instance may connect again.
// Whatever the client has not read yet is lost with it: flushPipe first.
bool disconnectPipeClient(HandleValue pipe);
// FlushFileBuffers on a server instance: returns once the client has read every message written to it
// (at once on the simulation platform, whose sockets keep what was written for the reader).
bool flushPipe(HandleValue pipe);

}  // namespace platform
