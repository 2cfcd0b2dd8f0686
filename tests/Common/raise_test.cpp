#include "dw_util/raise.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "dw_util/threadLogState.h"
#include "platform/error.h"
#include "support/raised.h"

namespace {

std::string systemText(std::uint32_t code) {
    char text[512];
    platform::systemErrorText(code, text, sizeof text);
    return text;
}

} // namespace

TEST(Raise, TextIsWhatTheCallerFormatted) {
    place("some\\where.cpp", 12);
    const auto error = raised<CError>([] { dwraise("%d", 5); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "5");
    EXPECT_EQ(error->code, 0);
    EXPECT_STREQ(error->file, "where.cpp");
    EXPECT_EQ(error->line, 12);
}

TEST(Raise, FormsWithACodeKeepIt) {
    place("a.cpp", 1);
    EXPECT_EQ(raised<CError>([] { dwraisec(-9, "%s", "x"); })->code, -9);
    const auto error = raised<CError>([] { dwraisec_ex("a\\b\\c.cpp", 10, 7, "x"); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->file, "c.cpp");
    EXPECT_EQ(error->line, 10);
    EXPECT_EQ(error->code, 7);
    EXPECT_STREQ(error->what(), "x");
}

TEST(Raise, FileNameIsWhatStandsBehindTheLastBackslashOrColon) {
    const auto fileOf = [](const char* file) {
        return std::string(raised<CError>([=] { dwraise_ex(file, 1, "x"); })->file);
    };
    EXPECT_EQ(fileOf("C:x.cpp"), "x.cpp");
    EXPECT_EQ(fileOf("C:\\a:b\\y.cpp"), "y.cpp");
    EXPECT_EQ(fileOf("a/b/c.cpp"), "a/b/c.cpp");
    EXPECT_EQ(fileOf("plain.cpp"), "plain.cpp");
    EXPECT_EQ(fileOf("ends\\"), "");
    EXPECT_EQ(fileOf(""), "");
    EXPECT_EQ(fileOf(nullptr), "");
    EXPECT_EQ(fileOf(std::string(600, 'f').c_str()), std::string(511, 'f'));
}

TEST(Raise, ClassIsExactlyThatOfTheForm) {
    const auto typeOf = [](auto call) -> const std::type_info* {
        try {
            call();
        } catch (const std::exception& error) {
            return &typeid(error);
        }
        return nullptr;
    };
    EXPECT_EQ(*typeOf([] { dwraise("x"); }), typeid(CError));
    EXPECT_EQ(*typeOf([] { dwraise_ex("f", 1, "x"); }), typeid(CError));
    EXPECT_EQ(*typeOf([] { dwraisec(1, "x"); }), typeid(CError));
    EXPECT_EQ(*typeOf([] { dwraisec_ex("f", 1, 1, "x"); }), typeid(CError));
    EXPECT_EQ(*typeOf([] { dwraiseos("x"); }), typeid(COSError));
    EXPECT_EQ(*typeOf([] { dwraiseos_ex("f", 1, "x"); }), typeid(COSError));
    EXPECT_EQ(*typeOf([] { dwraisesoc("x"); }), typeid(CSocError));
    EXPECT_EQ(*typeOf([] { dwraisesoc_ex("f", 1, "x"); }), typeid(CSocError));
}

TEST(Raise, LongTextIsCutWithoutAMarker) {
    const std::string text(5000, 't');
    const auto error = raised<CError>([&] { dwraise("%s", text.c_str()); });
    EXPECT_EQ(std::string(error->what()), std::string(4094, 't'));
}

TEST(Raise, OsErrorTellsTheSystemsReason) {
    const auto error = raised<COSError>([] {
        platform::setLastError(2);
        dwraiseos_ex("dir\\f.cpp", 3, "open %s", "it");
    });
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
              "(f.cpp at 3): open it OS error description is '" + systemText(2) + "'.");
    EXPECT_EQ(error->code, 0);
    EXPECT_EQ(error->line, 3);
    EXPECT_STREQ(error->file, "f.cpp");
}

TEST(Raise, OsErrorTakesThePlaceOfTheThread) {
    place("p.cpp", 8);
    const auto error = raised<COSError>([] {
        platform::setLastError(5);
        dwraiseos("%d", 1);
    });
    EXPECT_EQ(std::string(error->what()),
              "(p.cpp at 8): 1 OS error description is '" + systemText(5) + "'.");
}

TEST(Raise, OsErrorWithoutASystemTextIsUnknown) {
    const auto error = raised<COSError>([] {
        platform::setLastError(123456789);
        dwraiseos_ex("f", 1, "m");
    });
    EXPECT_STREQ(error->what(), "(f at 1): m OS error description is 'unknown error'.");
}

TEST(Raise, OsErrorIsReadBehindTheFormatting) {
#ifdef _WIN32
    GTEST_SKIP() << "no conversion of this run-time changes the system's last error";
#else
    const auto error = raised<COSError>([] {
        platform::setLastError(ENOENT);
        static const wchar_t kUnprintable[] = {0x20AC, 0};
        dwraiseos_ex("f", 1, "%ls", kUnprintable);
    });
    EXPECT_NE(std::string(error->what()).find(systemText(EILSEQ)), std::string::npos)
        << error->what();
#endif
}

TEST(Raise, SocketErrorHasItsOwnLayout) {
    const auto error = raised<CSocError>([] {
        platform::setLastError(13);
        dwraisesoc_ex("dir\\s.cpp", 4, "send");
    });
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "(s.cpp at 4): send " + systemText(13) + ".");
    EXPECT_EQ(error->code, 0);
    place("q.cpp", 6);
    EXPECT_EQ(raisedText([] {
                  platform::setLastError(13);
                  dwraisesoc("%s", "recv");
              }),
              "(q.cpp at 6): recv " + systemText(13) + ".");
}

TEST(Raise, LongSystemErrorIsCut) {
    const std::string text(5000, 't');
    const auto error = raised<COSError>([&] { dwraiseos_ex("f", 1, "%s", text.c_str()); });
    EXPECT_EQ(std::string(error->what()), "(f at 1): " + std::string(4084, 't'));
}

TEST(Raise, ThreadWithoutAPlaceHasNone) {
    place("main.cpp", 3);
    std::string file = "unset";
    int line = -1;
    std::thread([&] {
        const auto error = raised<CError>([] { dwraise("x"); });
        file = error->file;
        line = error->line;
    }).join();
    EXPECT_EQ(file, "");
    EXPECT_EQ(line, 0);
}

TEST(Raise, PlaceStaysUntilTheNextOne) {
    place("main.cpp", 3);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(raised<CError>([] { dwraise("x"); })->line, 3);
    EXPECT_EQ(raised<CError>([] { dwraise_ex("other", 4, "x"); })->line, 4);
    EXPECT_EQ(raised<CError>([] { dwraise("x"); })->line, 3);
}

TEST(Raise, EachThreadHasItsOwnPlace) {
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, 0);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &wrong] {
            const std::string name = "t" + std::to_string(t);
            for (int i = 0; i < 2000; ++i) {
                place(name.c_str(), i);
                const auto error = raised<CError>([&] { dwraisec(t, "%d", i); });
                if (error->file != name || error->line != i || error->code != t ||
                    error->text != std::to_string(i))
                    ++wrong[static_cast<std::size_t>(t)];
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(8, 0));
}

TEST(Place, KeepsThreeHundredCharactersOfTheWholeName) {
    const std::string name = "C:\\dir\\" + std::string(400, 'n');
    place(name.c_str(), 9);
    EXPECT_EQ(threadLogState().placeFile, name.substr(0, 300));
    EXPECT_EQ(threadLogState().placeLine, 9);
    place(nullptr, 1);
    EXPECT_STREQ(threadLogState().placeFile, "");
}

TEST(Place, KeepsTheLastError) {
    platform::setLastError(5);
    place("f.cpp", 1);
    EXPECT_EQ(platform::lastError(), 5u);
}

TEST(RaiseWithZeroes, ConversionsFindZeroes) {
    const auto error = raised<CError>([] { raiseWithZeroes("a\\b.cpp", 4, "<100%d> %s"); });
    EXPECT_STREQ(error->what(), "<1000> (null)");
    EXPECT_STREQ(error->file, "b.cpp");
    EXPECT_EQ(error->line, 4);
}
