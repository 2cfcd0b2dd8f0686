// The classes in memory: a snapshot of class.vd with its look-ups.

#pragma once

#include <array>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "Classes/valueForm.h"
#include "dwdata/ClassStorage.h"

// A code as the records of the current data carry it: at most 12 characters, then zeroes.
struct JoinCode {
    static constexpr std::size_t kLimit = 12;

    JoinCode() = default;
    // Cut to the limit; never past the field.
    template <std::size_t Size>
    explicit JoinCode(const char (&field)[Size]) {
        static_assert(Size > kLimit);
        std::memcpy(text, field, strnlen(field, kLimit));
    }

    char text[kLimit] = {};
};

// What a join of the current data takes from a class.  Apart from the class itself, which takes
// kilobytes.
struct ClassJoin {
    JoinCode code;
    std::uint32_t owner = 0; // the class's place and 1
    ValueForm form;
};

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
    const sClassParUnitedDesc* classById(std::int32_t classId) const;
    // Good until the next call.
    const ClassJoin* classJoinById(std::int32_t classId) const {
        const KnownClass& known =
            m_knownClasses[static_cast<std::uint32_t>(classId) % kKnownClasses];
        if (known.classId == classId && known.join.owner != 0)
            return &known.join;
        return findClassJoin(classId);
    }
    const char* classCodeById(std::int32_t classId) const;
    const char* securityCodeById(std::int32_t classId, std::uint32_t secId) const;
    const ParamVector* paramsByClassId(std::int32_t classId) const;

    // The code of a security of the class, in `room` where it stands nowhere else; null for an
    // unknown one.
    const JoinCode* securityJoinCode(const ClassJoin& owner, std::uint32_t secId,
                                     JoinCode& room) const {
        if (secId < m_securityJoins.size() && m_securityJoins[secId].owner == owner.owner)
            return &m_securityJoins[secId].code;
        return findSecurityCode(owner, secId, room);
    }

    // Begins to fetch what securityJoinCode will look at.
    void expectSecurity(std::uint32_t secId) const {
        if (secId < m_securityJoins.size())
            __builtin_prefetch(&m_securityJoins[secId]);
    }

    // The security that will be asked for kAhead calls later, if callers keep asking for those of
    // `owner` one after the other as they did last; otherwise null.
    const SECURITY_DESC* expected(const SECURITY_DESC& asked, const ClassJoin& owner) const {
        if (&asked != m_walk.next)
            m_walk.end = endOfWalk(asked, owner);
        const bool goesOn = &asked == m_walk.next && m_walk.end - &asked > kAhead;
        m_walk.next = m_walk.end != nullptr ? &asked + 1 : nullptr;
        if (!goesOn)
            return nullptr;
        __builtin_prefetch(&asked + 2 * kAhead);
        return &asked + kAhead;
    }

  private:
    void loadClass(ClassStorage& storage, const ClassFilter& filter);

    // Securities with higher ids are joined through the index of their class alone.
    static constexpr std::uint32_t kMostSecurityJoins = 1 << 18;
    struct SecurityJoin {
        JoinCode code;
        std::uint32_t owner = 0; // the place of the class and 1, 0 for none
    };

    // How far ahead of a caller who asks for one security after the other.
    static constexpr std::ptrdiff_t kAhead = 4;
    struct Walk {
        const SECURITY_DESC* next = nullptr; // the one behind the last that was asked for
        const SECURITY_DESC* end = nullptr;  // of its class; null where the class is another one's
    };
    const SECURITY_DESC* endOfWalk(const SECURITY_DESC& asked, const ClassJoin& owner) const;

    static constexpr std::size_t kKnownClasses = 64;
    // The join itself and no pointer: a join then touches one cache line and not three.
    struct alignas(64) KnownClass {
        std::int32_t classId = 0;
        ClassJoin join; // without an owner where nothing was found
    };
    static_assert(sizeof(KnownClass) == 64);

    const ClassJoin* findClassJoin(std::int32_t classId) const;
    const JoinCode* findSecurityCode(const ClassJoin& owner, std::uint32_t secId,
                                     JoinCode& room) const;
    void addJoins(const sClassParUnitedDesc& loaded);

    // The place of an id among the classes that are loaded; none is m_classes.size().
    std::size_t placeById(std::int32_t classId) const;

    Classes m_classes;
    std::vector<ClassJoin> m_classJoins; // of the classes, by place
    // By id; of securities with equal ids the one of the first class.
    std::vector<SecurityJoin> m_securityJoins;
    // What was found since the load, by the low bits of the id: joins look up the same few classes
    // again and again.
    mutable std::array<KnownClass, kKnownClasses> m_knownClasses;
    mutable Walk m_walk;
    // Places in m_classes.  Deliberate: an id keeps its place for the life of the process, also
    // across loads; whichever class then stands there answers.  Joins of the current data count on
    // stable places.
    boost::unordered_flat_map<std::int32_t, std::uint32_t> m_classIndex;
};
