// Fuzz target of alert.vd: walks a file and compares the records, every getter, the result, the
// text and the bytes of the file afterwards with the reference reader.
//
// Input: 1 byte of how many records go by before the callback stops (0: as many as there are, up to
// a limit), 1 byte that it then returns, and a file as support/sparseFile.h tells.  The fault
// trailer of input.h applies.

#include <cstring>
#include <string>

#include "Alerts/sAlertDesc.h"
#include "readerState.h"
#include "reference/alertReference.h"
#include "sample/alertFile.h"
#include "support/changedBytes.h"
#include "support/input.h"
#include "support/memoryStorage.h"
#include "support/sparseFile.h"
#include "vdreader/alerts.h"
#include "vdreader/readers.h"
#ifdef VDREADER_FUZZER
#  include "storageMutator.h"
#endif

namespace {

const char* const kPath = "memory/alert.vd";
constexpr std::size_t kMostBytes = std::size_t{4} << 20;
// What a walk may map at most, in its smallest pieces.
constexpr std::size_t kMostViews = 3276800 / 65536;
constexpr std::size_t kHead = 2;

struct Walk {
    const reference::AlertWalk* wanted = nullptr;
    reference::AlertStop stop;
    std::size_t records = 0;
    std::size_t bytes = 0;
    std::string difference;
    // Whether the file may be read further than the reference has it: it grows by what its size is
    // taken for, so one that could not be asked for may fit on the disk where the other did not.
    bool mayGoFurther = false;
    bool wentFurther = false;
};
Walk walk;

template <class Element>
bool sameBytes(const AlertPart<Element>& elements, const std::string& wanted) {
    return elements.size() * sizeof(Element) == wanted.size() &&
           (wanted.empty() || std::memcmp(elements.data(), wanted.data(), wanted.size()) == 0);
}

#define FUZZ_SAME(field, value)  \
  if (!(alert.field == (value))) \
  return #field

std::string fieldDifference(const sAlertDesc& alert, const reference::AlertRecord& wanted) {
    FUZZ_SAME(word0, wanted.word0);
    FUZZ_SAME(word1, wanted.word1);
    FUZZ_SAME(word2, wanted.word2);
    FUZZ_SAME(send_type, wanted.sendType);
    FUZZ_SAME(type, wanted.type);
    FUZZ_SAME(perms, wanted.perms);
    FUZZ_SAME(perms_ex, wanted.permsEx);
    FUZZ_SAME(perms_ex2, wanted.permsEx2);
    FUZZ_SAME(flags, wanted.flags);
    FUZZ_SAME(short0, wanted.short0);
    FUZZ_SAME(body_size, wanted.bodySize);
    FUZZ_SAME(word3, wanted.word3);
    FUZZ_SAME(word4, wanted.word4);
    FUZZ_SAME(word5, wanted.word5);
    FUZZ_SAME(word6, wanted.word6);
    FUZZ_SAME(quad0, wanted.quad0);
    FUZZ_SAME(quad1, wanted.quad1);
    if (!sameBytes(alert.data_id, wanted.dataId) || !sameBytes(alert.body, wanted.body) ||
        !sameBytes(alert.class_codes, wanted.classCodes) ||
        !sameBytes(alert.user_ids, wanted.userIds))
        return "a variable part";
    return {};
}

// A text of 13 bytes that a pointer leads to.
bool isText(const char* text, const std::string& wanted) {
    return text != nullptr && std::memcmp(text, wanted.data(), 13) == 0;
}

bool isPart(const void* part, const std::string& wanted) {
    if (wanted.empty())
        return part == nullptr;
    return part != nullptr && std::memcmp(part, wanted.data(), wanted.size()) == 0;
}

#define FUZZ_GETTER(getter, value)               \
  if (get_sAlertDesc_##getter(alert) != (value)) \
  return "get_sAlertDesc_" #getter

std::string getterDifference(sAlertDesc* alert, const reference::AlertRecord& wanted) {
    FUZZ_GETTER(type, wanted.type);
    FUZZ_GETTER(send_type, wanted.sendType);
    FUZZ_GETTER(flags, static_cast<std::uint32_t>(wanted.flags));
    FUZZ_GETTER(perms, wanted.perms);
    FUZZ_GETTER(perms_ex, wanted.permsEx);
    FUZZ_GETTER(perms_ex2, wanted.permsEx2);
    FUZZ_GETTER(data_id_size, wanted.dataId.size());
    FUZZ_GETTER(body_size, wanted.bodySize);
    FUZZ_GETTER(user_id_size, static_cast<std::int64_t>(wanted.userIds.size() / 4));
    if (!isText(get_sAlertDesc_firm_id(alert), wanted.firmId) ||
        !isText(get_sAlertDesc_client_code(alert), wanted.clientCode))
        return "a text";
    const char* code = get_sAlertDesc_class_code(alert);
    if (wanted.classCodes.empty() ? code != nullptr : !isText(code, wanted.classCodes))
        return "get_sAlertDesc_class_code";
    if (!isPart(get_sAlertDesc_data_id_ptr(alert), wanted.dataId) ||
        !isPart(get_sAlertDesc_user_id_ptr(alert), wanted.userIds))
        return "a pointer";
    const std::uint8_t* body = get_sAlertDesc_body_ptr(alert);
    if (wanted.bodySize == 0 ? body == nullptr || *body != 0 : !isPart(body, wanted.body))
        return "get_sAlertDesc_body_ptr";
    return {};
}

std::int32_t take(sAlertDesc* alert) {
    if (walk.records >= walk.wanted->records.size()) {
        walk.wentFurther = walk.mayGoFurther;
        if (!walk.mayGoFurther)
            walk.difference = "a record too many";
        return 2;
    }
    const reference::AlertRecord& wanted = walk.wanted->records[walk.records];
    if (walk.difference.empty())
        walk.difference = fieldDifference(*alert, wanted);
    if (walk.difference.empty())
        walk.difference = getterDifference(alert, wanted);
    ++walk.records;
    walk.bytes += wanted.variableBytes();
    const bool stops = walk.records >= walk.stop.afterRecords || walk.bytes >= walk.stop.afterBytes;
    return stops ? walk.stop.result : 1;
}

std::int32_t walkFile(const reference::AlertWalk& wanted, const reference::AlertStop& stop,
                      bool callsFail = false) {
    walk = {};
    walk.wanted = &wanted;
    walk.stop = stop;
    walk.mayGoFurther = callsFail && wanted.text.starts_with("MappableStorageFile createMapping:");
    readerState().alertsFile = kPath;
    readerState().lastError = "before";
    const std::int32_t result = for_each_alert(take);
    fuzzing::expectNoDifference(walk.difference);
    return result;
}

reference::AlertStop stopOf(std::string_view options) {
    reference::AlertStop stop;
    // Tables that overlap can show one record millions of times.
    stop.afterRecords = 400;
    stop.afterBytes = std::size_t{4} << 20;
    if (!options.empty() && options[0] != 0)
        stop.afterRecords = static_cast<std::uint8_t>(options[0]);
    if (options.size() > 1 && options[1] != 1)
        stop.result = static_cast<std::int8_t>(options[1]);
    return stop;
}

// A file before a walk, as the reference has it afterwards, and as it is.
struct Files {
    std::string before;
    std::string wanted;
    std::string_view after;
};

void checkWalk(std::int32_t result, const reference::AlertWalk& wanted, const Files& files) {
    FUZZ_CHECK(result == wanted.result);
    FUZZ_CHECK(walk.records == wanted.records.size());
    FUZZ_CHECK(get_vdreader_error() == (wanted.text.empty() ? "before" : wanted.text));
    if (wanted.text.empty())
        fuzzing::expectNoDifference(fuzzing::fileDifference(files.after, files.wanted));
    else // a table may be filled in part where the disk is full
        fuzzing::expectNoDifference(
            fuzzing::partialDifference(files.after, {files.before, files.wanted}));
}

void checkFailedCalls(std::int32_t result, const reference::AlertWalk& wanted, const Files& files) {
    const std::string text = get_vdreader_error();
    FUZZ_CHECK(result == 0 ? text != "before" || wanted.result == 0 : result == 1);
    if (text != "before")
        FUZZ_CHECK(text == wanted.text || text.compare(0, 20, "MappableStorageFile ") == 0);
    // A file that is emptied, and tables before they are used, are zero for a while; the header's
    // next free word is raised by each table.
    const bool zeroed = files.before.compare(0, 24, files.wanted, 0, 24) != 0;
    fuzzing::expectNoDifference(
        fuzzing::partialDifference(files.after, {files.before, files.wanted, zeroed, 16, 24}));
}

const std::string& goodFile() {
    static const std::string bytes = [] {
        sample::Alert first;
        first.type = 3;
        first.data_id = "id";
        first.body = std::string(600, 'b');
        sample::Alert second;
        second.class_codes = {"CODE"};
        second.user_ids = {1, 2, 3};
        return sample::encodeAlertFile({first, second});
    }();
    return bytes;
}

void checkGoodFile(fuzzing::MemoryStorage& storage) {
    static const reference::AlertStop all = {400, SIZE_MAX, 2};
    static std::string file = goodFile();
    static const reference::AlertWalk wanted =
        reference::AlertReader(file, kPath, kMostBytes, fuzzing::kDiskFull).walk(all);
    storage.put(goodFile());
    FUZZ_CHECK(walkFile(wanted, all) == 1);
    FUZZ_CHECK(walk.records == 2);
    FUZZ_CHECK(storage.content() == goodFile());
}

} // namespace

#ifdef VDREADER_FUZZER
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
    return fuzzing::mutateStorageInput(data, size, most, seed,
                                       {kHead, kMostBytes, fuzzing::alertPlace}, LLVMFuzzerMutate);
}
#endif

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFiles files;
    static auto& storage = *new fuzzing::MemoryStorage(kPath, kMostBytes, kMostViews);
    fuzzing::Input input = fuzzing::splitInput(data, size);
    const reference::AlertStop stop = stopOf(input.file.substr(0, kHead));
    input.file.remove_prefix(std::min(kHead, input.file.size()));
    static Files of;
    fuzzing::takeFile(input.file, kMostBytes, of.before);
    of.wanted = of.before;
    const auto wanted =
        reference::AlertReader(of.wanted, kPath, kMostBytes, fuzzing::kDiskFull).walk(stop);

    storage.put(of.before);
    storage.plan(input.plan);
    const std::int32_t result = walkFile(wanted, stop, input.plan.failingCall != 0);
    of.after = storage.content();
    if (storage.failedCalls().empty()) {
        FUZZ_CHECK(storage.openCount() == 0);
        checkWalk(result, wanted, of);
    } else if (!walk.wentFurther) {
        checkFailedCalls(result, wanted, of);
    }
    storage.plan({});
    storage.dropAll();
    if (result == 0)
        checkGoodFile(storage);
    return 0;
}
