// The reader of alerts.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "readers.h"
#include "sample/alertFile.h"

namespace {

// What the callbacks below saw of each alert.
struct SeenAlert {
    std::uint32_t type;
    std::string firm;
    std::string body;
};
std::vector<SeenAlert> seenAlerts;

std::string bytesAt(const void* start, std::uint64_t size) {
    return {static_cast<const char*>(start), static_cast<std::size_t>(size)};
}

std::int32_t noteAlert(sAlertDesc* alert) {
    seenAlerts.push_back(
        {get_sAlertDesc_type(alert), get_sAlertDesc_firm_id(alert),
         bytesAt(get_sAlertDesc_body_ptr(alert), get_sAlertDesc_body_size(alert))});
    return seen.next(seenAlerts.size());
}

// Alert `number`, recognised by its type.
sample::Alert alertOf(std::uint32_t number) {
    sample::Alert alert;
    alert.type = number;
    alert.firm_id = "F" + std::to_string(number);
    alert.body = "body " + std::to_string(number);
    return alert;
}

std::vector<sample::Alert> alerts(std::uint32_t count) {
    std::vector<sample::Alert> all;
    for (std::uint32_t i = 0; i < count; ++i)
        all.push_back(alertOf(i));
    return all;
}

class Alerts : public testing::Test {
  protected:
    Alerts() {
        EXPECT_EQ(init_vdreader_classes_file(m_folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    }

    std::int32_t init() { return init_vdreader_alerts(m_folder.writeIni().c_str(), "s"); }
    void initOn(const std::string& bytes) {
        m_folder.write("alert.vd", bytes);
        ASSERT_EQ(init(), 1) << lastError();
    }
    void initOn(const std::vector<sample::Alert>& all) { initOn(sample::encodeAlertFile(all)); }
    std::string file() const { return m_folder.read("alert.vd"); }

    // Bytes of a file without records.
    static std::string fresh() {
        std::string bytes(65536, '\0');
        const std::uint64_t magic = 888888888;
        std::memcpy(bytes.data(), &magic, 8);
        std::memcpy(bytes.data() + 8, &magic, 8);
        return bytes;
    }

    ReaderFolder m_folder;
};

} // namespace

// ---- initialisation ----

TEST(AlertsFrame, InitialisationNeedsClasses) {
    const ReaderFolder folder;
    folder.write("alert.vd", "");
    EXPECT_EQ(init_vdreader_alerts(folder.writeIni().c_str(), "s"), 0);
    EXPECT_EQ(lastError(), "classes storage is not initialized");
    EXPECT_EQ(init_vdreader_alerts(nullptr, nullptr), 0) << "refused before the paths are used";
}

TEST_F(Alerts, InitialisationTakesAFileOfAnyContentAndLeavesItAlone) {
    for (const char* bytes : {"", "x", "no alert file"}) {
        initOn(std::string(bytes));
        EXPECT_EQ(file(), bytes);
    }
}

TEST_F(Alerts, InitialisationMakesNoFile) {
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(lastError(), "alerts file " + m_folder.name("alert.vd") + " can not be opened");
    EXPECT_FALSE(std::filesystem::exists(m_folder.name("alert.vd")));
}

TEST_F(Alerts, FailedInitialisationKeepsTheConfiguredName) {
    const std::string ini = m_folder.write("other.ini", "[s]\nalerts=other.vd\n");
    EXPECT_EQ(init_vdreader_alerts(ini.c_str(), "s"), 0);
    EXPECT_EQ(lastError().rfind("alerts file ", 0), 0u);
    EXPECT_NE(lastError().find("other.vd can not be opened"), std::string::npos);
    std::filesystem::current_path(m_folder.path());
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(m_folder.read("other.vd"), fresh()) << "in the working folder";
    std::filesystem::current_path(std::filesystem::temp_directory_path());
}

TEST_F(Alerts, MissingIniFileMeansTheDefaultBesideTheProgram) {
    EXPECT_EQ(init_vdreader_alerts(m_folder.name("none.ini").c_str(), "s"), 0);
    const std::string text = lastError();
    EXPECT_EQ(text.rfind("alerts file ", 0), 0u);
    EXPECT_NE(text.find("alert.vd can not be opened"), std::string::npos);
    EXPECT_EQ(init_vdreader_alerts(m_folder.writeIni().c_str(), "other section"), 0);
    EXPECT_EQ(lastError(), text);
}

TEST(AlertsFrame, WalkBeforeAnyInitialisationUsesTheWorkingFolder) {
    const ReaderFolder folder;
    std::filesystem::current_path(folder.path());
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 0u);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "alert.vd"));
    folder.write("alert.vd", sample::encodeAlertFile(alerts(3)));
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 3u);
    EXPECT_EQ(lastError(), "Unknown error");
    std::filesystem::current_path(std::filesystem::temp_directory_path());
}

// ---- what a walk hands out ----

TEST_F(Alerts, AllFieldsAreThoseOfTheFile) {
    sample::Alert a;
    a.send_type = 6;
    a.firm_id = "TWELVECHARSF";
    a.type = 0xF0000001;
    a.perms = 0xF0000002;
    a.perms_ex = 0xF0000003;
    a.perms_ex2 = 0xF0000004;
    a.flags = 0xAAAAAAAAF0000005;
    a.client_code = "TWELVECHARSC";
    a.data_id = std::string("\0\1\2", 3);
    a.body = std::string("bo\0dy", 5);
    a.class_codes = {"FIRSTCLASS", "SECOND"};
    a.user_ids = {7, 0xFFFFFFFF, 9};
    initOn(std::vector<sample::Alert>{a});
    static int calls;
    calls = 0;
    EXPECT_EQ(for_each_alert([](sAlertDesc* alert) -> std::int32_t {
                  ++calls;
                  EXPECT_EQ(get_sAlertDesc_send_type(alert), 6u);
                  EXPECT_STREQ(get_sAlertDesc_firm_id(alert), "TWELVECHARSF");
                  EXPECT_EQ(get_sAlertDesc_type(alert), 0xF0000001);
                  EXPECT_EQ(get_sAlertDesc_perms(alert), 0xF0000002);
                  EXPECT_EQ(get_sAlertDesc_perms_ex(alert), 0xF0000003);
                  EXPECT_EQ(get_sAlertDesc_perms_ex2(alert), 0xF0000004);
                  EXPECT_EQ(get_sAlertDesc_flags(alert), 0xF0000005);
                  EXPECT_STREQ(get_sAlertDesc_client_code(alert), "TWELVECHARSC");
                  EXPECT_EQ(get_sAlertDesc_data_id_size(alert), 3u);
                  EXPECT_EQ(bytesAt(get_sAlertDesc_data_id_ptr(alert), 3),
                            std::string("\0\1\2", 3));
                  EXPECT_EQ(get_sAlertDesc_body_size(alert), 5u);
                  EXPECT_EQ(bytesAt(get_sAlertDesc_body_ptr(alert), 5), std::string("bo\0dy", 5));
                  EXPECT_STREQ(get_sAlertDesc_class_code(alert), "FIRSTCLASS");
                  EXPECT_EQ(get_sAlertDesc_user_id_size(alert), 3);
                  const std::uint32_t* ids = get_sAlertDesc_user_id_ptr(alert);
                  EXPECT_EQ((std::array{ids[0], ids[1], ids[2]}),
                            (std::array<std::uint32_t, 3>{7, 0xFFFFFFFF, 9}));
                  return 1;
              }),
              1)
        << lastError();
    EXPECT_EQ(calls, 1);
}

TEST_F(Alerts, EachRecordIsAsFresh) {
    sample::Alert full = alertOf(1);
    full.data_id = "id";
    full.class_codes = {"CODE"};
    full.user_ids = {5};
    full.flags = ~std::uint64_t{0};
    sample::Alert blanked = full;
    blanked.body_size = 0;
    initOn({full, sample::Alert(), blanked, full});
    static int calls;
    calls = 0;
    EXPECT_EQ(for_each_alert([](sAlertDesc* alert) -> std::int32_t {
                  const bool empty = calls == 1;
                  EXPECT_EQ(get_sAlertDesc_data_id_ptr(alert) == nullptr, empty);
                  EXPECT_EQ(get_sAlertDesc_class_code(alert) == nullptr, empty);
                  EXPECT_EQ(get_sAlertDesc_user_id_ptr(alert) == nullptr, empty);
                  EXPECT_EQ(get_sAlertDesc_user_id_size(alert), empty ? 0 : 1);
                  EXPECT_EQ(get_sAlertDesc_data_id_size(alert), empty ? 0u : 2u);
                  EXPECT_EQ(get_sAlertDesc_flags(alert), empty ? 0u : 0xFFFFFFFF);
                  EXPECT_EQ(std::string(get_sAlertDesc_firm_id(alert)), empty ? "" : "F1");
                  const bool bodiless = calls == 1 || calls == 2;
                  EXPECT_EQ(get_sAlertDesc_body_size(alert), bodiless ? 0u : 6u);
                  EXPECT_EQ(bytesAt(get_sAlertDesc_body_ptr(alert), bodiless ? 1 : 6),
                            bodiless ? std::string(1, '\0') : "body 1");
                  ++calls;
                  return 1;
              }),
              1);
    EXPECT_EQ(calls, 4);
}

TEST_F(Alerts, FileWithoutRecordsCallsNothing) {
    initOn(sample::encodeAlertFile({}));
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 0u);
    EXPECT_EQ(for_each_alert(nullptr), 1) << "nobody is called";
}

TEST_F(Alerts, CallbackResults) {
    initOn(alerts(5));
    for (const auto& [answer, result] :
         std::vector<std::pair<int, int>>{{2, 1}, {3, 0}, {0, 0}, {-1, 0}})
        for (const int at : {1, 2, 5}) {
            seenAlerts.clear();
            seen.answer = answer;
            seen.answerAt = at;
            EXPECT_EQ(for_each_alert(noteAlert), result) << answer;
            EXPECT_EQ(seenAlerts.size(), static_cast<std::size_t>(at));
        }
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST_F(Alerts, ExceptionOfTheCallbackBecomesTheText) {
    initOn(alerts(2));
    EXPECT_EQ(for_each_alert(
                  [](sAlertDesc*) -> std::int32_t { throw std::runtime_error("callback broke"); }),
              0);
    EXPECT_EQ(lastError(), "callback broke");
    EXPECT_THROW(for_each_alert([](sAlertDesc*) -> std::int32_t { throw 5; }), int);
    EXPECT_EQ(lastError(), "callback broke");
    EXPECT_EQ(for_each_alert(noteAlert), 1) << "the file was released";
    std::filesystem::remove(m_folder.path() / "alert.vd");
    EXPECT_FALSE(std::filesystem::exists(m_folder.path() / "alert.vd"));
}

TEST_F(Alerts, ManyRecordsNeedTwoTables) {
    constexpr std::uint32_t kCount = 16384 + 700;
    initOn(alerts(kCount));
    EXPECT_EQ(for_each_alert(noteAlert), 1) << lastError();
    ASSERT_EQ(seenAlerts.size(), kCount);
    for (std::uint32_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(seenAlerts[i].type, i);
        ASSERT_EQ(seenAlerts[i].body, "body " + std::to_string(i));
    }
}

TEST_F(Alerts, AlertOfTenMegabytes) {
    std::vector<sample::Alert> all = alerts(3);
    all[1].body.resize(10 << 20);
    for (std::size_t i = 0; i < all[1].body.size(); ++i)
        all[1].body[i] = static_cast<char>(i * 131 + (i >> 12));
    initOn(all);
    EXPECT_EQ(for_each_alert(noteAlert), 1) << lastError();
    ASSERT_EQ(seenAlerts.size(), 3u);
    EXPECT_TRUE(seenAlerts[1].body == all[1].body);
    EXPECT_EQ(seenAlerts[2].body, "body 2");
}

// ---- walks inside walks, and a file that changes ----

TEST_F(Alerts, WalkInsideAWalkHasItsOwnRecord) {
    initOn(alerts(3));
    static int outer;
    outer = 0;
    EXPECT_EQ(for_each_alert([](sAlertDesc* alert) -> std::int32_t {
                  const std::string before = get_sAlertDesc_firm_id(alert);
                  EXPECT_EQ(for_each_alert(noteAlert), 1);
                  EXPECT_EQ(for_each_class(noteClass), 1);
                  EXPECT_EQ(get_sAlertDesc_firm_id(alert), before);
                  EXPECT_EQ(get_sAlertDesc_type(alert), static_cast<std::uint32_t>(outer));
                  ++outer;
                  return 1;
              }),
              1);
    EXPECT_EQ(outer, 3);
    EXPECT_EQ(seenAlerts.size(), 9u);
}

TEST_F(Alerts, RecordsAppendedDuringAWalkAreSeenByTheNext) {
    const std::string both = sample::encodeAlertFile(alerts(2));
    std::string one = both;
    one[32] = 1; // the count
    initOn(one);
    static std::string name;
    name = m_folder.name("alert.vd");
    EXPECT_EQ(for_each_alert([](sAlertDesc* alert) -> std::int32_t {
                  std::fstream out(name, std::ios::in | std::ios::out | std::ios::binary);
                  out.seekp(32).put(2);
                  return noteAlert(alert);
              }),
              1);
    EXPECT_EQ(seenAlerts.size(), 1u);
    EXPECT_EQ(file(), both);
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 3u);
}

TEST_F(Alerts, InitialisationAgainTakesTheOtherFile) {
    initOn(alerts(1));
    const ReaderFolder other;
    other.write("alert.vd", sample::encodeAlertFile(alerts(4)));
    ASSERT_EQ(init_vdreader_alerts(other.writeIni().c_str(), "s"), 1);
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 4u);
}

// ---- what a walk does to the file ----

TEST_F(Alerts, MissingFileIsMade) {
    initOn(alerts(1));
    std::filesystem::remove(m_folder.path() / "alert.vd");
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 0u);
    EXPECT_EQ(file(), fresh());
}

TEST_F(Alerts, ForeignFileIsEmptied) {
    for (const std::size_t word : {0, 1}) {
        std::string bytes = sample::encodeAlertFile(alerts(10));
        bytes[8 * word + 7] = 1;
        initOn(bytes);
        EXPECT_EQ(for_each_alert(noteAlert), 1);
        EXPECT_EQ(seenAlerts.size(), 0u);
        EXPECT_EQ(file(), fresh());
    }
    initOn(std::string("no alert file"));
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(file(), fresh());
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST_F(Alerts, GoodFileStaysAsItIs) {
    const std::string bytes = sample::encodeAlertFile(alerts(500));
    initOn(bytes);
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_EQ(seenAlerts.size(), 500u);
    EXPECT_TRUE(file() == bytes);
}

TEST_F(Alerts, ReadNearTheEndMakesTheFileLongerAndChangesNothingElse) {
    sample::AlertFileOptions options;
    sample::AlertFileLayout layout;
    sample::encodeAlertFile(alerts(500), options, &layout);
    options.fileSize = layout.nextFree * 8;
    const std::string bytes = sample::encodeAlertFile(alerts(500), options);
    initOn(bytes);
    EXPECT_EQ(for_each_alert(noteAlert), 1) << lastError();
    EXPECT_EQ(seenAlerts.size(), 500u);
    EXPECT_EQ(seenAlerts.back().body, "body 499");
    const std::string after = file();
    EXPECT_EQ(after.size(), 2 * bytes.size());
    EXPECT_TRUE(after == bytes + std::string(bytes.size(), '\0'));
    EXPECT_EQ(for_each_alert(noteAlert), 1);
    EXPECT_TRUE(file() == after) << "once";
}

TEST_F(Alerts, CountPastTheRecordsAddsATableAndFails) {
    sample::AlertFileOptions options;
    sample::AlertFileLayout layout;
    options.storedCount = 16390;
    std::string bytes = sample::encodeAlertFile(alerts(16384), options, &layout);
    initOn(bytes);
    EXPECT_EQ(for_each_alert(noteAlert), 0);
    EXPECT_EQ(lastError(), "libn::storage::Array::getPos:recNo<16384>");
    EXPECT_EQ(seenAlerts.size(), 16384u);
    // The second table: its place, and the next free word.
    const std::uint64_t table = layout.nextFree, next = table + 16384;
    const std::string after = file();
    std::memcpy(bytes.data() + 8 * (layout.root + 1), &table, 8);
    std::memcpy(bytes.data() + 16, &next, 8);
    const std::size_t end = static_cast<std::size_t>(8 * next);
    if (end > bytes.size())
        bytes.resize(after.size(), '\0');
    std::memset(bytes.data() + 8 * table, 0, 8 * 16384);
    EXPECT_TRUE(after == bytes);
}

// ---- failures ----

TEST_F(Alerts, GapInTheNumbersEndsTheWalk) {
    sample::AlertFileOptions options;
    options.numbers = {0, 1, 3};
    initOn(sample::encodeAlertFile(alerts(3), options));
    EXPECT_EQ(for_each_alert(noteAlert), 0);
    EXPECT_EQ(lastError(), "libn::storage::Array::getPos:recNo<2>");
    EXPECT_EQ(seenAlerts.size(), 2u) << "those in front were handed out";
}

TEST_F(Alerts, DamagedWordsAreNamed) {
    sample::AlertFileLayout layout;
    sample::encodeAlertFile(alerts(2), {}, &layout);
    const std::uint64_t far = (std::uint64_t{1} << 40) + 1;
    const std::uint64_t slot = layout.alerts[1].slot, head = layout.alerts[1].head;
    for (const auto& [word, field] : std::vector<std::pair<std::uint64_t, std::string>>{
             {3, "root"}, {layout.root, "table"}, {slot, "head"}, {head, "body"}}) {
        sample::AlertFileOptions options;
        options.damage = {{word, far}};
        const std::string bytes = sample::encodeAlertFile(alerts(2), options);
        initOn(bytes);
        EXPECT_EQ(for_each_alert(noteAlert), 0);
        EXPECT_EQ(lastError(), "libn::storage word beyond reach:" + field + "<1099511627777>");
        EXPECT_TRUE(file() == bytes) << field;
    }
}

TEST_F(Alerts, LengthAboveOneGibibyteIsTold) {
    sample::Alert a = alertOf(0);
    a.storedBodyLength = (std::uint64_t{1} << 30) + 1;
    initOn({a});
    EXPECT_EQ(for_each_alert(noteAlert), 0);
    EXPECT_EQ(lastError(), "vector too long");
}

TEST_F(Alerts, FileThatCannotBeOpenedIsNamed) {
    initOn(alerts(1));
    std::filesystem::remove(m_folder.path() / "alert.vd");
    std::filesystem::create_directory(m_folder.path() / "alert.vd");
    EXPECT_EQ(for_each_alert(noteAlert), 0);
    EXPECT_EQ(lastError().rfind("MappableStorageFile open CreateFile:name()<" +
                                    m_folder.name("alert.vd") + ">error.message().c_str()<",
                                0),
              0u)
        << lastError();
}

TEST(AlertsDeathTest, NullRecordsAndCallbacksFault) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    folder.write("alert.vd", sample::encodeAlertFile(alerts(1)));
    ASSERT_EQ(init_vdreader_alerts(folder.writeIni().c_str(), "s"), 1);
    EXPECT_DEATH(for_each_alert(nullptr), "");
    EXPECT_DEATH(init_vdreader_alerts(nullptr, "s"), "");
    EXPECT_DEATH(get_sAlertDesc_type(nullptr), "");
    EXPECT_DEATH(get_sAlertDesc_class_code(nullptr), "");
    EXPECT_DEATH(get_sAlertDesc_body_ptr(nullptr), "");
}
