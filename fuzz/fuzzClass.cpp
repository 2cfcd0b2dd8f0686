// Fuzz target of class.vd: loads a file and compares result, text and every field with the
// reference reader, then loads a good file.  The fault trailer of input.h applies.

#include <iostream>
#include <string>
#include <vector>

#include "Classes/classModel.h"
#include "classMutator.h"
#include "dw_util/pathRule.h"
#include "readerState.h"
#include "reference/classDifference.h"
#include "sample/classFile.h"
#include "support/input.h"

namespace {

using reference::Match;

const char* const kPath = "/memory/class.vd";

// The path as the platform's rule leaves it.
std::string resolvedPath() {
    PathBuffer path = {};
    resolvePath(path, kPath);
    return path;
}

const std::string& goodFile() {
    static const std::string bytes = [] {
        sample::ClassRecord good;
        good.classId = 7;
        good.classCode = "GOOD";
        good.securities.resize(1);
        good.securities[0].sec_code = "FINE";
        return sample::encodeClassFile({good});
    }();
    return bytes;
}

// The classes in memory, whether the reader is ready or not.
std::vector<reference::LoadedClass> classesInMemory() {
    std::vector<reference::LoadedClass> classes;
    for (sClassParUnitedDesc& held : readerState().model.classes()) {
        reference::LoadedClass& loaded = classes.emplace_back();
        loaded.handle = &held;
        for (SECURITY_DESC& security : held.securities)
            loaded.securities.push_back(&security);
        for (PARAMS_DESC& param : held.params)
            loaded.params.push_back(&param);
    }
    return classes;
}

bool isKnownText(const std::string& text) {
    for (const char* known :
         {"reader for classes can not be initialized", "class.vd has invalid format",
          "securitiesSize has invalid record format", "paramsSize has invalid record format",
          "vector too long", "classes storage is empty", "std::bad_alloc"})
        if (text == known)
            return true;
    for (const char* beginning :
         {"vd-file '", "'/", "'C", "STORE_CLASS_DESC has an invalid record format (index=",
          "STORE_CLASS_DESC has an invalid record magic (index="})
        if (text.compare(0, std::strlen(beginning), beginning) == 0)
            return true;
    return false;
}

// Where calls fail, the load may end earlier: its fields are whole or as default-made.
void checkFailedCalls(std::int32_t result, const reference::ClassFile& wanted) {
    FUZZ_CHECK(result == 1 || isKnownText(get_vdreader_error()));
    if (result == 1)
        FUZZ_CHECK(!wanted.classes.empty());
    const auto loaded = classesInMemory();
    FUZZ_CHECK(loaded.size() <= wanted.classes.size());
    for (std::size_t i = 0; i < loaded.size(); ++i)
        fuzzing::expectNoDifference(
            difference(loaded[i], wanted.classes[i], Match::WholeOrDefault));
}

void checkWalks(const reference::ClassFile& wanted) {
    const auto walked = reference::loadedClasses();
    fuzzing::expectNoDifference(difference(walked, wanted));
    // A walk stands at its end: the last parameter was handed out.
    for (const auto& loaded : walked)
        FUZZ_CHECK(get_sParDesc_next(loaded.handle) == nullptr);
    for (const auto& loaded : wanted.classes) {
        const std::string code(reference::codeOf(loaded.record));
        if (code.empty())
            continue;
        std::uint64_t count = 0;
        for (const auto& other : wanted.classes)
            if (reference::codeOf(other.record) == code)
                count += other.securityCount;
        FUZZ_CHECK(reference::countInClass(code.c_str()) == count);
    }
}

// The first class of an id and the first security of an id answer.
void checkLookUps(const reference::ClassFile& wanted) {
    ClassModel& model = readerState().model;
    auto& classes = model.classes();
    for (std::size_t i = 0; i < classes.size(); ++i) {
        std::size_t first = 0;
        while (classes[first].desc.classId != classes[i].desc.classId)
            ++first;
        sClassParUnitedDesc& holder = classes[first];
        const std::int32_t id = classes[i].desc.classId;
        FUZZ_CHECK(model.classCodeById(id) == holder.desc.classCode);
        FUZZ_CHECK(model.paramsByClassId(id) == &holder.params);
        FUZZ_CHECK(std::memcmp(&classes[i].desc, wanted.classes[i].record.data(),
                               sizeof(STORE_CLASS_DESC)) == 0);
        for (std::size_t s = 0; s < holder.securities.size() && s < 16; ++s) {
            std::size_t owner = 0;
            while (holder.securities[owner].sec_id != holder.securities[s].sec_id)
                ++owner;
            FUZZ_CHECK(model.securityCodeById(id, holder.securities[s].sec_id) ==
                       holder.securities[owner].sec_code);
        }
    }
}

void checkLoad(std::int32_t result, const reference::ClassFile& wanted) {
    FUZZ_CHECK(result == (wanted.failure.empty() ? 1 : 0));
    if (result == 0)
        FUZZ_CHECK(wanted.failure == get_vdreader_error());
    fuzzing::expectNoDifference(difference(classesInMemory(), wanted));
    checkLookUps(wanted);
    if (result == 1) {
        checkWalks(wanted);
    } else {
        FUZZ_CHECK(for_each_class(reference::walks::takeClass) == 0);
        FUZZ_CHECK(std::string("classes storage is not initialized") == get_vdreader_error());
    }
}

} // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

#ifdef VDREADER_FUZZER
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
    return fuzzing::mutateClassFile(data, size, most, seed, LLVMFuzzerMutate);
}
#endif

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFiles files;
    static const std::string path = resolvedPath();
    std::cerr.rdbuf(nullptr); // an open that fails is told there
    const fuzzing::Input input = fuzzing::splitInput(data, size);
    readerState().model = ClassModel();
    readerState().lastError.clear();
    const auto wanted = reference::readClassFile(input.file, path);

    files.put("class.vd", input.file);
    files.plan(input.plan);
    const std::int32_t result = init_vdreader_classes_file(kPath);
    FUZZ_CHECK(files.openCount() == 0);
    if (files.failedCalls() == 0)
        checkLoad(result, wanted);
    else
        checkFailedCalls(result, wanted);

    files.put("class.vd", goodFile());
    files.plan({});
    FUZZ_CHECK(init_vdreader_classes_file(kPath) == 1);
    FUZZ_CHECK(readerState().model.classes().size() == 1);
    FUZZ_CHECK(reference::countInClass("GOOD") == 1);
    return 0;
}
