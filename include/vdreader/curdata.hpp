// Current data: the live parameter values of securities and the journal of their changes, read from
// data.vd beside the server that writes it.  For C++ components of the family.
//
// The values of a security stand in its slot, which stays mapped: what the server writes is seen at
// once.  Change records are read page by page through an iterator, from private copies.
//
// Reading writes.  The file is opened for reading and writing, shared both ways.  A load sets
// closeStamp to 0 and rewrites the head of each block that it maps (marker, capacity and position,
// in a good file the values that stand there); a file of size 0, also one that could not be
// opened, is laid out; a file that ends in front of a block that its header tells of grows; and
// when the object lets go of the file, closeStamp becomes 0xDDFDDFDD.  Nothing else changes but the
// lock words of slots.
//
// Library and caller share one C++ run-time.  Other modules are compiled against the places of the
// fields and the order of the virtual operations.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "vdreader/export.h"
#include "vdreader/memutil.hpp"

#pragma pack(push, 1)

// One slot, in place in the file.  Unnamed bytes belong to the server.  Numbers are little-endian.
struct VD_DATA_CUST {
    std::uint32_t
        lock; // 0 free, 1 held; taken and given back by atomic exchanges between processes
    char reserved4[4];
    std::uint16_t filled; // 0: the slot has no values
    char reserved10[18];
    std::int32_t class_id;
    char reserved32[4];
    std::uint8_t mask[16]; // bit i (byte i / 8, value 1 << (i % 8)): parameter i has a value
    char reserved52[4];
    // By parameter: the bits of a double, or an integer in the low half.  Not aligned, so to be
    // read by value.
    std::uint64_t values[128];
};

// One change record.  Behind it stand maskSize bytes, longCount 32-bit integers and doubleCount
// 8-byte values, without gaps; none of it is aligned.
struct ENC_DATA {
    char reserved0[4];
    std::int32_t dataField2;
    std::int32_t dataField1; // running number of the record; a negative one ends a walk
    std::int32_t dataField3;
    std::uint8_t maskSize;
    std::uint8_t longCount;
    std::uint8_t doubleCount;
    char reserved19[1];
    std::uint32_t sec_id;
    std::int32_t class_id;
    char reserved28[4];
};

#pragma pack(pop)

static_assert(sizeof(VD_DATA_CUST) == 1080);
static_assert(offsetof(VD_DATA_CUST, lock) == 0);
static_assert(offsetof(VD_DATA_CUST, reserved4) == 4);
static_assert(offsetof(VD_DATA_CUST, filled) == 8);
static_assert(offsetof(VD_DATA_CUST, reserved10) == 10);
static_assert(offsetof(VD_DATA_CUST, class_id) == 28);
static_assert(offsetof(VD_DATA_CUST, reserved32) == 32);
static_assert(offsetof(VD_DATA_CUST, mask) == 36);
static_assert(offsetof(VD_DATA_CUST, reserved52) == 52);
static_assert(offsetof(VD_DATA_CUST, values) == 56);
static_assert(std::is_trivially_copyable_v<VD_DATA_CUST>);

static_assert(sizeof(ENC_DATA) == 32);
static_assert(offsetof(ENC_DATA, reserved0) == 0);
static_assert(offsetof(ENC_DATA, dataField2) == 4);
static_assert(offsetof(ENC_DATA, dataField1) == 8);
static_assert(offsetof(ENC_DATA, dataField3) == 12);
static_assert(offsetof(ENC_DATA, maskSize) == 16);
static_assert(offsetof(ENC_DATA, longCount) == 17);
static_assert(offsetof(ENC_DATA, doubleCount) == 18);
static_assert(offsetof(ENC_DATA, reserved19) == 19);
static_assert(offsetof(ENC_DATA, sec_id) == 20);
static_assert(offsetof(ENC_DATA, class_id) == 24);
static_assert(offsetof(ENC_DATA, reserved28) == 28);
static_assert(std::is_trivially_copyable_v<ENC_DATA>);

// Operations that storages of the family share.  Their order is binding for other modules.
//
// An operation without a name here belongs to other storages and is reached through its slot alone;
// in this library each of them raises a CError of the source file Common/include/AbstractStorage
// with the text that stands beside it.
class TAbstractStorage {
  private:
    virtual void operation1(); // "ILLEGAL CALL 2"
    virtual void operation2(); // "ILLEGAL CALL 1"

  public:
    virtual void Close() = 0;

  private:
    virtual void operation4(); // "ILLEGAL CALL 4"
    virtual void operation5(); // "ILLEGAL CALL 3"

  public:
    virtual void LoadData() = 0;
    virtual void ResetData() = 0;
    virtual void* GetData4Reading(std::int32_t index, void* out, std::int32_t ignored) = 0;

  private:
    virtual void operation9();  // "ILLEGAL CALL Seq"
    virtual void operation10(); // "ILLEGAL CALL Seq1"
    virtual void operation11(); // "ILLEGAL CALL 8"
    virtual void operation12(); // "ILLEGAL CALL 9"
    virtual void operation13(); // "ILLEGAL CALL 10"
    virtual void operation14(); // "ILLEGAL CALL 11"
    virtual void operation15(); // "ILLEGAL CALL 12"
    virtual void operation16(); // "ILLEGAL CALL 21"
    virtual void operation17(); // "ILLEGAL CALL 22"
    virtual void operation18(); // "ILLEGAL CALL 23"
    virtual void operation19(); // "ILLEGAL CALL 24"
    virtual void operation20(); // "ILLEGAL CALL 14"
    virtual void operation21(); // "ILLEGAL CALL 15"
    virtual void operation22(); // "ILLEGAL CALL 15"
    virtual void operation23(); // "ILLEGAL CALL 16"
    virtual void operation24(); // "ILLEGAL CALL 17"
    virtual void operation25(); // "ILLEGAL CALL 18"
    virtual void operation26(); // "ILLEGAL CALL 25"

  public:
    virtual void GetElements(std::int32_t* out) = 0;

  private:
    virtual void operation28(); // "ILLEGAL CALL 21"
    virtual void operation29(); // "ILLEGAL CALL 22"
    virtual void operation30(); // "ILLEGAL CALL 23"
    virtual void operation31(); // "ILLEGAL CALL 24"

  public:
    virtual ~TAbstractStorage();

    TAbstractStorage(const TAbstractStorage&) = delete;
    TAbstractStorage& operator=(const TAbstractStorage&) = delete;

  protected:
    TAbstractStorage();
};

// One data.vd.  Init opens it, LoadData maps it, Close lets it go; then Init may run again.
//
// Threads: any number.  Three reader-writer locks stand inside.  Init, LoadData, ResetData, Close
// and the destructor take all of them exclusively; GetData4Reading, GetDoubleParam and GetLongParam
// take paramsLock shared and the slot's lock in the file; iterators take pagesLock or newPagesLock
// shared while they load a page.  GetDataCust, GetMaxSecs and GetElements take none: the caller
// keeps them apart from what takes all three.  An exception leaves every lock free.
//
// The lock of a slot is waited for without a limit, giving way to other threads between tries: a
// process that dies with it stalls whoever wants that slot.
//
// Failures of the system come as the CErrors of the mapping layer ("MappableStorageFile ..."), of
// memory as COSErrors and std::bad_alloc, through any operation that opens, maps or copies.  After
// a failed load or reset the object can be closed, loaded again and destroyed; until then its
// getters answer for what was mapped before the failure.
class TCurrentData : public TAbstractStorage {
  public:
    class TCurrentDataFileStorage;

    // No file, and all locks free.
    VDREADER_MEMBER TCurrentData();

    // Lets the file go as Close does.  An exception there is kept in and noted in the error log as
    // "Unknown error in ~TCurrentData()".
    VDREADER_MEMBER ~TCurrentData() override;

    TCurrentData(const TCurrentData&) = delete;
    TCurrentData& operator=(const TCurrentData&) = delete;

    // Opens the file `name`, a path of at most 260 characters (what is longer is cut, null counts
    // as empty), letting go of a file that is open.  With `create` the file is made or emptied.  A
    // file that cannot be opened raises nothing: the event log gets "Allocating error: %s" with the
    // system's reason, and the file counts as empty.  A load or a reset may make it after all; then
    // its slots can be read at once, and its journal can be walked only after another Init.
    VDREADER_MEMBER void Init(const char* name, bool create);

    // Maps the slots and the newest page of the journal, and notes the first record number of each
    // page; an empty file is laid out as by ResetData.  On an object that is loaded it starts anew
    // with the file as it is now, also a longer one, and pointers from GetDataCust end.  A file
    // that did not open at Init, or in a reset since, gets slots by this and no journal.  Raises
    //   "File type is incorrect"             another signature; closeStamp is written all the same
    //   "Can't load data from file '%s'"     an empty file could not be laid out; no Init
    //   "TCurrentData load:NAME<%d>..."      a header whose sizes, counts or positions are
    //                                        impossible; NAME is the field's
    //   "MappableStorageFile mapPtr. Ensure offset is n multiple memory page size.:..."
    //                                        a server let the file grow meanwhile: load again
    VDREADER_MEMBER void LoadData() override;

    // Empties the file and lays it out: 50,000 free slots, one page of the journal without records.
    // Where the file does not open for that, a later load or reset may make it; its journal can
    // then be walked only after another Init.
    // Raises "Can't reset data for file '%s'"; the event log then has the reason as "Error while
    // reseting current data: %s".
    VDREADER_MEMBER void ResetData() override;

    // Lets the file go and stamps it as closed.  Afterwards the getters answer 0 or null, and what
    // GetDataCust gave is gone.  An iterator keeps its private page.
    VDREADER_MEMBER void Close() override;

    // Number of slots that the file is made for, 0 without a loaded file.
    VDREADER_MEMBER std::int32_t GetMaxSecs() const;

    // Number of elements as the server keeps it, 0 without a loaded file.  A null `out` is left
    // alone.
    VDREADER_MEMBER void GetElements(std::int32_t* out) override;

    // The slot `index` in place: live memory, which the server may be writing.  The pointer is good
    // until the object is loaded anew, reset, closed or destroyed; it is not aligned for doubles.
    // Null without a loaded file and for a slot that the mapped pages do not have.
    VDREADER_MEMBER VD_DATA_CUST* GetDataCust(std::int32_t index);

    // Copies the 1,072 bytes behind the slot's lock word and its 4 unnamed bytes to `out`, under
    // the slot's lock.  `out`; null with nothing copied for a null `out`, an index that is negative
    // or not below 50,000, without a loaded file and for a slot that is not mapped.
    VDREADER_MEMBER void* GetData4Reading(std::int32_t index, void* out,
                                          std::int32_t ignored) override;

    // Value `param` of slot `index`, read under the slot's lock, as a double or as the integer in
    // the low half.  0 where the slot is not filled, without a loaded file, for a parameter above
    // 127 and for a slot that is not mapped.  The mask is not looked at.
    VDREADER_MEMBER double GetDoubleParam(std::int32_t index, std::uint64_t param);
    VDREADER_MEMBER std::int32_t GetLongParam(std::int32_t index, std::uint64_t param);

  private:
    friend struct TCurrentDataAccess;

    // A reader-writer lock that owns nothing and asks the system for nothing while it is free.
    class RwLock {
      public:
        void lock();
        bool try_lock();
        void unlock();
        void lock_shared();
        void unlock_shared();

      private:
        bool tryShared();
        bool lockOrMark();
        void waitForAll();
        void waitForWriters();
        static void wake();

        std::atomic<std::uint32_t> m_state{0};
    };

    void deleteStorage();

    char fileName[261] = {};
    RwLock pagesLock;
    RwLock newPagesLock;
    RwLock paramsLock;
    TCurrentDataFileStorage* storage = nullptr; // owned
    // Position of the last page of the journal that a load or a reset saw.  It stays when the
    // storage goes, since iterators choose their lock by it before they hold one.
    std::atomic<std::int64_t> lastPoint{0};
};

// What an iterator works on.  The caller makes it with `new ICurData{&currentData}` and gives it
// away; `data` must outlive the iterator.
struct ICurData {
    struct interface_inner_data;

    TCurrentData* data = nullptr;
    interface_inner_data* inner = nullptr; // the iterator's own, null at first
};

namespace DwDataIFaces {

// Base of the interfaces below.
class IDwDataInterface : public memutil::Redefine_NewDelete_<13> {
  public:
    VDREADER_MEMBER IDwDataInterface();
    VDREADER_MEMBER virtual ~IDwDataInterface();

    IDwDataInterface(const IDwDataInterface&) = delete;
    IDwDataInterface& operator=(const IDwDataInterface&) = delete;
};

// Owns an ICurData and does nothing with it.
class ICurDataCust : public IDwDataInterface {
  public:
    // Takes the object over; null is allowed.
    VDREADER_MEMBER explicit ICurDataCust(ICurData* data);
    // Deletes it with what it owns.
    VDREADER_MEMBER ~ICurDataCust() override;

  private:
    ICurData* m_data;
};

// A walk over the change records, from page to page of the file.
//
// Records stand in the iterator's copy of a page.  A pointer to one is good until the next call of
// Begin or Next, and until the iterator is destroyed; records that are appended to that page
// meanwhile are seen by the next walk.  Pages that were added since the load are reached by Next.
// A page of 81,920 bytes is read at once into a buffer that is kept.
//
// Threads: one at a time for one iterator; many iterators may work on one TCurrentData.
//
// Begin and Next raise what the file allocator raises (CEmptyError "MAGIC !!! IS INCORRECT", a
// COSError where memory is exhausted); the iterator stays usable, and all locks are free.
class ICurDataIterator : public IDwDataInterface {
  public:
    // Takes the object over, with `data` set and `inner` null.
    VDREADER_MEMBER explicit ICurDataIterator(ICurData* data);
    // Deletes it with what it owns.
    VDREADER_MEMBER ~ICurDataIterator() override;

    // Goes to the page whose first record has the number `number`, else to a neighbour of that
    // number among the pages that the load saw, and gives the first record of the page.  Null where
    // the page has none, where there is no page and without a loaded file.  A page that cannot be
    // loaded leaves the iterator with the one that it holds, whose records come again, and without
    // one with null.  After a failed open, at Init or in a reset, no page can be loaded, whatever
    // records the file gets; the journal can be walked again after another Init.
    VDREADER_MEMBER ENC_DATA* Begin(std::uint32_t number);

    // The record that Next will give: directly after Begin that is the second one of the page.
    // Null where the page has no more, and in front of the first Begin.
    VDREADER_MEMBER ENC_DATA* Current();

    // The next record of the page, or the first of a following page.  A page ends where its bytes
    // in use end, or at a record that does not fit into them.  Null in front of the first Begin,
    // behind the last record of the private page after TCurrentData::Close, and at the end of the
    // journal, which is the first page without a byte in use: then the event log gets "Reset page
    // on next", and further calls give null in silence.  Where the file itself ends behind a page
    // there is no such page: that page's records come a second time, then null; a caller that goes
    // on calling gets them again.
    VDREADER_MEMBER ENC_DATA* Next();

  private:
    ICurData* m_data;
};

} // namespace DwDataIFaces
