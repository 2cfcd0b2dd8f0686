#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "iniWriterProbe.h"
#include "libn/Ini.h"
#include "platform/error.h"
#include "support/capturedLog.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "support/writeOnlyFile.h"

using namespace iniWriting;
using libn::Ini;
using libn::IniSectionWriter;

namespace {

using Calls = std::vector<std::string>;

const platform::Calls* real = nullptr;
int callsLeft = 0;

// Whether the call is one of the first that go well.
bool goesWell() {
    return callsLeft-- > 0;
}

std::string problem(const std::string& words, const std::string& name) {
    return words + " file <name=" + name + "> OS error description: [5]";
}

// The messages of the error log behind the place, up to the text of the system.
std::vector<std::string> problems(const CapturedLog& log) {
    std::vector<std::string> found = log.messages(CapturedLog::errors);
    for (std::string& message : found) {
        EXPECT_NE(message.find("(libn/src/IniWriter at "), std::string::npos);
        message = message.substr(message.find("Can't"));
        message = message.substr(0, message.find("] [") + 1);
    }
    return found;
}

class IniWriterFailures : public testing::Test {
  protected:
    IniWriterFailures() { real = &m_calls.saved(); }

    const std::string m_before = bytes("a=1\n[s]\nk=1\n");
    const std::string m_after = bytes("a=1\n[s]\nk=2\n");
    TempFolder m_folder;
    const std::string m_path = m_folder.write("f", m_before);
    ScopedCalls m_calls;
    CapturedLog m_log;
};

} // namespace

TEST_F(IniWriterFailures, FailedReadHasItsOwnTextAndLeavesTheFile) {
    platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*, std::size_t) {
        return std::ptrdiff_t{-1};
    };
    Probe probe(m_path, "s");
    EXPECT_EQ(raisedText([&] { probe.pass(0); }), "Read ini file error. File: " + m_path);
    EXPECT_FALSE(probe.run(0));
    EXPECT_FALSE(probe.run(1));
    IniSectionWriter writer(m_path, "s", true, "k=2");
    EXPECT_FALSE(writer.run(0));
    EXPECT_EQ(m_folder.read("f"), m_before);
    EXPECT_EQ(m_log.size(), 0u);
}

TEST_F(IniWriterFailures, FailureHalfWayLeavesNothingForTheNextRun) {
    platform::calls.readAt = [](platform::FileHandle file, std::uint64_t offset, void* out,
                                std::size_t) {
        return goesWell() ? real->readAt(file, offset, out, 5) : std::ptrdiff_t{-1};
    };
    IniSectionWriter writer(m_path, "s", true, "k=2");
    callsLeft = 2;
    EXPECT_FALSE(writer.run(0));
    EXPECT_EQ(m_folder.read("f"), m_before);
    callsLeft = 1000;
    EXPECT_TRUE(writer.run(0));
    EXPECT_EQ(m_folder.read("f"), m_after);
}

TEST_F(IniWriterFailures, FileThatDoesNotOpenForWritingIsFalse) {
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        return access.writes ? platform::kInvalidStorage : real->openStorage(path, access);
    };
    Ini ini(m_path);
    EXPECT_FALSE(ini.writeSection("s", "k=2"));
    EXPECT_FALSE(ini.writeSection("t", "k=2"));
    Probe probe(m_path, "s");
    EXPECT_FALSE(probe.run(0));
    EXPECT_EQ(m_folder.read("f"), m_before);
    platform::calls = *real;
    EXPECT_TRUE(ini.writeSection("s", "k=2"));
    EXPECT_EQ(m_folder.read("f"), m_after);
}

TEST_F(IniWriterFailures, FileThatMayBeWrittenAndNotReadStaysAsItIs) {
    {
        const WriteOnlyFile closed(m_path);
        if (!closed.holds())
            GTEST_SKIP() << "the file system lets the file be read all the same";
        IniSectionWriter writer(m_path, "t", true, "k=2");
        EXPECT_FALSE(writer.run(0));
        EXPECT_FALSE(Ini(m_path).writeSection("s", "k=2"));
    }
    EXPECT_EQ(m_folder.read("f"), m_before);
    EXPECT_EQ(m_log.size(), 0u);
}

// The same on a system that would let it be emptied.
TEST_F(IniWriterFailures, FileIsOpenedForReadingToo) {
    static std::vector<platform::StorageAccess> opens;
    opens.clear();
    platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
        opens.push_back(access);
        return real->openStorage(path, access);
    };
    EXPECT_TRUE(Ini(m_path).writeSection("s", "k=2"));
    ASSERT_EQ(opens.size(), 2u);
    for (const platform::StorageAccess& access : opens)
        EXPECT_TRUE(access.reads);
    EXPECT_TRUE(opens[1].writes);
}

TEST_F(IniWriterFailures, WriteThatFailsIsTrueAndPutsTheFormerBytesBack) {
    platform::calls.writeStorage = [](platform::StorageHandle file, const void* data,
                                      std::uint32_t size, std::uint32_t* done) {
        if (goesWell())
            return real->writeStorage(file, data, std::min<std::uint32_t>(size, 3), done);
        *done = 0;
        platform::calls.writeStorage = real->writeStorage;
        platform::setLastError(5);
        return false;
    };
    callsLeft = 2;
    EXPECT_TRUE(Ini(m_path).writeSection("s", "k=2"));
    EXPECT_EQ(m_folder.read("f"), m_before);
    EXPECT_EQ(problems(m_log), Calls{problem("Can't write", m_path)});
    EXPECT_TRUE(Ini(m_path).writeSection("s", "k=2"));
    EXPECT_EQ(m_folder.read("f"), m_after);
    EXPECT_EQ(m_log.size(), 1u);
}

TEST_F(IniWriterFailures, FullDeviceForGoodIsToldTwice) {
    platform::calls.writeStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                      std::uint32_t* done) {
        *done = 0;
        platform::setLastError(5);
        return false;
    };
    EXPECT_TRUE(Ini(m_path).writeSection("s", "k=2"));
    EXPECT_EQ(problems(m_log),
              (Calls{problem("Can't write", m_path), problem("Can't restore", m_path)}));
}

TEST_F(IniWriterFailures, EachFailedCallLeavesTheFormerTextOrTheNew) {
    static int number;
    const auto fail = [] {
        platform::setLastError(5);
        return --number == 0;
    };
    static bool (*failing)();
    failing = fail;
    int failed = 0;
    for (int nth = 1; nth < 20; ++nth) {
        m_folder.write("f", m_before);
        number = nth;
        platform::calls.openForReading = [](const char* path) {
            return failing() ? platform::kNoFile : real->openForReading(path);
        };
        platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
            return failing() ? platform::kInvalidStorage : real->openStorage(path, access);
        };
        platform::calls.storageSize = [](platform::StorageHandle file) {
            return failing() ? std::int64_t{-1} : real->storageSize(file);
        };
        platform::calls.readStorage = [](platform::StorageHandle file, void* out,
                                         std::uint32_t size, std::uint32_t* done) {
            *done = 0;
            return !failing() && real->readStorage(file, out, size, done);
        };
        platform::calls.writeStorage = [](platform::StorageHandle file, const void* data,
                                          std::uint32_t size, std::uint32_t* done) {
            *done = 0;
            return !failing() && real->writeStorage(file, data, size, done);
        };
        IniSectionWriter writer(m_path, "s", false, "k=2");
        const bool good = writer.run(0);
        platform::calls = *real;
        const std::string now = m_folder.read("f");
        EXPECT_TRUE(now == m_after || now == m_before) << nth << now;
        EXPECT_TRUE(good || now == m_before) << nth;
        failed += number <= 0;
    }
    EXPECT_EQ(failed, 6) << "two opens for reading, size, read, open for writing, write";
}

TEST_F(IniWriterFailures, FormerTextThatCannotBeReadCannotBePutBack) {
    platform::calls.readStorage = [](platform::StorageHandle, void*, std::uint32_t,
                                     std::uint32_t* done) {
        *done = 0;
        return false;
    };
    platform::calls.writeStorage = [](platform::StorageHandle, const void*, std::uint32_t,
                                      std::uint32_t* done) {
        *done = 0;
        platform::calls.writeStorage = real->writeStorage;
        platform::setLastError(5);
        return false;
    };
    EXPECT_TRUE(Ini(m_path).writeSection("s", "k=2"));
    EXPECT_EQ(problems(m_log),
              (Calls{problem("Can't write", m_path), problem("Can't restore", m_path)}));
}

TEST_F(IniWriterFailures, FailureOfADerivedClassIsFalse) {
    Probe probe(m_path, "s");
    probe.change = [](std::string&) { throw std::logic_error("refused"); };
    EXPECT_FALSE(probe.run(0));
    EXPECT_EQ(probe.out, "");
    probe.change = [](std::string&) { throw 5; };
    EXPECT_FALSE(probe.run(0));
    EXPECT_EQ(m_folder.read("f"), m_before);
}
