// What the interface tests share: files for the readers, and walks that note what they see.
//
// Each test runs in a process of its own, so each finds the readers as a fresh host does.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sample/classFile.h"
#include "sample/futuresFiles.h"
#include "support/tempFolder.h"
#include "vdreader/vdreader.h"

inline std::string lastError() {
    return get_vdreader_error();
}

// What the callbacks below saw and what they answer.
struct Seen {
    std::vector<std::string> classes;
    std::vector<std::string> securities; // "class/security"
    int records = 0;
    std::int32_t answer = 1;
    int answerAt = 0; // `answer` is for this call, 1-based; 0 for all

    std::int32_t next(std::size_t call) const {
        return answerAt == 0 || call == static_cast<std::size_t>(answerAt) ? answer : 1;
    }
};
inline Seen seen;

inline std::int32_t noteClass(sClassParUnitedDesc* classDesc) {
    seen.classes.emplace_back(get_sClassParUnitedDesc_class_code(classDesc));
    return seen.next(seen.classes.size());
}

inline std::int32_t noteSecurity(sClassParUnitedDesc* classDesc, sSecurityDesc* security) {
    seen.securities.push_back(std::string(get_sClassParUnitedDesc_class_code(classDesc)) + "/" +
                              get_sSecurityDesc_sec_code(security));
    return seen.next(seen.securities.size());
}

inline std::int32_t noteLimit(sFutLimit*) {
    return seen.next(static_cast<std::size_t>(++seen.records));
}
inline std::int32_t notePosition(sFutPosition*) {
    return seen.next(static_cast<std::size_t>(++seen.records));
}

// Codes of all loaded classes with a blank behind each; "(not ready)" where the walk is refused.
inline std::string loadedCodes() {
    seen.classes.clear();
    if (for_each_class(noteClass) != 1)
        return "(not ready)";
    std::string codes;
    for (const std::string& code : seen.classes)
        codes += code + " ";
    return codes;
}

inline sample::ClassRecord classOf(std::int32_t id, const std::string& code,
                                   const std::vector<std::string>& securities = {}) {
    sample::ClassRecord record;
    record.classId = id;
    record.classCode = code;
    for (const std::string& securityCode : securities) {
        sample::Security security;
        security.sec_id = static_cast<std::uint32_t>(1000 * id) +
                          static_cast<std::uint32_t>(record.securities.size());
        security.sec_code = securityCode;
        record.securities.push_back(security);
    }
    return record;
}

// A folder with an ini file whose section "s" names class.vd, alert.vd, flimit.vd and
// fclipos.vd beside it.
class ReaderFolder : public TempFolder {
  public:
    std::string writeIni(const std::string& more = "") const {
        return write("test.ini", "[s]\nclasses=" + name("class.vd") + "\nalerts=" +
                                     name("alert.vd") + "\nflimits=" + name("flimit.vd") +
                                     "\nfclipos=" + name("fclipos.vd") + "\n" + more);
    }
    std::string writeClasses(const std::vector<sample::ClassRecord>& classes) const {
        return write("class.vd", sample::encodeClassFile(classes));
    }
};
