// The classes in memory: a snapshot of class.vd with its look-ups.

#pragma once

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <string_view>
#include <vector>

#include "dwdata/ClassStorage.h"

// One loaded class.
struct sClassParUnitedDesc {
    STORE_CLASS_DESC desc = {};
    ParamVector params;
    SecurityVector securities;
    // Position of the walk through `params`.
    std::uint64_t paramCursor = 0;
    // Places in `securities` by sec_id; of equal ids the first.
    boost::unordered_flat_map<std::uint32_t, std::uint32_t> securityIndex;

    // The class code without its terminator; never past its field.
    std::string_view code() const;
};

struct ClassFilter;

class ClassModel {
  public:
    using Classes = std::vector<sClassParUnitedDesc>;

    Classes& classes() { return m_classes; }

    // Replaces the classes by those of the file that the filter keeps.  `path` goes through the
    // path rule.  Raises the failures of ClassStorage, "reader for classes can not be initialized"
    // for a file that does not open, "classes storage is empty" where no class was kept.  The
    // classes stay as they were when the file does not open or its head is bad; a later failure
    // leaves what was loaded so far.
    void load(const char* path, const ClassFilter& filter);

    // Look-ups by id; null for an unknown one.
    const char* classCodeById(std::int32_t classId) const;
    const char* securityCodeById(std::int32_t classId, std::uint32_t secId) const;
    const ParamVector* paramsByClassId(std::int32_t classId) const;

  private:
    const sClassParUnitedDesc* findClass(std::int32_t classId) const;
    void loadClass(ClassStorage& storage, const ClassFilter& filter);

    Classes m_classes;
    // Places in m_classes.  Deliberate: an id keeps its place for the life of the process, also
    // across loads; whichever class then stands there answers.  Joins of the current data count on
    // stable places.
    boost::unordered_flat_map<std::int32_t, std::uint32_t> m_classIndex;
};
