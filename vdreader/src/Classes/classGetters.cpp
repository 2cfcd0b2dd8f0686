// Getters of classes, parameters and securities.

#include <string_view>

#include "Classes/classModel.h"
#include "Classes/getterRows.h"
#include "readerFrame.h"
#include "vdreader/classes.h"
#include "vdreader/securities.h"

namespace {

// Notes a null record; the result serves every result type.
struct InvalidArgument {
    explicit InvalidArgument(const char* text) { failed(text); }
    template <class Result>
    operator Result() const {
        return {};
    }
};

// The first entry of a language, or null.
template <class Name>
const Name* findName(const std::vector<Name>& names, std::uint16_t lang) {
    for (const Name& name : names)
        if (name.lang == lang)
            return &name;
    return nullptr;
}

} // namespace

#define VDREADER_CHECK_RECORD(record, getter) \
  if (record == nullptr)                      \
  return InvalidArgument("Invalid argument: " #getter)

#define VDREADER_DEFINE_GETTER(getter, Result, Record, field) \
  Result getter(const Record* record) {                       \
    VDREADER_CHECK_RECORD(record, getter);                    \
    return record->field;                                     \
  }

#define VDREADER_DEFINE_NAME_GETTER(getter, Record, field)       \
  const char* getter(const Record* record, std::uint16_t lang) { \
    VDREADER_CHECK_RECORD(record, getter);                       \
    const auto* name = findName(record->names, lang);            \
    return name != nullptr ? name->field.c_str() : nullptr;      \
  }

extern "C" {

VDREADER_CLASS_GETTERS(VDREADER_DEFINE_GETTER)
VDREADER_PARAM_GETTERS(VDREADER_DEFINE_GETTER)
VDREADER_SECURITY_GETTERS(VDREADER_DEFINE_GETTER)

VDREADER_DEFINE_NAME_GETTER(get_sParDesc_short_name, sParDesc, short_name)
VDREADER_DEFINE_NAME_GETTER(get_sParDesc_long_name, sParDesc, long_name)
VDREADER_DEFINE_NAME_GETTER(get_sParDesc_enum, sParDesc, enum_desc)
VDREADER_DEFINE_NAME_GETTER(get_sSecurityDesc_short_name, sSecurityDesc, short_name)
VDREADER_DEFINE_NAME_GETTER(get_sSecurityDesc_long_name, sSecurityDesc, long_name)

const char* get_sParDesc_db_name(const sParDesc* param) {
    // Deliberate: the text names another getter.  Callers compare it.
    VDREADER_CHECK_RECORD(param, get_sParDesc_flags);
    return param->db_name;
}

sParDesc* get_sClassParUnitedDesc_par_desc(sClassParUnitedDesc* classDesc) {
    VDREADER_CHECK_RECORD(classDesc, get_sClassParUnitedDesc_par_desc);
    if (classDesc->params.empty())
        return nullptr;
    classDesc->paramCursor = 1;
    return &classDesc->params.front();
}

sParDesc* get_sParDesc_next(sClassParUnitedDesc* classDesc) {
    VDREADER_CHECK_RECORD(classDesc, get_sParDesc_next);
    if (classDesc->paramCursor >= classDesc->params.size())
        return nullptr;
    return &classDesc->params[classDesc->paramCursor++];
}

} // extern "C"
