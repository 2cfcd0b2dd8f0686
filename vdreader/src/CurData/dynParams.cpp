// Exports of the dynamic parameters reader.

#include <algorithm>
#include <cstring>
#include <memory>

#include "CurData/changeRecord.h"
#include "CurData/lastValues.h"
#include "dw_util/pathRule.h"
#include "dwdata/curDataPage.h"
#include "dwdata/dw_curdata.h"
#include "platform/calls.h"
#include "readerFrame.h"
#include "readerSettings.h"
#include "vdreader/curdata.hpp"
#include "vdreader/descriptors.hpp"
#include "vdreader/dynparams.h"
#include "vdreader/raise.h"

namespace {

std::int32_t load(const char* name) {
    ReaderState& state = readerState();
    PathBuffer path = {};
    resolveAndTry(path, name);
    state.curData = std::make_unique<TCurrentData>();
    state.curData->Init(path, false);
    state.curData->LoadData();
    state.dynParamsReady = true;
    return 1;
}

// A walk over the change records that have their codes.
class Journal {
  public:
    Journal(TCurrentData& data, const ClassModel& model)
        : m_iterator(new DwDataIFaces::ICurDataIterator(m_data = new ICurData{&data})),
          m_model(model) {}
    // Deliberate: the iterator stays behind.  Callers keep the page that it read.
    ~Journal() = default;
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // The first or the next record that is joined to its codes, in `out`.  False at the end.
    bool begin(sDynParams& out) { return join(onNewPage(m_iterator->Begin(0)), out); }
    bool next(sDynParams& out) { return join(next(), out); }

  private:
    // Most records stand in the page that is loaded: no call for these.
    const ENC_DATA* next() {
        if (m_data->inner != nullptr)
            if (const ENC_DATA* record = m_data->inner->take())
                return record;
        return onNewPage(m_iterator->Next());
    }

    const ENC_DATA* onNewPage(const ENC_DATA* first) {
        constexpr int kAhead = 4;
        if (first != nullptr) {
            m_expected = m_data->inner->offset;
            for (int i = 0; i < kAhead; ++i)
                expectOne();
        }
        return first;
    }

    // Begins to fetch the codes of a record some places ahead: they come too late for the next one.
    void expectOne() {
        std::uint32_t length = 0;
        if (const ENC_DATA* record = m_data->inner->at(m_expected, length)) {
            m_model.expectSecurity(record->sec_id);
            m_expected += length;
        }
    }

    bool join(const ENC_DATA* record, sDynParams& out) {
        for (; record != nullptr && record->dataField1 >= 0; record = next()) {
            expectOne();
            const ClassJoin* owner = m_model.classJoinById(record->class_id);
            if (owner == nullptr)
                continue;
            JoinCode room;
            const JoinCode* secCode = m_model.securityJoinCode(*owner, record->sec_id, room);
            if (secCode == nullptr)
                continue;
            fillDynParams(*record, owner->code, *secCode, out);
            return true;
        }
        return false;
    }

    ICurData* m_data = nullptr; // the iterator's
    DwDataIFaces::ICurDataIterator* m_iterator;
    const ClassModel& m_model;
    std::uint32_t m_expected = 0; // the place in the page up to which codes are being fetched
};

// Begins to fetch the slot of a security that will be asked for soon, into the second cache: more
// lines can be on their way there than into the first.
void expectSlot(const TCurrentData& data, const SECURITY_DESC& security) {
    constexpr std::size_t kLine = 64;
    const auto* const slot = reinterpret_cast<const char*>(
        TCurrentDataAccess::dataCust(data, static_cast<std::int32_t>(security.sec_id)));
    if (slot == nullptr)
        return;
#pragma GCC unroll 17
    for (std::size_t i = 0; i < sizeof(VD_DATA_CUST); i += kLine)
        __builtin_prefetch(slot + i, 0, 2);
}

// Random look-ups wait for memory, and the processor begins to wait for the next one only as far as
// its instructions reach: each one saved here is time, hence the inline forms.
std::int32_t lastValues(const ReaderState& state, const SECURITY_DESC& security,
                        sLastDynParams* out) {
    const auto index = static_cast<std::int32_t>(security.sec_id);
    if (index >= TCurrentDataAccess::maxSecs(*state.curData))
        dwraise_ex(__FILE__, __LINE__, "invalid security in dynamic parameters request");
    const VD_DATA_CUST* slot = TCurrentDataAccess::dataCust(*state.curData, index);
    if (slot == nullptr)
        dwraise_ex(__FILE__, __LINE__, "unknown error in dynamic parameters request");
    if (out == nullptr) {
        platform::calls.invalidParameter();
        return 0;
    }
    // Read once: the server may be writing.
    ParamSet mask;
    std::memcpy(mask.words, slot->mask, sizeof mask.words);
    std::memcpy(out->mask, mask.words, sizeof mask.words);
    // Deliberate: the class that the slot names, not the one in which the caller found the
    // security. The server moves securities between classes.
    const std::int32_t classId = slot->class_id;
    const ClassJoin* owner = state.model.classJoinById(classId);
    if (owner == nullptr)
        dwraise_ex(__FILE__, __LINE__, "could not find parameters for class_id=%d", classId);
    if (const SECURITY_DESC* next = state.model.expected(security, *owner))
        expectSlot(*state.curData, *next);
    // Deliberate: no lock, and `filled` is not looked at.  Callers poll all securities this way and
    // must not wait for a server.
    copyLastValues(reinterpret_cast<const char*>(slot) + offsetof(VD_DATA_CUST, values), mask,
                   owner->form, *out);
    return 1;
}

} // namespace

extern "C" {

std::int32_t init_vdreader_dyn_params(const char* iniFile, const char* section) {
    if (!classesAreReady())
        return 0;
    return catchFrame([=] {
        readerState().dynParamsReady = false;
        return load(configuredName(iniFile, section, kDynParamsSetting).c_str());
    });
}

std::int32_t init_vdreader_dyn_params_file(const char* fileName) {
    if (!classesAreReady())
        return 0;
    return catchFrame([=] {
        readerState().dynParamsReady = false;
        if (fileName == nullptr || *fileName == '\0')
            dwraise_ex(__FILE__, __LINE__, "provided dynparams file name is empty");
        return load(fileName);
    });
}

// Deliberate: no catch frame.  A caller tells a failure of the file from the end of the walk by the
// exception.
std::int32_t for_each_dynamic_params(DynParamsCallback callback) {
    if (!dynParamsAreReady())
        return 0;
    Journal journal(*readerState().curData, readerState().model);
    sDynParams buffer;
    for (bool found = journal.begin(buffer); found; found = journal.next(buffer)) {
        const std::int32_t result = callback(&buffer);
        if (result != kGoOn)
            return result == kStop ? 1 : 0;
    }
    return 1;
}

std::int32_t get_sSecurityDesc_last_dynamic_params(const sSecurityDesc* security,
                                                   sLastDynParams* out) {
    if (!dynParamsAreReady())
        return 0;
    const ReaderState& state = readerState();
    return catchFrame([&, security, out] { return lastValues(state, *security, out); });
}

} // extern "C"
