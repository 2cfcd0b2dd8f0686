// Stands in for the service: keeps what SendInfo gets.

#include "service.h"

#include <cstring>
#include <mutex>

#ifdef _WIN32
#  define SERVICE_API extern "C" __declspec(dllexport)
#else
#  define SERVICE_API extern "C" __attribute__((visibility("default")))
#endif

namespace {
std::mutex lock;
Notice kept[16];
std::uint32_t count = 0;
} // namespace

SERVICE_API void SendInfo(std::uint32_t destination, std::uint32_t what, const void* record) {
    const std::lock_guard guard(lock);
    Notice& notice = kept[count++ % 16];
    notice.destination = destination;
    notice.what = what;
    std::memcpy(notice.record, record, sizeof notice.record);
}

SERVICE_API std::uint32_t takenNotices(Notice* out) {
    const std::lock_guard guard(lock);
    std::memcpy(out, kept, sizeof kept);
    return count;
}
