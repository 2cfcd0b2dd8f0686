// A second, slow reader of class.vd that shares nothing with the library's: it works on the whole
// file in memory, field by field, and tells what a load must come to.
//
// Elements that the file ends before are only counted, so that absurd counts cost nothing here.

#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vdreader/descriptors.hpp"

namespace reference {

struct Name {
    std::uint16_t lang = 0;
    std::string longName;
    std::string shortName;
    std::string enumDesc; // of parameters
};

// `image` holds the fixed fields in stored order, without the counts.  `names` and `subDescs` hold
// the entries that the file begins; the counts tell how many there are with the defaulted ones.
struct Descriptor {
    std::string image;
    std::uint64_t nameCount = 0;
    std::vector<Name> names;
    std::uint64_t subDescCount = 0;
    std::vector<std::string> subDescs;
};

struct Class {
    std::string record;
    std::uint64_t securityCount = 0;
    std::vector<Descriptor> securities; // those that the file begins
    std::uint64_t paramCount = 0;
    std::vector<Descriptor> params;
};

struct ClassFile {
    std::string failure; // empty for a load that succeeds
    bool headIsGood = false;
    std::vector<Class> classes; // also those in front of a failure
    // Bytes of the elements that the counts ask for, also in a class that a failure loses.
    std::uint64_t bytesMade = 0;
};

// Sizes of the fixed fields in stored order; names stand behind the head, sub-descriptors behind
// the middle.
inline constexpr std::uint8_t kParamHead[] = {2, 2, 2, 17};
inline constexpr std::uint8_t kParamTail[] = {4, 4};
inline constexpr std::uint8_t kSecurityHead[] = {4, 13, 13, 31, 7};
inline constexpr std::uint8_t kSecurityMiddle[] = {13, 13, 2, 2,  2,  4, 4, 8, 13, 2, 4, 4,  1,
                                                   8,  13, 8, 13, 13, 8, 2, 4, 4,  8, 8, 13, 4};
inline constexpr std::uint8_t kSecurityTail[] = {13, 8,  33, 10, 33, 21, 2, 2, 2, 8,
                                                 4,  13, 65, 4,  2,  8,  4, 1, 13};
inline constexpr std::uint8_t kSubDesc[] = {13, 13, 7, 8, 2, 4};
inline constexpr std::size_t kRecordSize = 3464;
inline constexpr std::uint64_t kMostBytes = 1u << 30;

inline std::string defaultParam() {
    return std::string(31, '\0');
}
inline std::string defaultSecurity() {
    std::string image(492, '\0');
    image[68 + 67] = 1;   // lot_size
    image[246 + 124] = 1; // unnamedValue2
    for (std::size_t i = 0; i < 4; ++i)
        image[246 + 228 + i] = '\xFF'; // unnamedValue3
    return image;
}

// A file position that fails for good at the first read that the file does not hold whole.
class Source {
  public:
    explicit Source(std::string_view bytes) : m_bytes(bytes) {}

    bool failed() const { return m_failed; }
    std::uint64_t position() const { return m_position; }
    void seek(std::uint64_t position) {
        if (!m_failed)
            m_position = position;
    }
    bool read(void* out, std::uint64_t size) {
        const std::string_view found = take(size);
        if (m_failed)
            return false;
        std::memcpy(out, found.data(), found.size());
        return true;
    }
    std::string_view take(std::uint64_t size) {
        m_failed = m_failed || m_position > m_bytes.size() || m_bytes.size() - m_position < size;
        if (m_failed)
            return {};
        const std::string_view found = m_bytes.substr(m_position, size);
        m_position += size;
        return found;
    }
    template <class Number>
    Number number(Number otherwise) {
        Number value = otherwise;
        return read(&value, sizeof value) ? value : otherwise;
    }

    std::uint64_t bytesMade = 0; // of elements

  private:
    std::string_view m_bytes;
    std::uint64_t m_position = 0;
    bool m_failed = false;
};

struct Failure {
    std::string text;
};

inline void checkCount(Source& source, std::uint64_t count, std::size_t elementSize) {
    if (count > kMostBytes / elementSize)
        throw Failure{"vector too long"};
    source.bytesMade += count * elementSize;
}

inline std::size_t readFields(Source& source, std::span<const std::uint8_t> sizes,
                              std::string& image, std::size_t at) {
    for (const std::uint8_t size : sizes) {
        source.read(image.data() + at, size);
        at += size;
    }
    return at;
}

inline void readText(Source& source, std::string& text) {
    const auto length = source.number<std::uint32_t>(0);
    if (length == 0)
        return;
    const std::string_view stored = source.take(length);
    if (!source.failed())
        text = stored.substr(0, stored.find('\0'));
}

inline void readNames(Source& source, Descriptor& to, std::size_t elementSize, bool withEnum) {
    to.nameCount = source.number<std::uint32_t>(0);
    checkCount(source, to.nameCount, elementSize);
    while (to.names.size() < to.nameCount && !source.failed()) {
        Name& name = to.names.emplace_back();
        name.lang = source.number<std::uint16_t>(0);
        readText(source, name.longName);
        readText(source, name.shortName);
        if (withEnum)
            readText(source, name.enumDesc);
    }
}

inline Descriptor readParam(Source& source) {
    Descriptor param;
    param.image = defaultParam();
    const std::size_t at = readFields(source, kParamHead, param.image, 0);
    readNames(source, param, sizeof(PARAM_NAME), true);
    readFields(source, kParamTail, param.image, at);
    return param;
}

inline Descriptor readSecurity(Source& source) {
    Descriptor security;
    security.image = defaultSecurity();
    std::size_t at = readFields(source, kSecurityHead, security.image, 0);
    readNames(source, security, sizeof(SECURITY_NAME), false);
    at = readFields(source, kSecurityMiddle, security.image, at);
    security.subDescCount = source.number<std::uint32_t>(0);
    checkCount(source, security.subDescCount, sizeof(SECURITY_SUBDESC));
    while (security.subDescs.size() < security.subDescCount && !source.failed()) {
        std::string& entry = security.subDescs.emplace_back(47, '\0');
        readFields(source, kSubDesc, entry, 0);
    }
    readFields(source, kSecurityTail, security.image, at);
    return security;
}

// False where the record has no block.
inline bool enterBlock(Source& source, std::int32_t count, std::uint32_t offset, const char* name,
                       std::size_t elementSize) {
    if (count == 0 || offset == 0xFFFFFFFF)
        return false;
    source.seek(offset);
    source.number<std::uint32_t>(0);
    if (source.failed())
        throw Failure{std::string(name) + " has invalid record format"};
    checkCount(source, count < 0 ? UINT64_MAX : static_cast<std::uint64_t>(count), elementSize);
    return true;
}

template <class Number>
Number fieldOf(const std::string& record, std::size_t offset) {
    Number value;
    std::memcpy(&value, record.data() + offset, sizeof value);
    return value;
}

inline void readBlocks(Source& source, Class& to) {
    const auto securities = fieldOf<std::int32_t>(to.record, 3392);
    if (enterBlock(source, securities, fieldOf<std::uint32_t>(to.record, 3440), "securitiesSize",
                   sizeof(SECURITY_DESC))) {
        to.securityCount = static_cast<std::uint64_t>(securities);
        while (to.securities.size() < to.securityCount && !source.failed())
            to.securities.push_back(readSecurity(source));
    }
    const auto params = fieldOf<std::int32_t>(to.record, 3388);
    if (enterBlock(source, params, fieldOf<std::uint32_t>(to.record, 3444), "paramsSize",
                   sizeof(PARAMS_DESC))) {
        to.paramCount = static_cast<std::uint64_t>(params);
        while (to.params.size() < to.paramCount && !source.failed())
            to.params.push_back(readParam(source));
    }
}

inline std::string_view codeOf(const std::string& record) {
    const std::string_view field = std::string_view(record).substr(8, 13);
    return field.substr(0, field.find('\0'));
}

inline std::uint32_t readHead(Source& source, const std::string& path) {
    char head[13] = {};
    if (!source.read(head, sizeof head))
        throw Failure{"vd-file '" + path + "' has invalid format"};
    if (std::string_view(head, 8) != std::string_view("CLASSES\0", 8))
        throw Failure{"vd-file '" + path + "' has invalid head"};
    const auto version = source.number<std::uint32_t>(0xFFFFFFFF);
    if (source.failed())
        throw Failure{"'" + path + "' has invalid format"};
    if (version != 15) {
        char text[16];
        std::snprintf(text, sizeof text, "%#x", version);
        throw Failure{"'" + path + "' has invalid format version " + text};
    }
    const std::string_view info = source.take(128);
    if (source.failed())
        throw Failure{"class.vd has invalid format"};
    std::uint32_t count = 0;
    std::memcpy(&count, info.data(), sizeof count);
    return count;
}

inline Class readRecord(Source& source, std::uint32_t index) {
    const std::string suffix = " (index=" + std::to_string(static_cast<std::int32_t>(index)) + ")";
    Class found;
    found.record = source.take(kRecordSize);
    if (source.failed())
        throw Failure{"STORE_CLASS_DESC has an invalid record format" + suffix};
    const auto magic = fieldOf<std::uint16_t>(found.record, 0);
    if (magic != 0 && magic != 8261)
        throw Failure{"STORE_CLASS_DESC has an invalid record magic" + suffix};
    return found;
}

// What a load of these bytes comes to.  `path` is the resolved path; `keeps` is the filter.
inline ClassFile readClassFile(
    std::string_view bytes, const std::string& path,
    const std::function<bool(std::string_view)>& keeps = [](std::string_view) { return true; }) {
    ClassFile file;
    Source source(bytes);
    try {
        const std::uint32_t count = readHead(source, path);
        file.headIsGood = true;
        for (std::uint32_t index = 0; index < count;) {
            Class found = readRecord(source, index++);
            if (fieldOf<std::uint16_t>(found.record, 0) == 0 || !keeps(codeOf(found.record)))
                continue;
            readBlocks(source, found);
            source.seek(145 + std::uint64_t{index} * kRecordSize);
            file.classes.push_back(std::move(found));
        }
        if (file.classes.empty())
            throw Failure{"classes storage is empty"};
    } catch (const Failure& failure) {
        file.failure = failure.text;
    }
    file.bytesMade = source.bytesMade;
    return file;
}

} // namespace reference
