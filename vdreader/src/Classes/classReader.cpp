// Exports of the classes reader: initialisation and walks.

#include <string_view>

#include "readerFrame.h"
#include "readerSettings.h"
#include "vdreader/raise.h"
#include "vdreader/readers.h"

namespace {

std::int32_t load(const char* path) {
    ReaderState& state = readerState();
    state.model.load(path, state.classFilter);
    state.classesReady = true;
    return 1;
}

// Not ready until the load is done, and without the codes of an earlier filter.
void startOver() {
    ReaderState& state = readerState();
    state.classesReady = false;
    // Deliberate: the filter's direction stays.  Callers that initialise again depend on it.
    state.classFilter.codes.clear();
}

std::int32_t walkSecurities(sClassParUnitedDesc& classDesc, SecurityCallback callback) {
    for (SECURITY_DESC& security : classDesc.securities)
        if (callback(&classDesc, &security) != kGoOn)
            return 0;
    return 1;
}

} // namespace

extern "C" {

std::int32_t init_vdreader_classes(const char* iniFile, const char* section) {
    return catchFrame([=] {
        startOver();
        readerState().classFilter.read(iniFile, section);
        return load(configuredName(iniFile, section, kClassesSetting).c_str());
    });
}

std::int32_t init_vdreader_classes_file(const char* fileName) {
    return catchFrame([=] {
        startOver();
        if (fileName == nullptr || *fileName == '\0')
            dwraise_ex(__FILE__, __LINE__, "provided classes file name is empty");
        return load(fileName);
    });
}

std::int32_t for_each_class(ClassCallback callback) {
    return catchFrame([=] {
        ReaderState& state = readerState();
        if (!state.classesReady)
            dwraise_ex(__FILE__, __LINE__, "classes storage is not initialized");
        for (sClassParUnitedDesc& classDesc : state.model.classes())
            if (callback(&classDesc) != kGoOn)
                return 0;
        return 1;
    });
}

std::int32_t for_each_security(SecurityCallback callback) {
    if (callback == nullptr)
        return failed("Invalid argument: for_each_security");
    if (!classesAreReady())
        return 0;
    for (sClassParUnitedDesc& classDesc : readerState().model.classes())
        if (walkSecurities(classDesc, callback) == 0)
            return 0;
    return 1;
}

std::int32_t for_each_security_in_class(const char* classCode, SecurityCallback callback) {
    if (callback == nullptr || classCode == nullptr || *classCode == '\0')
        return failed("Invalid argument: for_each_security_in_class");
    if (!classesAreReady())
        return 0;
    const std::string_view code(classCode);
    for (sClassParUnitedDesc& classDesc : readerState().model.classes())
        if (classDesc.code() == code && walkSecurities(classDesc, callback) == 0)
            return 0;
    return 1;
}

} // extern "C"
