// Loading of the classes into memory and the look-ups by id.

#include "Classes/classModel.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "Classes/classFilter.h"
#include "dw_util/pathRule.h"
#include "vdreader/raise.h"

namespace {

ValueForm valueFormOf(const ParamVector& params) {
    ValueForm form;
    // Deliberate: a class of 256 parameters counts as one of none.  The server cuts the number in
    // the same way.
    form.limit = std::min<unsigned>(static_cast<std::uint8_t>(params.size()), 128);
    for (unsigned i = 0; i < form.limit; ++i) {
        ParamSet& kind = (params[i].flags & 1) != 0 ? form.doubles : form.longs;
        kind.words[i / 64] |= std::uint64_t{1} << (i % 64);
    }
    return form;
}

} // namespace

std::string_view sClassParUnitedDesc::code() const {
    return {desc.classCode, strnlen(desc.classCode, sizeof desc.classCode)};
}

void ClassModel::load(const char* path, const ClassFilter& filter) {
    PathBuffer resolved = {};
    resolvePath(resolved, path);
    ClassStorage storage(resolved);
    if (!storage.opened)
        dwraise_ex(__FILE__, __LINE__, "reader for classes can not be initialized");
    m_classes.clear();
    m_classJoins.clear();
    m_securityJoins.clear();
    m_knownClasses = {};
    m_walk = {};
    while (storage.nextIndex < storage.classCount)
        loadClass(storage, filter);
    if (m_classes.empty())
        dwraise_ex(__FILE__, __LINE__, "classes storage is empty");
}

void ClassModel::loadClass(ClassStorage& storage, const ClassFilter& filter) {
    sClassParUnitedDesc loaded;
    if (!storage.nextRecord(loaded.desc) || !filter.keeps(loaded.code()))
        return;
    storage.readSecurities(loaded.desc, loaded.securities);
    storage.readParams(loaded.desc, loaded.params);
    storage.seekRecord(storage.nextIndex);

    loaded.securityIndex.reserve(loaded.securities.size());
    for (std::uint32_t i = 0; i < loaded.securities.size(); ++i)
        loaded.securityIndex.try_emplace(loaded.securities[i].sec_id, i);
    addJoins(loaded);

    m_classIndex.try_emplace(loaded.desc.classId, static_cast<std::uint32_t>(m_classes.size()));
    m_classes.push_back(std::move(loaded));
}

// The class is the next one.
void ClassModel::addJoins(const sClassParUnitedDesc& loaded) {
    const auto owner = static_cast<std::uint32_t>(m_classes.size() + 1);
    m_classJoins.resize(owner);
    m_classJoins.back() = {JoinCode(loaded.desc.classCode), owner, valueFormOf(loaded.params)};
    for (const SECURITY_DESC& security : loaded.securities) {
        const std::uint32_t secId = security.sec_id;
        if (secId >= kMostSecurityJoins)
            continue;
        if (secId >= m_securityJoins.size())
            m_securityJoins.resize(secId + 1);
        if (m_securityJoins[secId].owner == 0)
            m_securityJoins[secId] = {JoinCode(security.sec_code), owner};
    }
}

std::size_t ClassModel::placeById(std::int32_t classId) const {
    const auto found = m_classIndex.find(classId);
    // The place may come from a longer file that was loaded before.
    return found == m_classIndex.end() ? m_classes.size()
                                       : std::min<std::size_t>(found->second, m_classes.size());
}

const sClassParUnitedDesc* ClassModel::classById(std::int32_t classId) const {
    const std::size_t place = placeById(classId);
    return place < m_classes.size() ? &m_classes[place] : nullptr;
}

const ClassJoin* ClassModel::findClassJoin(std::int32_t classId) const {
    const std::size_t place = placeById(classId);
    if (place >= m_classes.size())
        return nullptr;
    KnownClass& known = m_knownClasses[static_cast<std::uint32_t>(classId) % kKnownClasses];
    known = {classId, m_classJoins[place]};
    return &known.join;
}

const SECURITY_DESC* ClassModel::endOfWalk(const SECURITY_DESC& asked,
                                           const ClassJoin& owner) const {
    const SecurityVector& all = m_classes[owner.owner - 1].securities;
    const SECURITY_DESC* const end = all.data() + all.size();
    const std::less<> before;
    return before(&asked, all.data()) || !before(&asked, end) ? nullptr : end;
}

const JoinCode* ClassModel::findSecurityCode(const ClassJoin& owner, std::uint32_t secId,
                                             JoinCode& room) const {
    const sClassParUnitedDesc& found = m_classes[owner.owner - 1];
    const auto security = found.securityIndex.find(secId);
    if (security == found.securityIndex.end())
        return nullptr;
    room = JoinCode(found.securities[security->second].sec_code);
    return &room;
}

const char* ClassModel::classCodeById(std::int32_t classId) const {
    const sClassParUnitedDesc* found = classById(classId);
    return found != nullptr ? found->desc.classCode : nullptr;
}

const char* ClassModel::securityCodeById(std::int32_t classId, std::uint32_t secId) const {
    const sClassParUnitedDesc* found = classById(classId);
    if (found == nullptr)
        return nullptr;
    const auto security = found->securityIndex.find(secId);
    return security != found->securityIndex.end() ? found->securities[security->second].sec_code
                                                  : nullptr;
}

const ParamVector* ClassModel::paramsByClassId(std::int32_t classId) const {
    const sClassParUnitedDesc* found = classById(classId);
    return found != nullptr ? &found->params : nullptr;
}
