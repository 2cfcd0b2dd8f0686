// Fuzz target of data.vd: loads a file, walks its change records and takes the latest values
// through the exports, then works on the TCurrentData directly, and compares results, texts,
// records, slots and the bytes of the file at the end with the reference reader.
//
// Input: 1 byte of how many records go by before the callback stops (0: all), 1 byte that it then
// returns, 4 bytes that choose the operations on the object, and a file as support/sparseFile.h
// tells.  The fault trailer of input.h applies.

#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "dataOperations.h"
#include "dw_util/logSinks.h"
#include "dw_util/pathRule.h"
#include "readerState.h"
#include "reference/dataClasses.h"
#include "sample/dataFile.h"
#include "support/changedBytes.h"
#include "support/input.h"
#include "support/memoryStorage.h"
#include "support/sparseFile.h"
#include "support/tracedBlocks.h"
#include "vdreader/dynparams.h"
#include "vdreader/log.h"
#include "vdreader/readers.h"
#ifdef VDREADER_FUZZER
#  include "storageMutator.h"
#endif

namespace {

const char* const kPath = "/memory/data.vd";
// Less than a file takes that is laid out anew, which therefore fails in the middle.
constexpr std::size_t kMostBytes = std::size_t{128} << 10;
constexpr std::size_t kMostViews = 256;
constexpr std::size_t kHead = 6;

struct Options {
    std::size_t stopAfter = SIZE_MAX;
    std::int32_t stopResult = 2;
    std::uint32_t operations = 0;
};

std::uint32_t brokenContracts = 0;

// What the present walk through the exports has seen.
struct Walk {
    const Options* options = nullptr;
    std::vector<std::string> records;
};
Walk walk;

std::int32_t take(sDynParams* params) {
    walk.records.emplace_back(reinterpret_cast<const char*>(params), sizeof *params);
    std::memset(params, 0xEE, sizeof *params);
    return walk.records.size() >= walk.options->stopAfter ? walk.options->stopResult : 1;
}

void checkLine(const char* line) {
    FUZZ_CHECK(strnlen(line, 2001) <= 2000);
}

const std::string& resolvedPath() {
    static const std::string path = [] {
        PathBuffer made = {};
        resolvePath(made, kPath);
        return std::string(made);
    }();
    return path;
}

reference::BlockMachine machine() {
    return {resolvedPath(),     kMostBytes,           kMostViews, platform::allocationGranularity(),
            fuzzing::kDiskFull, fuzzing::kNoMoreViews};
}

// The walk through the exports; what it leaves behind is given back.
std::int32_t walkExports(const Options& options) {
    walk = {};
    walk.options = &options;
    brokenContracts = 0;
    const std::size_t before = fuzzing::TracedBlocks::left().size();
    const std::int32_t result = for_each_dynamic_params(take);
    // By intention an iterator stays behind, the first of what was taken.
    const auto& left = fuzzing::TracedBlocks::left();
    FUZZ_CHECK(left.size() > before);
    delete static_cast<DwDataIFaces::ICurDataIterator*>(left[before].start);
    return result;
}

// Where the walks begin: the page of a number, or a neighbour of it.
std::optional<std::uint64_t> startOf(const reference::DataModel& model, std::uint32_t number) {
    const auto above = model.index.lower_bound(number);
    if (above == model.index.end())
        return {};
    return above->second;
}

void checkWalk(reference::DataModel& model, const Options& options) {
    const std::int32_t result = walkExports(options);
    reference::DataWalk wanted(model);
    std::size_t records = 0;
    std::uint32_t broken = 0;
    std::int32_t end = 1;
    for (auto record = wanted.begin(startOf(model, 0));
         record && reference::signedAt(*record, 8) >= 0; record = wanted.next()) {
        const auto joined = reference::joinedRecord(*record);
        if (!joined)
            continue;
        broken += static_cast<std::uint8_t>((*record)[16]) > 16;
        FUZZ_CHECK(records < walk.records.size() && walk.records[records] == *joined);
        if (++records < options.stopAfter)
            continue;
        if (options.stopResult == 1)
            continue;
        end = options.stopResult == 2 ? 1 : 0;
        break;
    }
    FUZZ_CHECK(result == end);
    FUZZ_CHECK(records == walk.records.size());
    FUZZ_CHECK(brokenContracts == broken);
}

void checkLastValues(const reference::DataModel& model, const SECURITY_DESC& security) {
    std::string wanted(sizeof(sLastDynParams), '\xAB');
    std::string text;
    const auto id = static_cast<std::int32_t>(security.sec_id);
    const auto place = model.slot(id);
    if (id >= model.maxSecs())
        text = "invalid security in dynamic parameters request";
    else if (!place)
        text = "unknown error in dynamic parameters request";
    else
        text = reference::takeLastValues(
            model.file.bytes.substr(*place, reference::DataModel::kSlot), wanted);
    const auto out = std::make_unique<sLastDynParams>();
    std::memset(static_cast<void*>(out.get()), 0xAB, sizeof *out);
    readerState().lastError = "before";
    FUZZ_CHECK(get_sSecurityDesc_last_dynamic_params(&security, out.get()) ==
               (text.empty() ? 1 : 0));
    fuzzing::expectText(get_vdreader_error(), text.empty() ? "before" : text);
    FUZZ_CHECK(std::memcmp(out.get(), wanted.data(), wanted.size()) == 0);
}

template <class Visit>
void forEachSecurity(Visit visit) {
    for (sClassParUnitedDesc& owner : readerState().model.classes())
        for (SECURITY_DESC& security : owner.securities)
            visit(security);
}

struct Files {
    std::string before;
    std::string wanted;
};

std::string loadModel(reference::DataModel& model) {
    try {
        model.load();
        return {};
    } catch (const std::string& text) {
        return text;
    }
}

std::int32_t initialise() {
    readerState().lastError = "before";
    return init_vdreader_dyn_params_file(kPath);
}

void checkFile(const fuzzing::MemoryStorage& storage, Files& files, const Options& options) {
    reference::DataModel model(files.wanted, machine());
    const std::int32_t result = initialise();
    const std::string text = loadModel(model);
    fuzzing::expectText(get_vdreader_error(), text.empty() ? "before" : text);
    FUZZ_CHECK(result == (text.empty() ? 1 : 0));
    fuzzing::expectNoDifference(fuzzing::fileDifference(storage.content(), files.wanted));
    if (result == 1 && model.eventPageSize() <= fuzzing::kMostPage)
        checkWalk(model, options);
    if (result == 1)
        forEachSecurity([&](const SECURITY_DESC& each) { checkLastValues(model, each); });
    fuzzing::DataOperations(*readerState().curData, model, resolvedPath(), options.operations)
        .run();
    readerState().curData.reset();
    model.close();
    FUZZ_CHECK(storage.openCount() == 0);
    fuzzing::expectNoDifference(fuzzing::fileDifference(storage.content(), files.wanted));
}

bool isKnownText(const std::string& text) {
    for (const char* beginning :
         {"MappableStorageFile ", "TCurrentData load:", "File type is incorrect",
          "FileWorkLibrary::TFileStorageAllocatorNew::mapBlock:", "Can't load data from file '",
          "alerts file "})
        if (text.compare(0, std::strlen(beginning), beginning) == 0)
            return true;
    return false;
}

// Where calls fail, what is read may be less, and a file whose size is not known is laid out anew.
void checkFailingCalls(const fuzzing::MemoryStorage& storage, Files& files,
                       const Options& options) {
    reference::DataModel model(files.wanted, machine());
    const std::int32_t result = initialise();
    const std::string text = loadModel(model);
    FUZZ_CHECK(result == 1 || isKnownText(get_vdreader_error()));
    if (result == 1 && model.eventPageSize() <= fuzzing::kMostPage)
        walkExports(options);
    if (result == 1)
        forEachSecurity([&](const SECURITY_DESC& each) {
            sLastDynParams out;
            get_sSecurityDesc_last_dynamic_params(&each, &out);
        });
    readerState().curData.reset();
    model.close();
    const auto& failed = storage.failedCalls();
    if (!failed.contains(fuzzing::StorageCall::Size) &&
        !failed.contains(fuzzing::StorageCall::Open) && !model.file.headsOverlap())
        fuzzing::expectNoDifference(fuzzing::partialDifference(
            storage.content(), {files.before, files.wanted, files.before.empty(), 120, 124}));
}

const std::string& goodFile() {
    static const std::string bytes = [] {
        sample::DataFile made;
        made.header.maxSecs = 1;
        made.header.dataPageSize = 1080;
        made.header.eventPageSize = 100;
        made.slots[0].class_id = 1;
        made.slots[0].setDouble(1, 2.5);
        sample::Record record;
        record.class_id = 1;
        record.mask = {1};
        record.longs = {7};
        made.eventPages = {{{record}}};
        return sample::encodeDataFile(made);
    }();
    return bytes;
}

void checkGoodFile(fuzzing::MemoryStorage& storage) {
    static const Options all;
    storage.put(goodFile());
    FUZZ_CHECK(initialise() == 1);
    FUZZ_CHECK(walkExports(all) == 1);
    FUZZ_CHECK(walk.records.size() == 1);
    FUZZ_CHECK(readerState().curData->GetDoubleParam(0, 1) == 2.5);
    readerState().curData.reset();
    FUZZ_CHECK(storage.openCount() == 0);
}

Options optionsOf(std::string_view head) {
    Options options;
    if (!head.empty() && head[0] != 0)
        options.stopAfter = static_cast<std::uint8_t>(head[0]);
    if (head.size() > 1)
        options.stopResult = static_cast<std::int8_t>(head[1]);
    options.operations = fuzzing::storedNumber<std::uint32_t>(head, 2);
    return options;
}

// The classes, once, from a file of their own.
fuzzing::MemoryStorage& prepare() {
    static fuzzing::MemoryFiles files;
    static const std::string classes = sample::encodeClassFile(reference::dataClasses());
    std::cerr.rdbuf(nullptr); // an open that fails is told there
    files.put("class.vd", classes);
    FUZZ_CHECK(init_vdreader_classes_file("/memory/class.vd") == 1);
    platform::calls.invalidParameter = [] { ++brokenContracts; };
    logSinks = {checkLine, checkLine, checkLine, checkLine};
    fuzzing::TracedBlocks::isView = [](const char* file) {
        return std::strcmp(file, "libn/src/MappableStorageFile") == 0;
    };
    auto& storage = *new fuzzing::MemoryStorage(resolvedPath(), kMostBytes, kMostViews);
    // What is made once for the process is made here.
    event("%s", "ready");
    return storage;
}

} // namespace

#ifdef VDREADER_FUZZER
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
    return fuzzing::mutateStorageInput(data, size, most, seed,
                                       {kHead, kMostBytes, fuzzing::dataPlace}, LLVMFuzzerMutate);
}
#endif

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryStorage& storage = prepare();
    static Files files;
    fuzzing::Input input = fuzzing::splitInput(data, size);
    const Options options = optionsOf(input.file.substr(0, kHead));
    input.file.remove_prefix(std::min(kHead, input.file.size()));
    fuzzing::takeFile(input.file, kMostBytes, files.before);
    files.wanted = files.before;

    fuzzing::TracedBlocks blocks;
    storage.put(files.before);
    storage.plan(input.plan);
    if (input.plan.mayFail())
        checkFailingCalls(storage, files, options);
    else
        checkFile(storage, files, options);
    storage.plan({});
    storage.dropAll();
    checkGoodFile(storage);
    // By intention the list's pages of views that went all at once stay behind.
    for (const auto& block : blocks.left())
        FUZZ_CHECK(block.size == sizeof(FileWorkLibrary::TMappedPage));
    return 0;
}
