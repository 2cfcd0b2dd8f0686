// The order in which WinMappableStorageFile turns to the system and to the tracer.

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "libn/MappableStorage.h"
#include "libn/memTraceTable.h"
#include "platform/error.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

constexpr std::uint32_t kReason = 5;

std::string reasonField() {
    return "GetLastError()<" + std::to_string(kReason) + ">";
}

template <class... Arguments>
bool fails(Arguments...) {
    platform::setLastError(kReason);
    return false;
}

std::unique_ptr<WinMappableStorageFile> opened(const std::string& path) {
    auto storage = std::make_unique<WinMappableStorageFile>(path.c_str());
    std::error_code error;
    EXPECT_TRUE(storage->open(2, error)) << error.message();
    return storage;
}

} // namespace

namespace {

std::vector<std::string> traced;

class TracedViews {
  public:
    TracedViews() {
        traced.clear();
        memTraceTable = {[](void* block, std::size_t size, const char* file, int) {
                             traced.push_back(std::string(block == nullptr ? "null" : "view") +
                                              " " + std::to_string(size) + " " + file);
                         },
                         [](void*) { traced.push_back("gone"); }};
        memTraceEnabled = true;
    }
    ~TracedViews() {
        memTraceEnabled = false;
        memTraceTable = m_saved;
    }

  private:
    MemTraceTable m_saved = memTraceTable;
};

} // namespace

TEST(MappableStorageOrder, ViewsAreToldToTheTracerAlsoWhenTheyFail) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", std::string(100, 'x')));
    storage->createMapping(100);
    const TracedViews tracing;
    void* view = storage->mapPtr(0, 100);
    raisedText([&] { storage->mapPtr(1, 7); });
    EXPECT_EQ(traced, (std::vector<std::string>{"view 100 libn/src/MappableStorageFile",
                                                "null 7 libn/src/MappableStorageFile"}));
    {
        const ScopedCalls calls;
        platform::calls.unmapView = fails<void*>;
        EXPECT_EQ(raisedText([&] { storage->unmapPtr(view, 100); }),
                  "MappableStorageFile unmapPtr:name()<" + folder.name("f") + ">" + reasonField());
        EXPECT_EQ(traced.back(), "gone");
    }
    storage->unmapPtr(view, 100);
    EXPECT_EQ(traced.size(), 4u);
}

TEST(MappableStorageOrder, ViewThatTheTracerHasNoMemoryForIsTakenAway) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", std::string(100, 'x')));
    storage->createMapping(100);
    const TracedViews tracing;
    memTraceTable.enter = [](void*, std::size_t, const char*, int) { throw std::bad_alloc(); };
    const ScopedCalls calls;
    static const platform::Calls* real;
    real = &calls.saved();
    static std::vector<void*> views;
    static std::vector<void*> unmapped;
    views.clear();
    unmapped.clear();
    platform::calls.mapView = [](platform::MappingHandle mapping, std::uint64_t offset,
                                 std::uint64_t n, bool writes) {
        return views.emplace_back(real->mapView(mapping, offset, n, writes));
    };
    platform::calls.unmapView = [](void* view) {
        unmapped.push_back(view);
        return real->unmapView(view);
    };
    EXPECT_THROW(storage->mapPtr(0, 100), std::bad_alloc);
    ASSERT_EQ(views.size(), 1u);
    EXPECT_NE(views[0], nullptr);
    EXPECT_EQ(unmapped, views);
    // A view that failed is none to take away.
    EXPECT_THROW(storage->mapPtr(1, 7), std::bad_alloc);
    ASSERT_EQ(views.size(), 2u);
    EXPECT_EQ(views[1], nullptr);
    EXPECT_EQ(unmapped.size(), 1u);
}

namespace {

std::string closes; // what was closed, in order

} // namespace

TEST(MappableStorageOrder, OpenClosesTheFormerFileFirst) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    const ScopedCalls calls;
    static const platform::Calls* real;
    real = &calls.saved();
    closes.clear();
    platform::calls.closeStorage = [](platform::StorageHandle file) {
        closes += "file ";
        return real->closeStorage(file);
    };
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        closes += "open ";
        return real->openStorage(path, access);
    };
    std::error_code error;
    EXPECT_TRUE(storage->open(0, error));
    EXPECT_EQ(closes, "file open ");
    platform::calls.closeStorage = fails<platform::StorageHandle>;
    closes.clear();
    EXPECT_NE(raisedText([&] { storage->open(3, error); }).find("closeHanle"), std::string::npos);
    EXPECT_EQ(closes, "");
    platform::calls.closeStorage = real->closeStorage;
    // The mode was stored all the same: views are for reading now.
    platform::calls.mapView = [](platform::MappingHandle, std::uint64_t, std::uint64_t,
                                 bool writes) {
        closes += writes ? "writes " : "reads ";
        return static_cast<void*>(nullptr);
    };
    raisedText([&] { storage->mapPtr(0, 3); });
    EXPECT_EQ(closes, "reads ");
}

TEST(MappableStorageOrder, FileIsClosedBeforeItsMapping) {
    const TempFolder folder;
    const ScopedCalls calls;
    static const platform::Calls* real;
    real = &calls.saved();
    closes.clear();
    platform::calls.closeStorage = [](platform::StorageHandle file) {
        closes += "file ";
        return real->closeStorage(file);
    };
    platform::calls.closeMapping = [](platform::MappingHandle mapping) {
        closes += "mapping ";
        return real->closeMapping(mapping);
    };
    opened(folder.write("f", "abc"))->createMapping(3);
    EXPECT_EQ(closes, "file mapping ");
    closes.clear();
    const auto storage = opened(folder.name("f"));
    storage->createMapping(3);
    storage->close();
    EXPECT_EQ(closes, "file mapping ");
}

TEST(MappableStorageOrder, TracerHearsOfAViewBeforeItGoes) {
    const TempFolder folder;
    const auto storage = opened(folder.write("f", "abc"));
    storage->createMapping(3);
    void* view = storage->mapPtr(0, 3);
    const TracedViews tracing;
    const ScopedCalls calls;
    static const platform::Calls* real;
    real = &calls.saved();
    platform::calls.unmapView = [](void* gone) {
        traced.push_back("unmapped");
        return real->unmapView(gone);
    };
    storage->unmapPtr(view, 3);
    EXPECT_EQ(traced, (std::vector<std::string>{"gone", "unmapped"}));
}
