#pragma once
// The firmware update: when an update may start (the power source, the batteries and the WLAN module), the
// image it installs, the updater in the user's session and its answer whether Halvern has to make way for
// it; and what the installed firmware and an image consist of.
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

class ChildProcessesC;
class EFIServiceIPC;

// One object of a firmware image as the updater describes it. The updater's "IMG_CONFIG" describes the
// installed firmware, a text file of one object per line, "ID;NAME;MAJOR;MINOR;BUILD;SIZE;TYPE" with decimal
// numbers (SIZE in bytes); object 0 is the image as a whole. An image file begins with its own object 0 line.
struct FwObjectInfoT {
    std::string name;
    std::uint32_t objectId = 0;
    std::uint16_t versionMajor = 0;
    std::uint16_t versionMinor = 0;
    std::uint32_t build = 0;
    std::uint32_t sizeBytes = 0;
    std::uint16_t type = 0;
};

// The installed firmware next to an image that an update would install.
struct FwUpdateInfoT {
    std::string installedName;
    std::string imagePath;
    FwObjectInfoT image;
};

class FirmwareUpdateC {
public:
    // The power controller answers for the power source and the batteries; the updater starts through the
    // launcher.
    FirmwareUpdateC(EFIServiceIPC& efiService, ChildProcessesC& childProcesses);

    // The update-state record "C:\vexarBatches\Halvern\FW_UPDATE_STATE" belongs to the updater, which writes
    // it: 376 bytes, read whole at start. Halvern reads three of its fields: the image of a pending update
    // (bytes 0..259, ANSI text ended by a NUL; empty: the internal image copy), the update status (u16 at
    // byte 356; 2: an update is pending) and the validity mark (u32 at byte 364, 0xACDC0815), all
    // little-endian.
    static constexpr std::size_t kFwUpdateStateBytes = 376;
    // The production drive's image, and the internal copy the updater installs from (its folder is outside
    // the write filter's protection, so the copy survives the updater's reboots).
    static constexpr const wchar_t* kAutoUpdateImage = L"f:\\system\\software.img";
    static constexpr const wchar_t* kInternalImage = L"C:\\vexarBatches\\Unprotected\\Zentor.fw";
    bool readFwUpdateState();
    bool isFwUpdatePending() const;
    std::wstring GetPendingUpdateImage() const;
    // Looks for the production drive's image for about eleven seconds: the drive may still be mounting.
    bool isAutoUpdateFileAvailable();
    // A client's request: the image goes to the internal copy first, which survives the updater's reboots.
    // With `shutdownRequired` the caller ends Halvern so that the updater can replace its files. Refused
    // (false, last error ERROR_BUSY) while another client's request is being started.
    bool startUpdater(const std::wstring& imagePath, bool force, bool& shutdownRequired);
    // Starts the updater in the user's session once the power and the WLAN module allow it, and waits up to
    // 15 s for it to end or to ask for Halvern's end (`shutdownRequired`). True when it was started and
    // did not fail within the wait.
    bool startFirmwareUpdate(const std::wstring& imagePath, const std::wstring& extraArgument, bool& shutdownRequired,
                             bool batteryCheck);
    // The updater's screen that lists the components the hardware check found failing.
    bool showFirmwareUpdaterErrorMsg(const std::wstring& componentList);
    // The installed firmware's object `objectId` (0: the image itself); false (logged) when the updater's
    // description or the object is missing.
    bool GetFirmwareObjectInfo(std::uint32_t objectId, FwObjectInfoT& info);
    // What an update with `imagePath` would install; an empty path asks for the pending update's image.
    bool GetFirmwareUpdateInfo(const std::wstring& imagePath, FwUpdateInfoT& info);

private:
    EFIServiceIPC& m_efiServiceIPC;
    ChildProcessesC& m_childProcesses;
    // Guards the record: start-up reads it, the command server asks about it.
    mutable std::mutex m_lock;
    std::array<std::uint8_t, kFwUpdateStateBytes> m_fwUpdateState{};
    bool m_fwUpdateStateValid = false;
    // One client's request at a time: a second one would copy its image over the one the first updater
    // is being given.
    std::mutex m_startLock;
};
