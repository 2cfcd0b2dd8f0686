// Head, records and blocks of class.vd; descriptorCodec.h decodes what the blocks hold.

#include "dwdata/ClassStorage.h"

#include <cstring>
#include <iostream>

#include "descriptorCodec.h"
#include "vdreader/raise.h"

namespace {

// Makes `count` default elements and reads them in order until the stream fails.
template <class Vector>
void readBlock(ByteStream& stream, std::int32_t count, std::size_t leastSize, Vector& out) {
    const std::uint64_t elements = count < 0 ? UINT64_MAX : static_cast<std::uint64_t>(count);
    codec::checkVectorSize(elements, sizeof(typename Vector::value_type));
    out.clear();
    // Each element is read while its memory is warm, provided that the file can hold them all.
    if (elements * leastSize <= stream.bytesLeft())
        out.reserve(elements);
    else
        out.resize(elements);
    std::size_t read = 0;
    for (; read < elements && stream.good(); ++read) {
        if (read == out.size())
            out.emplace_back();
        codec::read(stream, out[read]);
    }
    out.resize(elements);
    for (; read < elements; ++read)
        codec::clearUntouched(out[read]);
}

} // namespace

ClassStorage::ClassStorage(const char* path) : m_stream(path) {
    if (!m_stream.isOpen()) {
        std::cerr << "Failed to open " << path << '\n' << std::flush;
        return;
    }
    readHead(path);
    opened = true;
}

void ClassStorage::readHead(const char* path) {
    char head[kHeadSize] = {};
    m_stream.get(head);
    if (!m_stream.good())
        dwraise_ex(__FILE__, __LINE__, "vd-file '%s' has invalid format", path);
    // The bytes behind the name and its terminator belong to the writer.
    static constexpr char kName[] = "CLASSES";
    if (std::memcmp(head, kName, sizeof kName) != 0)
        dwraise_ex(__FILE__, __LINE__, "vd-file '%s' has invalid head", path);

    std::uint32_t stored = 0xFFFFFFFF;
    m_stream.get(stored);
    if (!m_stream.good())
        dwraise_ex(__FILE__, __LINE__, "'%s' has invalid format", path);
    if (stored != kVersion)
        dwraise_ex(__FILE__, __LINE__, "'%s' has invalid format version %#x", path, stored);
    version = stored;

    char info[kInfoSize] = {};
    m_stream.get(info);
    // Deliberate: the text names the default file whatever the path is.  Monitoring looks for it.
    if (!m_stream.good())
        dwraise_ex(__FILE__, __LINE__, "class.vd has invalid format");
    std::memcpy(&classCount, info, sizeof classCount);
    recordsStart = m_stream.position();
}

bool ClassStorage::nextRecord(STORE_CLASS_DESC& record) {
    if (nextIndex >= classCount)
        return false;
    m_stream.get(record);
    if (!m_stream.good())
        dwraise_ex(__FILE__, __LINE__, "STORE_CLASS_DESC has an invalid record format (index=%d)",
                   nextIndex);
    const std::uint16_t magic = record.magic;
    if (magic != STORE_CLASS_DESC::kFree && magic != STORE_CLASS_DESC::kUsed)
        dwraise_ex(__FILE__, __LINE__, "STORE_CLASS_DESC has an invalid record magic (index=%d)",
                   nextIndex);
    ++nextIndex;
    return magic != STORE_CLASS_DESC::kFree;
}

bool ClassStorage::enterBlock(std::int32_t count, std::uint32_t offset, const char* failure) {
    if (count == 0 || offset == STORE_CLASS_DESC::kNoBlock)
        return false;
    m_stream.seek(offset);
    // Deliberate: the stored size only proves that the block begins inside the file.  Not all
    // writers fill it in, and the counts of the record alone say how much there is.
    std::uint32_t size = 0;
    m_stream.get(size);
    if (!m_stream.good())
        dwraise_ex(__FILE__, __LINE__, "%s has invalid record format", failure);
    return true;
}

void ClassStorage::readSecurities(const STORE_CLASS_DESC& record, SecurityVector& securities) {
    if (enterBlock(record.securitiesCount, record.securitiesOffset, "securitiesSize"))
        readBlock(m_stream, record.securitiesCount, codec::kLeastSecuritySize, securities);
}

void ClassStorage::readParams(const STORE_CLASS_DESC& record, ParamVector& params) {
    if (enterBlock(record.paramsCount, record.paramsOffset, "paramsSize"))
        readBlock(m_stream, record.paramsCount, codec::kLeastParamSize, params);
}

void ClassStorage::seekRecord(std::uint32_t index) {
    m_stream.seek(recordsStart + std::uint64_t{index} * sizeof(STORE_CLASS_DESC));
    nextIndex = index;
}
