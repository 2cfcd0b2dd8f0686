#include "readerSettings.h"

#include <gtest/gtest.h>

#include "support/besideTheProgram.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"
#include "vdreader/errors.hpp"
#include "vdreader/readers.h"

namespace {

constexpr ReaderSetting kAny = {"key", "default.vd", "nothing there"};

} // namespace

TEST(ReaderSettings, KeysAndDefaults) {
    EXPECT_STREQ(kClassesSetting.key, "classes");
    EXPECT_STREQ(kClassesSetting.defaultName, "class.vd");
    EXPECT_STREQ(kDynParamsSetting.key, "dynparams");
    EXPECT_STREQ(kDynParamsSetting.defaultName, "data.vd");
    EXPECT_STREQ(kAlertsSetting.key, "alerts");
    EXPECT_STREQ(kAlertsSetting.defaultName, "alert.vd");
    EXPECT_STREQ(kFutLimitsSetting.key, "flimits");
    EXPECT_STREQ(kFutLimitsSetting.defaultName, "flimit.vd");
    EXPECT_STREQ(kFutPositionsSetting.key, "fclipos");
    EXPECT_STREQ(kFutPositionsSetting.defaultName, "fclipos.vd");
}

TEST(ReaderSettings, NameIsThatOfTheKey) {
    const TempFolder folder;
    const std::string ini = folder.write("f.ini", "[s]\nKEY = Some Name.vd \n");
    EXPECT_EQ(configuredName(ini.c_str(), "S", kAny), "Some Name.vd");
}

TEST(ReaderSettings, DefaultServesWithoutAFileASectionAKeyOrAValue) {
    const TempFolder folder;
    const std::string ini = folder.write("f.ini", "[s]\nkey=\n[t]\nother=1\n");
    EXPECT_EQ(configuredName(folder.name("none").c_str(), "s", kAny), "default.vd");
    EXPECT_EQ(configuredName(ini.c_str(), "none", kAny), "default.vd");
    EXPECT_EQ(configuredName(ini.c_str(), "t", kAny), "default.vd");
    EXPECT_EQ(configuredName(ini.c_str(), "s", kAny), "default.vd");
}

TEST(ReaderSettings, EmptySettingRaisesTheReadersText) {
    const TempFolder folder;
    const std::string none = folder.name("none");
    for (const ReaderSetting* setting : {&kClassesSetting, &kDynParamsSetting, &kAlertsSetting,
                                         &kFutLimitsSetting, &kFutPositionsSetting}) {
        const ReaderSetting empty = {setting->key, "", setting->emptyFailure};
        const auto error = raised<CError>([&] { configuredName(none.c_str(), "s", empty); });
        ASSERT_TRUE(error);
        EXPECT_STREQ(error->what(), setting->emptyFailure);
    }
    EXPECT_STREQ(kClassesSetting.emptyFailure,
                 "reader for classes can not find 'classes' setting or setting is empty");
    EXPECT_STREQ(kDynParamsSetting.emptyFailure,
                 "vdreader can not find 'dynparams' setting or setting is empty");
    EXPECT_STREQ(kAlertsSetting.emptyFailure,
                 "vdreader can not find 'alerts' setting or setting is empty");
    EXPECT_STREQ(kFutLimitsSetting.emptyFailure,
                 "vdreader can not find 'flimits' setting or setting is empty");
    EXPECT_STREQ(kFutPositionsSetting.emptyFailure,
                 "vdreader can not find 'fclipos' setting or setting is empty");
}

TEST(ReaderSettings, GoodFileIsKeptAsItsResolvedPath) {
    const TempFolder folder;
    const std::string data = folder.write("data.vd", "");
    const std::string ini = folder.write("f.ini", "[s]\nkey=" + data + "\n");
    std::string file = "former";
    configureFile(file, ini.c_str(), "s", kAny);
    EXPECT_EQ(file, data);
}

TEST(ReaderSettings, RelativeNameIsOpenedAndKeptAsItsResolvedPath) {
    const TempFolder folder;
    const BesideTheProgram data("readerSettings_test.vd", "x");
    std::filesystem::current_path(folder.path());
    for (const char* name : {"readerSettings_test.vd", ".\\readerSettings_test.vd"}) {
        const std::string ini = folder.write("f.ini", "[s]\nkey=" + std::string(name) + "\n");
        std::string file = "former";
        configureFile(file, ini.c_str(), "s", kAny);
        EXPECT_EQ(file, besideTheProgram("readerSettings_test.vd"));
    }
    std::filesystem::current_path(std::filesystem::temp_directory_path());
}

TEST(ReaderSettings, TestOpenIsClosedAgain) {
    const TempFolder folder;
    const std::string data = folder.write("data.vd", "");
    const std::string ini = folder.write("f.ini", "[s]\nkey=" + data + "\n");
    const ScopedCalls scope;
    static const platform::Calls* real;
    static int open;
    open = 0;
    real = &scope.saved();
    platform::calls.openForReading = [](const char* path) {
        ++open;
        return real->openForReading(path);
    };
    platform::calls.closeFile = [](platform::FileHandle file) {
        --open;
        real->closeFile(file);
    };
    std::string file;
    configureFile(file, ini.c_str(), "s", kAny);
    EXPECT_EQ(open, 0);
}

TEST(ReaderSettings, FailedReadOfTheIniFileBecomesTheTextOfTheExport) {
    const TempFolder folder;
    const std::string ini = folder.write("f.ini", "[s]\nkey=x\n");
    const ScopedCalls scope;
    platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*, std::size_t) {
        return std::ptrdiff_t{-1};
    };
    EXPECT_EQ(init_vdreader_futlimits(ini.c_str(), "s"), 0);
    EXPECT_EQ(std::string(get_vdreader_error()), "Read ini file error. File" + ini + " line:1");
}

TEST(ReaderSettings, FailedOpenIsACError) {
    const TempFolder folder;
    std::string file;
    EXPECT_TRUE(
        raised<CError>([&] { configureFile(file, folder.name("none").c_str(), "s", kAny); }));
}

TEST(ReaderSettings, FailedOpenKeepsTheConfiguredName) {
    const TempFolder folder;
    const std::string ini = folder.write("f.ini", "[s]\nkey=no such file.vd\n");
    std::string file = "former";
    EXPECT_EQ(raisedText([&] { configureFile(file, ini.c_str(), "s", kAny); }),
              "alerts file " + besideTheProgram("no such file.vd") + " can not be opened");
    EXPECT_EQ(file, "no such file.vd");
}

TEST(ReaderSettings, MissingIniFileMeansTheDefaultBesideTheProgram) {
    const TempFolder folder;
    std::string file;
    EXPECT_EQ(raisedText([&] { configureFile(file, folder.name("none").c_str(), "s", kAny); }),
              "alerts file " + besideTheProgram("default.vd") + " can not be opened");
    EXPECT_EQ(file, "default.vd");
}
