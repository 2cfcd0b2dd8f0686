// Libraries at run time, by the names that both systems know.

#include "platform/library.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using platform::libraryCalls;

namespace {

void setVariable(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value);
#else
    ::setenv(name, value, 1);
#endif
}

} // namespace

TEST(Library, NamesOfTheSystemAreFoundInAnyCase) {
    for (const char* const name :
         {"dbghelp.dll", "DBGHELP.DLL", "kernel32.dll", "Kernel32.dll", "psapi.dll"}) {
        const platform::LibraryHandle library = libraryCalls.load(name);
        EXPECT_NE(library, nullptr) << name;
        EXPECT_EQ(libraryCalls.loaded(name), library) << name;
        libraryCalls.release(library);
    }
    EXPECT_EQ(libraryCalls.load("dbghelp.dll"), libraryCalls.load("DBGHELP.DLL"));
}

TEST(Library, UnknownNamesFail) {
    for (const char* const name : {"tlhelp32.dll", "no such library.dll", "/none/dbghelp.dll",
                                   "C:\\none\\dbghelp.dll", "\\dbghelp.dll.none", ""}) {
        EXPECT_EQ(libraryCalls.load(name), nullptr) << name;
        EXPECT_EQ(libraryCalls.loaded(name), nullptr) << name;
    }
}

TEST(Library, FunctionsAreFoundByTheirExactNames) {
    const platform::LibraryHandle help = libraryCalls.load("dbghelp.dll");
    const platform::LibraryHandle kernel = libraryCalls.load("kernel32.dll");
    for (const char* const name : {"StackWalk64", "SymInitialize", "MiniDumpWriteDump"})
        EXPECT_NE(libraryCalls.symbol(help, name), nullptr) << name;
    for (const char* const name : {"Module32First", "GetThreadId"})
        EXPECT_NE(libraryCalls.symbol(kernel, name), nullptr) << name;
    EXPECT_EQ(libraryCalls.symbol(help, "stackwalk64"), nullptr);
    EXPECT_EQ(libraryCalls.symbol(help, "Module32First"), nullptr);
    EXPECT_EQ(libraryCalls.symbol(kernel, "StackWalk64"), nullptr);
}

TEST(Library, EnvironmentGivesValueAndLength) {
    char out[8] = "#######";
    EXPECT_EQ(libraryCalls.environment("VDREADER_NOT_SET", out, sizeof out), 0u);
    setVariable("VDREADER_SET", "seven77");
    EXPECT_EQ(libraryCalls.environment("VDREADER_SET", out, sizeof out), 7u);
    EXPECT_STREQ(out, "seven77");
}

TEST(Library, ValueThatDoesNotFitTellsItsSize) {
    char out[4] = "###";
    setVariable("VDREADER_SET", "seven77");
    EXPECT_EQ(libraryCalls.environment("VDREADER_SET", out, sizeof out), 8u);
}
