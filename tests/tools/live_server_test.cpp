// The play of a server, and the reading of classes that it begins with.

#include "live/server.h"

#include <gtest/gtest.h>

#include "live/classReader.h"
#include "sample/output.h"
#include "support/cursor.h"
#include "support/tempFolder.h"

using namespace toolTest;

namespace {

live::ServerPlaces placesOf(const TempFolder& folder) {
    return {folder.file("class.vd"), folder.file("data.vd"), folder.file("alert.vd")};
}

TEST(LiveClassReader, ReadsBackWhatAServerNeeds) {
    const TempFolder folder;
    sample::Market market = sample::makeMarket({.securities = 50, .names = 3, .maxSecs = 2'000});
    market.classes[1].magic = sample::kFreeMagic;
    market.classes[2].securities.clear();
    market.classes[3].params.clear();
    sample::writeFile(folder.path() / "class.vd", sample::encodeClassFile(market.classes));
    market.classes.erase(market.classes.begin() + 1);
    const auto read = live::readClasses(folder.file("class.vd"));
    ASSERT_EQ(read.size(), market.classes.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        const sample::ClassRecord& made = market.classes[i];
        EXPECT_EQ(read[i].classId, made.classId);
        EXPECT_EQ(read[i].classCode, made.classCode);
        ASSERT_EQ(read[i].params.size(), made.params.size());
        for (std::size_t k = 0; k < made.params.size(); ++k) {
            EXPECT_EQ(read[i].params[k].par_id, made.params[k].par_id);
            EXPECT_EQ(read[i].params[k].flags, made.params[k].flags);
            EXPECT_EQ(read[i].params[k].scale, made.params[k].scale);
            EXPECT_EQ(read[i].params[k].db_name, made.params[k].db_name);
            ASSERT_EQ(read[i].params[k].names.size(), made.params[k].names.size());
            EXPECT_EQ(read[i].params[k].names[0].enum_desc, made.params[k].names[0].enum_desc);
        }
        ASSERT_EQ(read[i].securities.size(), made.securities.size());
        for (std::size_t k = 0; k < made.securities.size(); ++k) {
            EXPECT_EQ(read[i].securities[k].sec_id, made.securities[k].sec_id);
            EXPECT_EQ(read[i].securities[k].sec_code, made.securities[k].sec_code);
        }
    }
}

TEST(LiveClassReader, FileThatIsCutAnywhereIsRefused) {
    const TempFolder folder;
    const sample::Market market = sample::makeMarket(
        {.classes = 2, .securities = 4, .params = 2, .names = 1, .maxSecs = 2'000});
    const std::string bytes = sample::encodeClassFile(market.classes);
    // The last bytes belong to fields that the reader passes over.
    for (std::size_t size = 0; size + 1 < bytes.size(); size += 97) {
        sample::writeFile(folder.path() / "class.vd", bytes.substr(0, size));
        EXPECT_THROW(live::readClasses(folder.file("class.vd")), live::Error) << size;
    }
    EXPECT_THROW(live::readClasses(folder.file("absent.vd")), live::Error);
}

// Played from the start, the records that were appended end at the slots.
TEST(LiveServer, RecordsTellOfTheSlots) {
    const TempFolder folder;
    const sample::Market market = sample::makeMarket(
        {.classes = 3, .securities = 20, .params = 30, .changes = 10, .maxSecs = 2'000});
    sample::writeMarket(folder.path(), market);
    live::Server server(placesOf(folder), 5, 10);
    for (int i = 0; i < 3000; ++i)
        server.step();
    EXPECT_EQ(server.changes(), 3000u);
    EXPECT_EQ(server.alerts(), 188u);
    EXPECT_GT(server.pages(), 0u);

    std::map<std::uint32_t, const sample::ClassRecord*> owners;
    for (const sample::ListedSecurity& listed : sample::listedSecurities(market))
        owners[listed.security->sec_id] = listed.owner;
    std::map<std::uint32_t, sample::Slot> slots = market.slots;
    const std::string bytes = readFile(folder.path() / "data.vd");
    const sample::DataHeader header{.maxSecs = 2'000};
    std::int32_t number = 0;
    for (std::uint32_t page = 0; page <= server.pages(); ++page) {
        const std::uint64_t point = header.eventPoint(page);
        Cursor at(bytes, point + 24);
        const auto used = Cursor(bytes, point + 8).number<std::uint32_t>();
        EXPECT_LE(used, header.eventPageSize - 24);
        while (at.at() < point + 24 + used) {
            at.bytes(8);
            ASSERT_EQ(at.number<std::int32_t>(), ++number);
            at.bytes(4);
            const auto maskSize = at.number<std::uint8_t>();
            at.bytes(3);
            const auto secId = at.number<std::uint32_t>();
            const auto classId = at.number<std::int32_t>();
            at.bytes(4);
            const std::string mask = at.bytes(maskSize);
            ASSERT_TRUE(owners.contains(secId));
            const sample::ClassRecord& owner = *owners.at(secId);
            ASSERT_EQ(classId, owner.classId);
            sample::Slot& slot = slots[secId];
            for (const bool doubles : {false, true})
                for (std::size_t i = 0; i < owner.params.size(); ++i) {
                    if (!(mask[i / 8] & 1 << i % 8) || (owner.params[i].flags & 1) != doubles)
                        continue;
                    if (doubles)
                        slot.setDouble(i, at.number<double>());
                    else
                        slot.setLong(i, at.number<std::int32_t>());
                }
        }
    }
    EXPECT_EQ(number, 3010);
    for (const auto& [secId, slot] : slots) {
        const std::string stored = bytes.substr(header.slotOffset(secId), 1080);
        EXPECT_EQ(stored.substr(0, 4), std::string(4, '\0'));
        EXPECT_EQ(stored.substr(36, 16),
                  std::string(reinterpret_cast<const char*>(slot.mask.data()), 16));
        EXPECT_EQ(stored.substr(56),
                  std::string(reinterpret_cast<const char*>(slot.values.data()), 1024));
    }
}

TEST(LiveServer, MarketWithoutSecuritiesRaisesAlerts) {
    const TempFolder folder;
    sample::writeMarket(
        folder.path(),
        sample::makeMarket({.classes = 0, .securities = 0, .alerts = 3, .maxSecs = 2'000}));
    live::Server server(placesOf(folder), 1, 1);
    for (int i = 0; i < 17; ++i)
        server.step();
    EXPECT_EQ(server.changes(), 0u);
    EXPECT_EQ(server.alerts(), 2u);
    const std::string bytes = readFile(folder.path() / "alert.vd");
    EXPECT_EQ(Cursor(bytes, 32).number<std::uint64_t>(), 5u);
}

} // namespace
