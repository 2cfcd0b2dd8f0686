// TCurrentData: locks around its file, and the values of slots.

#include <bit>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "dwdata/dw_curdata.h"
#include "dwdata/slotLock.h"
#include "libn/viewCopy.h"
#include "vdreader/log.h"
#include "vdreader/raise.h"

namespace {

// What GetData4Reading leaves out of a slot: the lock word and 4 bytes of the server's.
constexpr std::size_t kCopyStart = 8;
constexpr std::size_t kCopySize = sizeof(VD_DATA_CUST) - kCopyStart;
constexpr std::uint64_t kParams = sizeof(VD_DATA_CUST::values) / sizeof(std::uint64_t);

// The slot in place if it can be locked, else null.
char* lockableSlot(const TCurrentData::TCurrentDataFileStorage* storage, std::int32_t index) {
    char* const slot =
        storage != nullptr ? storage->slotAt(static_cast<std::uint32_t>(index)) : nullptr;
    return platform::canExchangeWord(slot) ? slot : nullptr;
}

// The stored form of a parameter, 0 where the slot is not filled.  The caller holds the lock of the
// parameters.
std::uint64_t readParam(const TCurrentData::TCurrentDataFileStorage* storage, std::int32_t index,
                        std::uint64_t param) {
    char* const slot = lockableSlot(storage, index);
    if (slot == nullptr || param >= kParams)
        return 0;
    const SlotLock held(slot);
    const auto& values = *reinterpret_cast<const VD_DATA_CUST*>(slot);
    return values.filled != 0 ? values.values[param] : 0;
}

} // namespace

TCurrentData::TCurrentData() = default;

TCurrentData::~TCurrentData() {
    try {
        const std::scoped_lock all(pagesLock, newPagesLock, paramsLock);
        deleteStorage();
    } catch (...) {
        error("Unknown error in ~TCurrentData()");
    }
}

void TCurrentData::Init(const char* name, bool create) {
    const std::scoped_lock all(pagesLock, newPagesLock, paramsLock);
    deleteStorage();
    const char* const given = name != nullptr ? name : "";
    const std::size_t length = strnlen(given, sizeof fileName - 1);
    std::memmove(fileName, given, length);
    fileName[length] = '\0';
    lastPoint.exchange(0);
    storage = new TCurrentDataFileStorage(fileName, create, lastPoint);
}

void TCurrentData::LoadData() {
    const std::scoped_lock all(pagesLock, newPagesLock, paramsLock);
    if (storage == nullptr || !storage->load())
        dwraise_ex(kCurDataSource, __LINE__, "Can't load data from file '%s'", fileName);
}

void TCurrentData::ResetData() {
    const std::scoped_lock all(pagesLock, newPagesLock, paramsLock);
    if (storage == nullptr || !storage->layOut())
        dwraise_ex(kCurDataSource, __LINE__, "Can't reset data for file '%s'", fileName);
}

void TCurrentData::Close() {
    const std::scoped_lock all(pagesLock, newPagesLock, paramsLock);
    if (storage == nullptr)
        return;
    storage->closeStorage();
    deleteStorage();
}

// The stamp is written outside the storage's destructor, so that a fault there can be caught.
void TCurrentData::deleteStorage() {
    const std::unique_ptr<TCurrentDataFileStorage> gone(std::exchange(storage, nullptr));
    if (gone != nullptr)
        gone->stampClosed();
}

std::int32_t TCurrentData::GetMaxSecs() const {
    return TCurrentDataAccess::maxSecs(*this);
}

void TCurrentData::GetElements(std::int32_t* out) {
    if (out == nullptr)
        return;
    *out = storage != nullptr && storage->header != nullptr
               ? CURDATA_HEADER::shared(storage->header->elements)
               : 0;
}

VD_DATA_CUST* TCurrentData::GetDataCust(std::int32_t index) {
    return TCurrentDataAccess::dataCust(*this, index);
}

void* TCurrentData::GetData4Reading(std::int32_t index, void* out, std::int32_t /*ignored*/) {
    // Deliberate: the number that files are laid out for, whatever this one is made for.  Callers
    // of the family bound their tables by it.
    if (out == nullptr || static_cast<std::uint32_t>(index) >= kLaidOutSecs)
        return nullptr;
    const std::shared_lock guard(paramsLock);
    char* const slot = lockableSlot(storage, index);
    if (slot == nullptr)
        return nullptr;
    const SlotLock held(slot);
    libn::viewCopy(out, slot + kCopyStart, kCopySize);
    return out;
}

double TCurrentData::GetDoubleParam(std::int32_t index, std::uint64_t param) {
    const std::shared_lock guard(paramsLock);
    return std::bit_cast<double>(readParam(storage, index, param));
}

std::int32_t TCurrentData::GetLongParam(std::int32_t index, std::uint64_t param) {
    const std::shared_lock guard(paramsLock);
    return static_cast<std::int32_t>(readParam(storage, index, param));
}
