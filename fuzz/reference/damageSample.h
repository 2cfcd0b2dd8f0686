// A small class file for damage tests, and the text that each cut of it must come to, told by the
// layout that its writer reports.

#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "sample/classFile.h"

namespace reference {

struct DamageSample {
    std::vector<sample::ClassRecord> classes;
    sample::ClassFileLayout layout;
    std::string bytes;
};

inline sample::Security damageSecurity(std::uint32_t id) {
    sample::Security made;
    made.sec_id = id;
    made.sec_code = "SEC" + std::to_string(id);
    made.ISIN = "XS0000000001";
    made.names = {{0, "short", std::string(300, 'l')}, {1, "", "other"}};
    made.min_step = 25;
    made.face_value = 1000.5;
    made.face_unit = "EUR";
    made.lot_size = 10;
    made.unnamedValue1 = -2;
    made.couponvalue = 3.25;
    made.subDescs = {{"a1", "a2", "a3", 77, 3, -4}, {"b1", "", "", 0, 0, 9}};
    made.stock_name = "name of a stock";
    made.unnamedValue2 = 5;
    made.tickSizeTableId = "table";
    made.accruedIntScale = -1;
    made.accruedint = 123456789012;
    made.unnamedValue3 = 6;
    made.unnamedByte3 = 7;
    made.benchmark = "MARK";
    return made;
}

inline sample::Param damageParam(std::uint16_t id) {
    sample::Param made;
    made.par_id = id;
    made.flags = 1;
    made.scale = 2;
    made.db_name = "PARAM" + std::to_string(id);
    made.names = {{0, "par", "parameter", "one;two"}, {1, "", std::string(260, 'p'), ""}};
    made.par_info = 8;
    made.par_info_ex = 9;
    return made;
}

// A class with both blocks, a free slot, a class with both blocks, and one with securities alone,
// whose block is the end of the file.
inline DamageSample makeDamageSample() {
    DamageSample made;
    made.classes.resize(4);
    made.classes[0].classCode = "FIRST";
    made.classes[0].fh = std::string(257, 'f');
    made.classes[0].securities = {damageSecurity(1), damageSecurity(2)};
    made.classes[0].params = {damageParam(1), damageParam(2)};
    made.classes[1].magic = sample::kFreeMagic;
    made.classes[2].classCode = "THIRD";
    made.classes[2].securities = {damageSecurity(3)};
    made.classes[2].params = {damageParam(3)};
    made.classes[3].classCode = "THIRTEENCHARS";
    made.classes[3].securities = {damageSecurity(4), damageSecurity(4)};
    for (std::size_t i = 0; i < made.classes.size(); ++i)
        made.classes[i].classId = static_cast<std::int32_t>(100 + i);
    made.bytes = sample::encodeClassFile(made.classes, &made.layout);
    return made;
}

// Where a block ends: where the next thing in the file begins.
inline std::size_t blockEnd(const sample::ClassFileLayout& layout, std::size_t begin) {
    std::size_t end = layout.fileSize;
    for (const sample::ClassRecordLayout& places : layout.classes)
        for (const std::size_t other : {places.securitiesBlock, places.paramsBlock})
            if (other != sample::kNoBlock && other > begin && other < end)
                end = other;
    return end;
}

// The text for a file that holds the first `size` bytes; empty for a load that succeeds.
inline std::string cutFailure(const DamageSample& made, std::size_t size, const std::string& path) {
    if (size < sample::kHeadSize)
        return "vd-file '" + path + "' has invalid format";
    if (size < sample::kInfoOffset)
        return "'" + path + "' has invalid format";
    if (size < sample::kRecordsOffset)
        return "class.vd has invalid format";
    bool blockEndedEarly = false;
    for (std::size_t i = 0; i < made.classes.size(); ++i) {
        const sample::ClassRecordLayout& places = made.layout.classes[i];
        if (blockEndedEarly || size < places.record + sample::kClassRecordSize)
            return "STORE_CLASS_DESC has an invalid record format (index=" + std::to_string(i) +
                   ")";
        for (const auto& [block, name] : {std::pair(places.securitiesBlock, "securitiesSize"),
                                          std::pair(places.paramsBlock, "paramsSize")}) {
            if (block == sample::kNoBlock)
                continue;
            if (blockEndedEarly || size < block + 4)
                return std::string(name) + " has invalid record format";
            blockEndedEarly = size < blockEnd(made.layout, block);
        }
    }
    return {};
}

// Values that a byte is changed to; the byte's own value is left out.
inline std::vector<unsigned char> changesOf(unsigned char byte) {
    std::vector<unsigned char> values = {0, 1, 0x7F, 0x80, 0xFF};
    values.push_back(static_cast<unsigned char>(byte + 1));
    values.push_back(static_cast<unsigned char>(byte - 1));
    for (int bit = 0; bit < 8; ++bit)
        values.push_back(static_cast<unsigned char>(byte ^ (1 << bit)));
    std::vector<unsigned char> changes;
    for (const unsigned char value : values)
        if (value != byte && std::find(changes.begin(), changes.end(), value) == changes.end())
            changes.push_back(value);
    return changes;
}

} // namespace reference
