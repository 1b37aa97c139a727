#pragma once
// The program's own entry, defined by the program and called by the platform's process entry (wWinMain
// on Windows, main on the host) on the main thread once the platform is ready. Its result is the exit code.
int programEntry();
