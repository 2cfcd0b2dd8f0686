#include "Alerts/alertDecoder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "libn/storage.h"
#include "sample/alertFile.h"
#include "support/raised.h"
#include "support/tempFolder.h"
#include "vdreader/alerts.h"

namespace {

// Bytes in memory, zeroes behind them; notes the largest read.
class MemoryStream {
  public:
    explicit MemoryStream(std::string bytes) : m_bytes(std::move(bytes)) {}

    void read(void* out, std::size_t size) {
        if (size == 0)
            return;
        std::memset(out, 0, size);
        if (used < m_bytes.size())
            std::memcpy(out, m_bytes.data() + used, std::min(size, m_bytes.size() - used));
        used += size;
        largest = std::max(largest, size);
    }
    template <class Value>
    void get(Value& value) {
        read(&value, sizeof value);
    }
    // Nothing: every part takes the long way.
    struct Ahead {
        std::size_t left() const { return 0; }
        template <class Fields>
        void run(std::size_t, Fields) {
            throw std::logic_error("nothing is ahead");
        }
        template <std::size_t>
        void readOf(void*, std::size_t) {
            throw std::logic_error("nothing is ahead");
        }
    };
    Ahead ahead() const { return {}; }
    void goOnAt(const Ahead&) {}

    std::size_t used = 0;
    std::size_t largest = 0;

  private:
    std::string m_bytes;
};

// Gives two pieces of a part and raises at the third.
class EndingStream : public MemoryStream {
  public:
    using MemoryStream::MemoryStream;

    void read(void* out, std::size_t size) {
        if (size > 8 && ++m_pieces > 2)
            throw std::runtime_error("no more");
        MemoryStream::read(out, size);
    }

  private:
    int m_pieces = 0;
};

sample::Alert distinctAlert() {
    sample::Alert a;
    a.word0 = 0xF0000000;
    a.word1 = 0xF1000001;
    a.word2 = 0xF2000002;
    a.send_type = 5;
    a.firm_id = "FIRM";
    a.type = 0xF3000003;
    a.perms = 0xF4000004;
    a.perms_ex = 0xF5000005;
    a.perms_ex2 = 0xF6000006;
    a.flags = 0xF7000007E8000008;
    a.client_code = "CLIENT";
    a.data_id = std::string("\0id\xFF", 4);
    a.short0 = 0xF909;
    a.body = std::string("body\0of\0it", 10);
    a.body_size = 9;
    a.word4 = 0xFA00000A;
    a.word3 = 0xFB00000B;
    a.word6 = 0xFC00000C;
    a.word5 = 0xFD00000D;
    a.quad0 = 0xFE0000000000000E;
    a.class_codes = {"CLASS1", "CLASS2", "CLASS3"};
    a.user_ids = {1, 0xFFFFFFFF, 3};
    a.quad1 = 0xFF0000000000000F;
    return a;
}

template <class Element>
std::string bytesOf(const AlertPart<Element>& part) {
    return {reinterpret_cast<const char*>(part.data()), part.size() * sizeof(Element)};
}

void expectSame(const sAlertDesc& alert, const sample::Alert& a) {
    EXPECT_EQ(alert.word0, a.word0);
    EXPECT_EQ(alert.word1, a.word1);
    EXPECT_EQ(alert.word2, a.word2);
    EXPECT_EQ(alert.send_type, a.send_type);
    EXPECT_EQ(alert.firm_id, a.firm_id);
    EXPECT_EQ(alert.type, a.type);
    EXPECT_EQ(alert.perms, a.perms);
    EXPECT_EQ(alert.perms_ex, a.perms_ex);
    EXPECT_EQ(alert.perms_ex2, a.perms_ex2);
    EXPECT_EQ(alert.flags, a.flags);
    EXPECT_EQ(alert.client_code, a.client_code);
    EXPECT_EQ(bytesOf(alert.data_id), a.data_id);
    EXPECT_EQ(alert.short0, a.short0);
    EXPECT_EQ(bytesOf(alert.body), a.body);
    EXPECT_EQ(alert.body_size, a.body_size.value_or(a.body.size()));
    EXPECT_EQ(alert.word4, a.word4);
    EXPECT_EQ(alert.word3, a.word3);
    EXPECT_EQ(alert.word6, a.word6);
    EXPECT_EQ(alert.word5, a.word5);
    EXPECT_EQ(alert.quad0, a.quad0);
    EXPECT_EQ(alert.quad1, a.quad1);
    EXPECT_EQ(std::vector(alert.user_ids.begin(), alert.user_ids.end()), a.user_ids);
    ASSERT_EQ(alert.class_codes.size(), a.class_codes.size());
    for (std::size_t i = 0; i < a.class_codes.size(); ++i)
        EXPECT_EQ(alert.class_codes[i].text, a.class_codes[i]);
}

// Each record of a file of these, into one alert.
void expectReadFromAFile(const std::vector<sample::Alert>& alerts) {
    const TempFolder folder;
    libn::storage::RecordFile file(folder.write("f", sample::encodeAlertFile(alerts)), 888888888,
                                   3276800);
    ASSERT_EQ(file.count, alerts.size());
    sAlertDesc alert;
    for (std::size_t i = 0; i < alerts.size(); ++i) {
        file.readRecord(i, alert.word1, [&](auto& in) { decodeAlert(in, alert); });
        expectSame(alert, alerts[i]);
    }
}

} // namespace

TEST(AlertDecoder, FreshRecordIsEmpty) {
    expectSame(sAlertDesc(), sample::Alert());
}

TEST(AlertDecoder, AllFieldsInStoredOrder) {
    const std::string bytes = sample::encodeAlert(distinctAlert());
    MemoryStream in(bytes);
    sAlertDesc alert;
    decodeAlert(in, alert);
    expectSame(alert, distinctAlert());
    EXPECT_EQ(in.used, bytes.size());
}

TEST(AlertDecoder, AllFieldsAreThoseOfTheLastRecord) {
    sAlertDesc alert;
    for (const sample::Alert& a : {distinctAlert(), sample::Alert(), distinctAlert()}) {
        MemoryStream in(sample::encodeAlert(a));
        decodeAlert(in, alert);
        expectSame(alert, a);
    }
}

TEST(AlertDecoder, SendTypesAboveSixAreSeven) {
    for (int stored = 0; stored < 256; ++stored) {
        sample::Alert a;
        a.send_type = static_cast<std::uint8_t>(stored);
        MemoryStream in(sample::encodeAlert(a));
        sAlertDesc alert;
        decodeAlert(in, alert);
        EXPECT_EQ(get_sAlertDesc_send_type(&alert),
                  static_cast<std::uint32_t>(stored <= 6 ? stored : 7));
    }
}

TEST(AlertDecoder, LengthsAboveOneGibibyteRaise) {
    constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;
    const auto raisedFor = [](auto change) {
        sample::Alert a = distinctAlert();
        change(a);
        MemoryStream in(sample::encodeAlert(a));
        sAlertDesc alert;
        EXPECT_THROW(decodeAlert(in, alert), std::length_error);
        MemoryStream again(sample::encodeAlert(a));
        return raisedText([&] { decodeAlert(again, alert); });
    };
    for (const std::uint64_t n : {kGiB + 1, kGiB * 16, ~std::uint64_t{0}}) {
        EXPECT_EQ(raisedFor([=](sample::Alert& a) { a.storedDataIdLength = n; }),
                  "vector too long");
        EXPECT_EQ(raisedFor([=](sample::Alert& a) { a.storedBodyLength = n; }), "vector too long");
    }
    EXPECT_EQ(raisedFor([](sample::Alert& a) { a.storedClassCodes = kGiB / 13 + 1; }),
              "vector too long");
    EXPECT_EQ(raisedFor([](sample::Alert& a) { a.storedUserIds = kGiB / 4 + 1; }),
              "vector too long");
}

TEST(AlertDecoder, LongPartsAreReadAsTheyGrow) {
    sample::Alert a = distinctAlert();
    a.data_id.assign(65536, 'd');
    a.body.assign(10 * 1024 * 1024 + 3, 'b');
    a.body_size = 0;
    a.user_ids.resize(100001);
    for (std::size_t i = 0; i < a.user_ids.size(); ++i)
        a.user_ids[i] = static_cast<std::uint32_t>(i * 7);
    a.class_codes.assign(6000, "LAST");
    a.class_codes.front() = "FIRST";
    MemoryStream in(sample::encodeAlert(a));
    sAlertDesc alert;
    decodeAlert(in, alert);
    expectSame(alert, a);
}

TEST(AlertDecoder, MemoryIsTakenAsBytesArrive) {
    const std::uint64_t count = std::uint64_t{1} << 30;
    EndingStream in("");
    AlertPart<std::uint8_t> bytes;
    EXPECT_EQ(raisedText([&] { decodePart(in, count, bytes); }), "no more");
    EXPECT_LE(bytes.capacity(), 4u * 65536);
    EXPECT_LE(in.largest, 65536u);
}

TEST(AlertDecoder, MemoryOfALongPartIsNotKept) {
    MemoryStream in("");
    AlertPart<std::uint32_t> ids;
    decodePart(in, 300000, ids);
    EXPECT_GE(ids.capacity(), 300000u);
    decodePart(in, 3, ids);
    EXPECT_LT(ids.capacity(), 300000u);
    const std::size_t kept = ids.capacity();
    const std::uint32_t* const where = ids.data();
    decodePart(in, 2, ids);
    EXPECT_EQ(ids.capacity(), kept);
    EXPECT_EQ(ids.data(), where) << "that of a short one is";
}

TEST(AlertDecoder, BodyOfAnyLengthIsReadThroughAFile) {
    std::vector<sample::Alert> alerts;
    for (std::size_t size = 300; size < 1500; size += 7) {
        sample::Alert a = distinctAlert();
        a.body.assign(size, static_cast<char>('a' + size % 26));
        a.body_size.reset();
        a.quad1 = size;
        alerts.push_back(a);
    }
    expectReadFromAFile(alerts);
}

TEST(AlertDecoder, ShortPartsOfAnyLengthAreReadThroughAFile) {
    std::vector<sample::Alert> alerts;
    for (std::size_t size = 0; size < 300; ++size) {
        sample::Alert a = distinctAlert();
        a.data_id = std::string(size * 31 % 140, static_cast<char>('A' + size % 26));
        a.body = std::string(size, static_cast<char>('a' + size % 26));
        a.body_size.reset();
        a.class_codes.assign(size % 12, "CODE" + std::to_string(size));
        a.user_ids.assign(size % 37, static_cast<std::uint32_t>(size * 1'000'003));
        a.quad1 = size;
        alerts.push_back(a);
    }
    expectReadFromAFile(alerts);
}

// Short parts lead to every byte around the end of what is read at once, where fields follow.
TEST(AlertDecoder, FieldsAfterShortPartsAreReadThroughAFile) {
    std::vector<sample::Alert> alerts;
    for (std::size_t size = 90; size <= 128; ++size) {
        sample::Alert a = distinctAlert();
        a.data_id = std::string(110, 'i');
        a.body = std::string(size, static_cast<char>('a' + size % 26));
        a.body_size.reset();
        a.class_codes.clear();
        a.user_ids.assign(32, static_cast<std::uint32_t>(size * 1'000'003));
        a.quad1 = size;
        alerts.push_back(a);
    }
    expectReadFromAFile(alerts);
}

TEST(AlertDecoder, ShortPartAfterALongOneGivesItsMemoryBack) {
    const TempFolder folder;
    sample::Alert large = distinctAlert();
    large.body.assign(kMostKept + 1, 'x');
    large.body_size.reset();
    libn::storage::RecordFile file(
        folder.write("f", sample::encodeAlertFile({large, distinctAlert()})), 888888888, 3276800);
    sAlertDesc alert;
    file.readRecord(0, alert.word1, [&](auto& in) { decodeAlert(in, alert); });
    EXPECT_GT(alert.body.capacity(), kMostKept);
    file.readRecord(1, alert.word1, [&](auto& in) { decodeAlert(in, alert); });
    EXPECT_LT(alert.body.capacity(), 4096u);
    expectSame(alert, distinctAlert());
}

TEST(AlertDecoder, FieldOfTheHeadIsOverwrittenByTheBody) {
    const TempFolder folder;
    sample::AlertFileOptions options;
    options.headField = 0x11223344;
    libn::storage::RecordFile file(
        folder.write("f", sample::encodeAlertFile({distinctAlert()}, options)), 888888888, 3276800);
    sAlertDesc alert;
    std::uint32_t seen = 0;
    file.readRecord(0, alert.word1, [&](auto& in) {
        seen = alert.word1;
        decodeAlert(in, alert);
    });
    EXPECT_EQ(seen, 0x11223344u);
    EXPECT_EQ(alert.word1, distinctAlert().word1);
}

// ---- getters ----

TEST(AlertGetters, EmptyPartsThatHoldMemoryAreNull) {
    sAlertDesc alert;
    alert.data_id.reserve(100);
    alert.body.reserve(100);
    alert.class_codes.reserve(100);
    alert.user_ids.reserve(100);
    alert.body_size = 5;
    EXPECT_EQ(get_sAlertDesc_data_id_ptr(&alert), nullptr);
    EXPECT_EQ(get_sAlertDesc_data_id_size(&alert), 0u);
    EXPECT_EQ(get_sAlertDesc_body_ptr(&alert), nullptr);
    EXPECT_EQ(get_sAlertDesc_body_size(&alert), 5u);
    EXPECT_EQ(get_sAlertDesc_class_code(&alert), nullptr);
    EXPECT_EQ(get_sAlertDesc_user_id_ptr(&alert), nullptr);
    EXPECT_EQ(get_sAlertDesc_user_id_size(&alert), 0);
}

TEST(AlertGetters, BodyOfSizeZeroIsAnEmptyStringWhateverBytesItHas) {
    sAlertDesc alert;
    const char byte = 'x';
    alert.body.resize(1);
    std::memcpy(alert.body.data(), &byte, 1);
    ASSERT_NE(get_sAlertDesc_body_ptr(&alert), nullptr);
    EXPECT_EQ(*get_sAlertDesc_body_ptr(&alert), 0u);
    alert.body_size = 1;
    EXPECT_EQ(*get_sAlertDesc_body_ptr(&alert), 'x');
}

TEST(AlertGetters, FlagsAreTheLowHalf) {
    sAlertDesc alert;
    alert.flags = 0x100000001;
    EXPECT_EQ(get_sAlertDesc_flags(&alert), 1u);
}
