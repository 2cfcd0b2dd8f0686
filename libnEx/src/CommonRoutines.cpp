// The lock that waits for a file, and the opening behind it.

#include "libnEx/CommonRoutines.h"

#include "libnEx/FReadLock.h"
#include "platform/file.h"
#include "vdreader/log.h"

namespace libn {

namespace {

constexpr char kSource[] = "libnEx/src/CommonRoutines";
constexpr char kSourceName[] = "CommonRoutines";

bool opens(ReadRecord& record) {
    // The first leaves the system's reason in the last error, and refuses folders on every system.
    if (!platform::ReadFile(record.fileName.c_str()).isOpen())
        return false;
    record.stream.open(record.fileName); // leaves the state clear, or failed
    return record.stream.good();
}

} // namespace

void readWithAttempts(ReadRecord& record, std::int32_t attempts, std::int32_t waitMs) {
    const char* const name = record.fileName.c_str();
    for (std::int32_t attempt = 1; attempt <= attempts; ++attempt) {
        if (opens(record))
            return;
        record.stream.setstate(std::ios::failbit);
        oserrori_ex(kSource, __LINE__, "Can't read file <name=%s><attempt=%d>", name, attempt);
        // Deliberate: the wait also follows the last attempt.  Hosts reckon their time to give up
        // as the product of both numbers.
        platform::calls.sleep(waitMs > 0 ? static_cast<std::uint32_t>(waitMs) : 0);
        if (attempt == attempts) {
            error("(%s at %d) Can't read file <name=%s>", kSourceName, __LINE__, name);
            return;
        }
    }
}

FReadLock::FReadLock(const char* fileName)
    : m_record(std::make_unique<ReadRecord>(
          ReadRecord{.fileName = fileName != nullptr ? fileName : "", .stream = {}})) {}

FReadLock::~FReadLock() = default;

void FReadLock::lock() {
    readWithAttempts(*m_record, attempts, waitMs);
}

void FReadLock::unlock() {
    m_record->stream.close(); // one that fails, as with a closed stream, sets the fail flag
}

bool FReadLock::isLocked() const {
    return m_record->stream.is_open();
}

} // namespace libn
