// What stands behind TCurrentData: the open file with its mapped pages.
//
// docs/formats/data.md tells the format.  Nothing here takes the locks of TCurrentData; its
// operations do.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "Buffers/nlist.h"
#include "FileAlloc/TTree.h"
#include "FileAlloc/filealloc.h"
#include "dwdata/CURDATA_HEADER.h"
#include "dwdata/rwLock.h"
#include "vdreader/curdata.hpp"

inline constexpr char kCurDataSource[] = "dwdata/src/dw_curdata";

// How many slots a file is laid out for, and what GetData4Reading answers for.
inline constexpr std::uint32_t kLaidOutSecs = 50'000;

class TCurrentData::TCurrentDataFileStorage : public FileWorkLibrary::TFileStorageAllocatorNew {
  public:
    using MappedPage = std::unique_ptr<FileWorkLibrary::TMappedPage>;
    using PageList = ServantsLibrary::TNList<FileWorkLibrary::TMappedPage*, 10>;

    // What a file is laid out with.
    static constexpr std::uint32_t kDataPageSize = 0x30000;
    static constexpr std::uint32_t kEventPageSize = 0x14000;
    static constexpr std::uint64_t kFirstDataPage = 132;

    // Opens the file as the allocator does.  `last` must outlive the object.
    TCurrentDataFileStorage(const char* name, bool createIt, std::atomic<std::int64_t>& last)
        : TFileStorageAllocatorNew(name, createIt), lastPoint(last), create(createIt) {}

    // Writes the closed stamp, if that was not done, and lets everything go.
    ~TCurrentDataFileStorage() override;

    // Maps header, slots and the newest page and fills the index; lays an empty file out instead,
    // with that result.  Raises what TCurrentData::LoadData tells of, and may then be called again.
    bool load();

    // Empties the file and lays it out.  False for a failure of the CEmptyError family, which the
    // event log has.
    bool layOut();

    // Writes the closed stamp into the header, if there is one, and forgets the header.
    virtual void stampClosed();

    // The slot's first byte, null where no mapped page has it.
    char* slotAt(std::uint32_t index) const noexcept {
        if (index >= slotCount)
            return nullptr;
        __extension__ using Wide = unsigned __int128;
        const auto page =
            static_cast<std::uint32_t>(Wide{perPageInverse} * (std::uint64_t{index} << 1) >> 64);
        return slotPages[page] + std::size_t{index - page * slotsPerPage} * sizeof(VD_DATA_CUST);
    }

    CURDATA_HEADER* header = nullptr; // in the view of headerPage
    PageList dataPages;
    std::uint32_t slotsPerPage = 0;
    MappedPage currentPage;
    MappedPage headerPage;
    FileWorkLibrary::TPointTree pageIndex; // from the first record number of a page to its place
    std::atomic<std::int64_t>& lastPoint;
    const bool create;

  private:
    void dropPages();
    void renewMapping();
    void mapPage(const FileWorkLibrary::file_point& point, std::uint32_t size,
                 FileWorkLibrary::TMappedPage& page);
    MappedPage mapPage(const FileWorkLibrary::file_point& point, std::uint32_t size);
    void mapHeader();
    static void checkHeader(const CURDATA_HEADER& told);
    void mapDataPages(const CURDATA_HEADER& told);
    void indexEventPages(const CURDATA_HEADER& told);
    void writeHeader();
    [[noreturn]] void raiseErrorText() const;

    // What slotAt needs: the payloads of dataPages, how many slots they hold, and 2^63 divided by
    // slotsPerPage and rounded up, which divides every index below 2^31 exactly.
    std::vector<char*> slotPages;
    std::uint32_t slotCount = 0;
    std::uint64_t perPageInverse = 0;
};

// The private parts of TCurrentData, for what works on them together with it.
struct TCurrentDataAccess {
    using Storage = TCurrentData::TCurrentDataFileStorage;
    using Lock = TCurrentData::RwLock;

    static Storage*& storage(TCurrentData& data) { return data.storage; }
    static Lock& pagesLock(TCurrentData& data) { return data.pagesLock; }
    static Lock& newPagesLock(TCurrentData& data) { return data.newPagesLock; }
    static Lock& paramsLock(TCurrentData& data) { return data.paramsLock; }
    static const char* fileName(const TCurrentData& data) { return data.fileName; }
    static std::int64_t lastPoint(const TCurrentData& data) {
        return data.lastPoint.load(std::memory_order_acquire);
    }

    // GetMaxSecs and GetDataCust, without a call.
    static std::int32_t maxSecs(const TCurrentData& data) {
        const Storage* const file = data.storage;
        return file != nullptr && file->header != nullptr
                   ? CURDATA_HEADER::shared(file->header->maxSecs)
                   : 0;
    }
    static VD_DATA_CUST* dataCust(const TCurrentData& data, std::int32_t index) {
        return data.storage != nullptr ? reinterpret_cast<VD_DATA_CUST*>(data.storage->slotAt(
                                             static_cast<std::uint32_t>(index)))
                                       : nullptr;
    }
};
