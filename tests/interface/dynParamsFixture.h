// Classes and a small data.vd for the tests of the dynamic parameters reader.

#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "readers.h"
#include "sample/dataFile.h"

inline std::vector<sDynParams> records;

inline std::int32_t noteRecord(sDynParams* record) {
    records.push_back(*record);
    return seen.next(records.size());
}

inline std::string walked() {
    records.clear();
    std::string text;
    if (for_each_dynamic_params(noteRecord) != 1)
        text = "(0) ";
    for (const sDynParams& record : records)
        text += std::to_string(record.dataField1) + ":" + record.class_code + "/" +
                record.sec_code + " ";
    return text;
}

inline sSecurityDesc* found = nullptr;

inline std::int32_t takeSecurity(sClassParUnitedDesc*, sSecurityDesc* security) {
    found = security;
    return 0;
}

inline sSecurityDesc* securityOf(const char* classCode) {
    found = nullptr;
    for_each_security_in_class(classCode, takeSecurity);
    return found;
}

// A class with parameters; those in `doubles` are doubles.
inline sample::ClassRecord classWithParams(std::int32_t id, const std::string& code,
                                           std::uint32_t secId, std::size_t count,
                                           const std::vector<std::size_t>& doubles) {
    sample::ClassRecord record;
    record.classId = id;
    record.classCode = code;
    record.params.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        record.params[i].par_id = static_cast<std::uint16_t>(900 - i);
    for (std::size_t i : doubles)
        record.params[i].flags = 0x8001;
    sample::Security security;
    security.sec_id = secId;
    security.sec_code = "OF_" + code;
    record.securities.push_back(security);
    return record;
}

inline sample::Record recordOf(std::int32_t number, std::int32_t classId, std::uint32_t secId) {
    sample::Record record;
    record.dataField1 = number;
    record.class_id = classId;
    record.sec_id = secId;
    return record;
}

// A small file: 20 slots, pages of the journal of 1,000 bytes.
inline sample::DataFile smallFile() {
    sample::DataFile file;
    file.header.maxSecs = 20;
    file.header.dataPageSize = 11'000;
    file.header.eventPageSize = 1'000;
    return file;
}

class DynParamsFixture : public testing::Test {
  protected:
    void load(const std::vector<sample::ClassRecord>& classes, const sample::DataFile& file) {
        m_folder.writeClasses(classes);
        sample::writeDataFile(m_folder.name("data.vd"), file);
        ASSERT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 1) << lastError();
        ASSERT_EQ(init_vdreader_dyn_params_file(m_folder.name("data.vd").c_str()), 1)
            << lastError();
    }

    // The latest values of the one security of `classCode`, in a buffer filled with 0x77.
    std::int32_t last(const char* classCode) {
        std::memset(&m_out, 0x77, sizeof m_out);
        return get_sSecurityDesc_last_dynamic_params(securityOf(classCode), &m_out);
    }

    // The bytes of m_out that differ from 0x77, behind the mask.
    std::vector<std::size_t> touched() const {
        std::vector<std::size_t> places;
        const auto* bytes = reinterpret_cast<const unsigned char*>(&m_out);
        for (std::size_t i = 16; i < sizeof m_out; ++i)
            if (bytes[i] != 0x77)
                places.push_back(i);
        return places;
    }

    ReaderFolder m_folder;
    sLastDynParams m_out;
};
