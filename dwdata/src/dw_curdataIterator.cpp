// Walks over the journal of data.vd, and the other interfaces that are given an ICurData.

#include <shared_mutex>

#include "dwdata/curDataPage.h"
#include "dwdata/dw_curdata.h"
#include "vdreader/log.h"

using FileWorkLibrary::FILE_BLOCK;
using FileWorkLibrary::file_point;
using Storage = TCurrentDataAccess::Storage;

namespace {

using PageGuard = std::shared_lock<TCurrentDataAccess::Lock>;

// The lock under which a page is loaded, by the page that is left: pages that were added behind
// those of the last load or reset have a lock of their own.
PageGuard guardFor(TCurrentData& data, const file_point& left) {
    const std::int64_t position = left.position();
    const bool isNew = position != 0 && position > TCurrentDataAccess::lastPoint(data);
    return PageGuard(isNew ? TCurrentDataAccess::newPagesLock(data)
                           : TCurrentDataAccess::pagesLock(data));
}

// The loaded file, null without one.  The caller holds a lock.
Storage* loadedFile(TCurrentData& data) {
    Storage* const storage = TCurrentDataAccess::storage(data);
    return storage != nullptr && storage->header != nullptr ? storage : nullptr;
}

void forgetPage(ICurData& data) {
    delete data.inner;
    data.inner = nullptr;
}

void deleteWhole(ICurData* data) {
    if (data != nullptr)
        forgetPage(*data);
    delete data;
}

// Goes on to the page behind the present one; false at the end.  Kept out of the way of the
// records.
[[gnu::noinline]] bool loadNextPage(ICurData& data) {
    ICurData::interface_inner_data& inner = *data.inner;
    inner.offset = 0;
    const file_point left = inner.page.point();
    if (left.position() < 0)
        return false;
    const PageGuard guard = guardFor(*data.data, left);
    Storage* const file = loadedFile(*data.data);
    if (file == nullptr) {
        forgetPage(data);
        return false;
    }
    const std::uint32_t size = CURDATA_HEADER::shared(file->header->eventPageSize);
    const file_point next = file_point::at(left.offset() + FILE_BLOCK::kOverhead + size);
    inner.page.setPoint(file_point::none());
    // Deliberate: a load that fails, as it does where the file ends behind the page, leaves the old
    // records in place without a position, so they are walked once more.  Components of the family
    // skip what they have seen by the numbers of the records.
    inner.load(*file, size, next);
    if (inner.page.used() == 0) {
        event("Reset page on next");
        inner.page.setPoint(file_point::none());
        return false;
    }
    return true;
}

} // namespace

void ICurData::interface_inner_data::load(FileWorkLibrary::TFileStorageAllocatorNew& file,
                                          std::uint32_t size, file_point point) {
    // Nothing is handed out of a buffer that a failure on the way has replaced.
    limit = 0;
    page.load(file, size, point);
    // A block that lies about its own place could lead a walk in circles.
    if (page.point() != file_point::none())
        page.setPoint(point);
    payload = page.payload();
    limit = page.readable();
}

namespace DwDataIFaces {

IDwDataInterface::IDwDataInterface() = default;
IDwDataInterface::~IDwDataInterface() = default;

ICurDataCust::ICurDataCust(ICurData* data) : m_data(data) {}

ICurDataCust::~ICurDataCust() {
    deleteWhole(m_data);
}

ICurDataIterator::ICurDataIterator(ICurData* data) : m_data(data) {}

ICurDataIterator::~ICurDataIterator() {
    deleteWhole(m_data);
}

ENC_DATA* ICurDataIterator::Begin(std::uint32_t number) {
    if (m_data == nullptr || m_data->data == nullptr)
        return nullptr;
    if (m_data->inner == nullptr)
        m_data->inner = new ICurData::interface_inner_data;
    ICurData::interface_inner_data& inner = *m_data->inner;
    {
        const file_point left = inner.page.hasBlock() ? inner.page.point() : file_point::at(0);
        const PageGuard guard = guardFor(*m_data->data, left);
        Storage* const file = loadedFile(*m_data->data);
        if (file == nullptr) {
            forgetPage(*m_data);
            return nullptr;
        }
        inner.number = number;
        inner.offset = 0;
        bool found = false;
        const auto nearest = file->pageIndex.findNearest(number, found);
        if (nearest.node == nullptr)
            return nullptr;
        inner.page.setPoint(file_point::none());
        inner.load(*file, CURDATA_HEADER::shared(file->header->eventPageSize), nearest.node->value);
    }
    return inner.take();
}

ENC_DATA* ICurDataIterator::Current() {
    if (m_data == nullptr || m_data->inner == nullptr)
        return nullptr;
    std::uint32_t length = 0;
    return m_data->inner->current(length);
}

ENC_DATA* ICurDataIterator::Next() {
    if (m_data == nullptr || m_data->inner == nullptr)
        return nullptr;
    for (;;) {
        if (ENC_DATA* const record = m_data->inner->take())
            return record;
        if (!loadNextPage(*m_data))
            return nullptr;
    }
}

} // namespace DwDataIFaces
