// Notices of failures to the sibling service: the record, and the one function of its library.

#include <atomic>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "platform/lasting.h"
#include "platform/startUp.h"
#include "vdreader/dll.hpp"
#include "vdreader/log.h"
#include "vdreader/postmortem.h"

namespace {

constexpr std::size_t kTextSize = 900;
constexpr std::uint32_t kErrorInfo = 34; // what the service tells its records by

#pragma pack(push, 1)
struct ServiceErrorRecord {
    std::uint16_t kind;
    std::uint16_t reserved2;
    std::uint32_t code;
    std::uint32_t value1;
    std::uint32_t value2;
    std::uint16_t flags;
    char text[kTextSize]; // without a terminator if it is that long
    std::uint8_t terminator;
    std::uint8_t reserved919;
};
#pragma pack(pop)
static_assert(sizeof(ServiceErrorRecord) == 920);
static_assert(offsetof(ServiceErrorRecord, kind) == 0);
static_assert(offsetof(ServiceErrorRecord, reserved2) == 2);
static_assert(offsetof(ServiceErrorRecord, code) == 4);
static_assert(offsetof(ServiceErrorRecord, value1) == 8);
static_assert(offsetof(ServiceErrorRecord, value2) == 12);
static_assert(offsetof(ServiceErrorRecord, flags) == 16);
static_assert(offsetof(ServiceErrorRecord, text) == 18);
static_assert(offsetof(ServiceErrorRecord, terminator) == 918);
static_assert(offsetof(ServiceErrorRecord, reserved919) == 919);
static_assert(std::is_trivially_copyable_v<ServiceErrorRecord>);

using SendInfo = void (*)(std::uint32_t destination, std::uint32_t what, const void* record);

// The library stays loaded once it is, and this one with it: a thread may fail until the process is
// gone.
constinit bool loadWasTried = false;                 // under the lock
constinit const libn::Dll* serviceLibrary = nullptr; // under the lock
constinit std::atomic<SendInfo> sendInfo{nullptr};

// Never destroyed, for the same reason.  Recursive: a fault inside the service's own start comes
// back here with its notice.
std::recursive_mutex& loadLock() {
    static const platform::Lasting<std::recursive_mutex> lock;
    return lock.get();
}

void loadService() {
    const std::lock_guard guard(loadLock());
    if (loadWasTried)
        return;
    loadWasTried = true;
    // Deliberate: what the first load raises leaves the notice.  Components of the family find a
    // missing service by it, and only then go on without one.
    serviceLibrary = new libn::Dll("dwsvctl.dll");
    platform::stayLoaded();
    try {
        sendInfo.store(reinterpret_cast<SendInfo>(serviceLibrary->getFunction("SendInfo")));
    } catch (const libn::Dll::Error&) {
        // Told below.
    }
    if (sendInfo.load() == nullptr)
        error("dwevs Can't load dw_svctl_SendInfo function");
}

} // namespace

extern "C" void SendSvctlError(std::uint32_t destination, std::uint32_t code, std::uint16_t kind,
                               std::uint32_t value1, std::uint32_t value2, std::uint8_t flagOff,
                               const char* text) {
    if (sendInfo.load() == nullptr)
        loadService();
    const SendInfo send = sendInfo.load();
    if (send == nullptr) {
        error("Can't send extended error notification: SVCTL SendInfo function is missing");
        return;
    }
    ServiceErrorRecord record = {};
    record.kind = kind;
    record.code = code;
    record.value1 = value1;
    record.value2 = value2;
    record.flags = static_cast<std::uint16_t>((flagOff ^ 1U) << 2);
    if (text != nullptr) {
        const void* end = std::memchr(text, 0, kTextSize);
        std::memcpy(record.text, text,
                    end != nullptr ? static_cast<const char*>(end) - text : kTextSize);
    }
    send(destination, kErrorInfo, &record);
}
