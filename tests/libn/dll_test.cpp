// Libraries by name and the texts of what fails.

#include "vdreader/dll.hpp"

#include <gtest/gtest.h>

#include <boost/dll/shared_library.hpp>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <type_traits>

#include "platform/library.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/scopedOpening.h"
#include "support/tempFolder.h"

namespace {

// What Boost itself says of a library that it cannot load.
boost::system::system_error systemsReason(const std::string& path) {
    try {
        boost::dll::shared_library(path, boost::dll::load_mode::search_system_folders);
    } catch (const boost::system::system_error& failure) {
        return failure;
    }
    throw std::logic_error("it was loaded");
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string ending(const boost::system::system_error& failure) {
    return " (" + std::to_string(failure.code().value()) + "). " + failure.what();
}

} // namespace

static_assert(std::is_base_of_v<sarn::Exception, libn::Dll::Error>);
static_assert(std::is_base_of_v<libn::Dll::Error, libn::Dll::LoadError>);
static_assert(std::is_base_of_v<libn::Dll::Error, libn::Dll::FuncNotFoundError>);
static_assert(std::has_virtual_destructor_v<libn::Dll::Error>);
static_assert(!std::is_copy_constructible_v<libn::Dll>);

TEST(Dll, FindsExportedFunctions) {
    const libn::Dll library(SVCTL_BROKEN);
    const auto function = reinterpret_cast<int (*)()>(library.getFunction("anotherFunction"));
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(function(), 7);
}

TEST(Dll, MissingLibraryTellsPathCodeAndReason) {
    const std::string path = "no_such_library_of_this_name.dll";
    const auto failure = raised<libn::Dll::LoadError>([&] { libn::Dll library(path); });
    ASSERT_TRUE(failure.has_value());
    const auto reason = systemsReason(path);
    EXPECT_NE(reason.code().value(), 0);
    EXPECT_EQ(std::string(failure->what()),
              "Failed to load DLL file " + quoted(path) + ending(reason));
    EXPECT_NE(std::string(failure->what()).find("boost::dll::shared_library::load() failed"),
              std::string::npos);
}

TEST(Dll, FileThatIsNoLibraryIsNotLoaded) {
    const TempFolder folder;
    const std::string path = folder.write("text.dll", "no library at all");
    const auto failure = raised<libn::Dll::LoadError>([&] { libn::Dll library(path); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(std::string(failure->what()),
              "Failed to load DLL file " + quoted(path) + ending(systemsReason(path)));
}

TEST(Dll, EmptyPathIsNotLoaded) {
    const auto failure = raised<libn::Dll::LoadError>([&] { libn::Dll library(""); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(std::string(failure->what()).rfind("Failed to load DLL file \"\" (", 0), 0U);
}

TEST(Dll, LoadThatGivesNeitherLibraryNorReasonTellsTheLastErrorAndNoText) {
    const ScopedOpening opening([](const std::string&) {
        auto none = std::make_unique<boost::dll::shared_library>();
        errno = ENOMEM;
        return none;
    });
    const auto failure = raised<libn::Dll::LoadError>([] { libn::Dll library("some.dll"); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(std::string(failure->what()), "Failed to load DLL file " + quoted("some.dll") + " (" +
                                                std::to_string(ENOMEM) + "). ");
}

TEST(Dll, LibraryThatIsGoneHasNoFunctions) {
    static boost::dll::shared_library* opened;
    const ScopedOpening opening([](const std::string& path) {
        auto library = ScopedOpening::overBoost(path);
        opened = library.get();
        return library;
    });
    const libn::Dll library(SVCTL_BROKEN);
    EXPECT_NE(library.getFunction("anotherFunction"), nullptr);
    opened->unload();
    EXPECT_EQ(library.getFunction("anotherFunction"), nullptr);
}

TEST(Dll, MissingFunctionTellsNameLibraryCodeAndReason) {
    const libn::Dll library(SVCTL_BROKEN);
    const auto failure =
        raised<libn::Dll::FuncNotFoundError>([&] { library.getFunction("SendInfo"); });
    ASSERT_TRUE(failure.has_value());
    const boost::dll::shared_library same(SVCTL_BROKEN,
                                          boost::dll::load_mode::search_system_folders);
    const auto reason = raised<boost::system::system_error>([&] { same.get<void()>("SendInfo"); });
    ASSERT_TRUE(reason.has_value());
    EXPECT_EQ(std::string(failure->what()), "Failed to find function \"SendInfo\" in DLL " +
                                                quoted(SVCTL_BROKEN) + ending(*reason));
    EXPECT_NE(reason->code().value(), 0);
    // A miss leaves the library as it is.
    EXPECT_NE(library.getFunction("anotherFunction"), nullptr);
}

TEST(Dll, LibraryGoesWithItsObject) {
    const auto isLoaded = [] { return platform::libraryCalls.loaded(SVCTL_BROKEN) != nullptr; };
    EXPECT_FALSE(isLoaded());
    {
        const libn::Dll library(SVCTL_BROKEN);
        EXPECT_TRUE(isLoaded());
    }
    EXPECT_FALSE(isLoaded());
}

TEST(Dll, ErrorKeepsACopyOfItsText) {
    std::string text = "some text";
    const libn::Dll::LoadError failure(text);
    text = "other text";
    EXPECT_STREQ(failure.what(), "some text");
    const libn::Dll::Error copy = failure;
    EXPECT_STREQ(copy.what(), "some text");
    EXPECT_NE(copy.what(), failure.what());
}

TEST(Dll, ErrorWithoutMemoryForItsTextSaysSo) {
    const std::string text = "some text";
    const FailingMalloc none;
    const libn::Dll::Error failure(text);
    EXPECT_STREQ(failure.what(), "Memory allocation for exception description has been failed");
}
