// Loading of the classes into memory and the look-ups by id.

#include "Classes/classModel.h"

#include <cstring>
#include <utility>

#include "Classes/classFilter.h"
#include "dw_util/pathRule.h"
#include "vdreader/raise.h"

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

    m_classIndex.try_emplace(loaded.desc.classId, static_cast<std::uint32_t>(m_classes.size()));
    m_classes.push_back(std::move(loaded));
}

const sClassParUnitedDesc* ClassModel::findClass(std::int32_t classId) const {
    const auto found = m_classIndex.find(classId);
    // The place may come from a longer file that was loaded before.
    if (found == m_classIndex.end() || found->second >= m_classes.size())
        return nullptr;
    return &m_classes[found->second];
}

const char* ClassModel::classCodeById(std::int32_t classId) const {
    const sClassParUnitedDesc* found = findClass(classId);
    return found != nullptr ? found->desc.classCode : nullptr;
}

const char* ClassModel::securityCodeById(std::int32_t classId, std::uint32_t secId) const {
    const sClassParUnitedDesc* found = findClass(classId);
    if (found == nullptr)
        return nullptr;
    const auto security = found->securityIndex.find(secId);
    return security != found->securityIndex.end() ? found->securities[security->second].sec_code
                                                  : nullptr;
}

const ParamVector* ClassModel::paramsByClassId(std::int32_t classId) const {
    const sClassParUnitedDesc* found = findClass(classId);
    return found != nullptr ? &found->params : nullptr;
}
