// The way through class.vd: records at their fixed places, blocks where the records say.

#include "live/classReader.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "live/sharedFile.h"

namespace live {

namespace {

constexpr std::size_t kCodeSize = sample::kCodeSize;

class Cursor {
  public:
    Cursor(const std::string& path, std::string_view bytes, std::size_t at)
        : m_path(path), m_bytes(bytes), m_at(at) {
        skip(0);
    }

    void skip(std::uint64_t count) {
        if (m_at > m_bytes.size() || count > m_bytes.size() - m_at)
            throw Error(Error::Kind::Malformed, m_path + ": the file ends early");
        m_at += count;
    }

    template <typename Number>
    Number number() {
        Number value;
        skip(sizeof value);
        std::memcpy(&value, m_bytes.data() + m_at - sizeof value, sizeof value);
        return value;
    }

    std::string text(std::size_t size) {
        skip(size);
        const std::string_view field = m_bytes.substr(m_at - size, size);
        return std::string(field.substr(0, field.find('\0')));
    }

    std::string counted() { return text(number<std::uint32_t>()); }

  private:
    const std::string& m_path;
    std::string_view m_bytes;
    std::size_t m_at;
};

std::string readWhole(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (file)
        bytes << file.rdbuf();
    if (!file) {
        const std::error_code reason(errno != 0 ? errno : EIO, std::generic_category());
        throw Error(Error::Kind::CannotOpen, "cannot open " + path + ": " + reason.message());
    }
    return std::move(bytes).str();
}

sample::Param readParam(Cursor& at) {
    sample::Param param;
    param.par_id = at.number<std::uint16_t>();
    param.flags = at.number<std::uint16_t>();
    param.scale = at.number<std::uint16_t>();
    param.db_name = at.text(17);
    for (std::uint32_t left = at.number<std::uint32_t>(); left > 0; --left) {
        sample::ParamName& name = param.names.emplace_back();
        name.lang = at.number<std::uint16_t>();
        name.long_name = at.counted();
        name.short_name = at.counted();
        name.enum_desc = at.counted();
    }
    at.skip(8); // par_info and par_info_ex
    return param;
}

sample::Security readSecurity(Cursor& at) {
    // What stands behind the names, up to the count of the parts, and behind these.
    constexpr std::size_t kTermsSize = 178;
    constexpr std::size_t kForeignSize = 246;
    static_assert(4 + kCodeSize + kCodeSize + 31 + 7 + 4 + kTermsSize + 4 + kForeignSize ==
                  sample::kSecurityBaseSize);
    sample::Security security;
    security.sec_id = at.number<std::uint32_t>();
    security.sec_code = at.text(kCodeSize);
    at.skip(kCodeSize + 31 + 7); // ISIN, reg_number and CFI
    for (std::uint32_t left = at.number<std::uint32_t>(); left > 0; --left) {
        at.skip(2);
        at.skip(at.number<std::uint32_t>());
        at.skip(at.number<std::uint32_t>());
    }
    at.skip(kTermsSize);
    at.skip(std::uint64_t{at.number<std::uint32_t>()} * sample::kSubDescSize);
    at.skip(kForeignSize);
    return security;
}

template <typename Element>
std::vector<Element> readBlock(const std::string& path, std::string_view bytes,
                               std::uint32_t offset, std::int32_t count, Element (*read)(Cursor&)) {
    std::vector<Element> elements;
    if (offset == sample::kNoBlock || count <= 0)
        return elements;
    Cursor at(path, bytes, offset);
    at.skip(4); // the size of the block
    for (; count > 0; --count)
        elements.push_back(read(at));
    return elements;
}

} // namespace

std::vector<sample::ClassRecord> readClasses(const std::string& path) {
    const std::string bytes = readWhole(path);
    if (bytes.compare(0, 8, std::string_view("CLASSES\0", 8)) != 0 ||
        Cursor(path, bytes, sample::kVersionOffset).number<std::uint32_t>() != sample::kVersion)
        throw Error(Error::Kind::Malformed, path + ": the file is no file of classes");
    const auto count = Cursor(path, bytes, sample::kClassCountOffset).number<std::uint32_t>();
    std::vector<sample::ClassRecord> classes;
    for (std::uint32_t i = 0; i < count; ++i) {
        namespace place = sample::classRecord;
        const std::size_t record =
            sample::kRecordsOffset + std::size_t{i} * sample::kClassRecordSize;
        Cursor(path, bytes, record).skip(sample::kClassRecordSize);
        const auto at = [&](std::size_t offset) { return Cursor(path, bytes, record + offset); };
        if (at(place::kMagic).number<std::uint16_t>() != sample::kUsedMagic)
            continue;
        sample::ClassRecord& made = classes.emplace_back();
        made.classId = at(place::kClassId).number<std::int32_t>();
        made.classCode = at(place::kClassCode).text(kCodeSize);
        made.params = readBlock(path, bytes, at(place::kParamsOffset).number<std::uint32_t>(),
                                at(place::kParamsCount).number<std::int32_t>(), &readParam);
        made.securities =
            readBlock(path, bytes, at(place::kSecuritiesOffset).number<std::uint32_t>(),
                      at(place::kSecuritiesCount).number<std::int32_t>(), &readSecurity);
    }
    return classes;
}

} // namespace live
