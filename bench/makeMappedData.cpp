// Writing of the mapped files and of the databases that stand beside them.

#include <sqlite3.h>
#include <algorithm>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "data.h"
#include "database.h"
#include "makeData.h"
#include "sample/alertFile.h"
#include "sample/classFile.h"
#include "sample/output.h"
#include "sample/random.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

// `count` of the slot's values, at random, each with the bits of some number.
sample::Slot slotWith(std::size_t count, std::int32_t classId, sample::Random& random) {
    std::vector<std::size_t> params(sample::kSlotParams);
    std::iota(params.begin(), params.end(), std::size_t{0});
    for (std::size_t i = 0; i < count; ++i)
        std::swap(params[i], params[i + random.below(params.size() - i)]);
    sample::Slot slot;
    slot.class_id = classId;
    for (std::size_t i = 0; i < count; ++i)
        slot.setDouble(params[i], random.money(1, 20'000'000));
    return slot;
}

void writeSlots(const fs::path& file, const fs::path& database, const sample::Market& market,
                std::size_t values) {
    sample::Random random(values);
    sample::DataFile data;
    for (const sample::ListedSecurity& listed : sample::listedSecurities(market))
        data.slots[listed.security->sec_id] = slotWith(values, listed.owner->classId, random);
    sample::writeDataFile(file, data);
    DatabaseWriter writer(database.c_str(), MDB_INTEGERKEY);
    for (const auto& [secId, slot] : data.slots)
        writer.add(secId, sample::encodeSlot(slot).substr(kSlotStart));
    writer.commit();
}

// Gives the securities each other's numbers, at random: whoever takes them in the order of the file
// comes to slots in no order, as where numbers were given out over years.
void shuffleNumbers(sample::Market& market) {
    sample::Random random(kSecurities);
    std::vector<std::uint32_t*> numbers;
    for (sample::ClassRecord& owner : market.classes)
        for (sample::Security& security : owner.securities)
            numbers.push_back(&security.sec_id);
    for (std::size_t i = numbers.size(); i > 1; --i)
        std::swap(*numbers[i - 1], *numbers[random.below(i)]);
}

// Of kChangeSize bytes: a mask for 128 parameters, 4 integers and 2 doubles.
sample::Record changeOf(const sample::ListedSecurity& chosen, std::int32_t number,
                        sample::Random& random) {
    sample::Record record;
    record.dataField1 = number;
    record.dataField2 = 20260316;
    record.dataField3 = 100'000 + number % 60;
    record.sec_id = chosen.security->sec_id;
    record.class_id = chosen.owner->classId;
    record.mask.assign(sample::kMaskSize, 0);
    record.mask[random.below(5)] = 0x3F;
    for (int i = 0; i < 4; ++i)
        record.longs.push_back(static_cast<std::int32_t>(random.below(1'000'000)));
    for (int i = 0; i < 2; ++i)
        record.doubles.push_back(random.money(1, 20'000'000));
    return record;
}

void writeJournal(const fs::path& file, const fs::path& database, const sample::Market& market) {
    sample::Random random(kChanges);
    const std::vector<sample::ListedSecurity> listed = sample::listedSecurities(market);
    sample::DataFile data;
    std::vector<sample::Record> records;
    DatabaseWriter writer(database.c_str(), MDB_INTEGERKEY);
    for (std::uint32_t number = 1; number <= kChanges; ++number) {
        records.push_back(changeOf(listed[random.below(listed.size())],
                                   static_cast<std::int32_t>(number), random));
        const std::string stored = sample::encodeRecord(records.back());
        if (stored.size() != kChangeSize)
            throw std::logic_error("a change record has another size");
        writer.add(number, stored);
    }
    writer.commit();
    data.eventPages = sample::packRecords(records, data.header.eventPageSize);
    sample::writeDataFile(file, data);
}

// ---- alerts as tables ----

using Tables = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

void checkTables(sqlite3* tables, int result) {
    if (result != SQLITE_OK && result != SQLITE_DONE)
        throw std::runtime_error(std::string("database: ") + sqlite3_errmsg(tables));
}

void execute(sqlite3* tables, const char* text) {
    checkTables(tables, sqlite3_exec(tables, text, nullptr, nullptr, nullptr));
}

Statement prepared(sqlite3* tables, const char* text) {
    sqlite3_stmt* statement = nullptr;
    checkTables(tables, sqlite3_prepare_v2(tables, text, -1, &statement, nullptr));
    return {statement, sqlite3_finalize};
}

// Binds the values of one row, in order.
class Row {
  public:
    explicit Row(sqlite3_stmt* statement) : m_statement(statement) {}

    Row& number(std::uint64_t value) {
        sqlite3_bind_int64(m_statement, ++m_column, static_cast<sqlite3_int64>(value));
        return *this;
    }
    Row& text(const std::string& value) {
        sqlite3_bind_text(m_statement, ++m_column, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT);
        return *this;
    }
    Row& bytes(std::string_view value) {
        sqlite3_bind_blob(m_statement, ++m_column, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT);
        return *this;
    }
    void insert() {
        checkTables(sqlite3_db_handle(m_statement), sqlite3_step(m_statement));
        sqlite3_reset(m_statement);
    }

  private:
    sqlite3_stmt* m_statement;
    int m_column = 0;
};

void insertFields(sqlite3_stmt* statement, std::uint32_t number, const sample::Alert& alert) {
    std::string codes;
    for (const std::string& code : alert.class_codes)
        codes += code + std::string(sample::kAlertCodeSize - code.size(), '\0');
    const std::string_view ids(reinterpret_cast<const char*>(alert.user_ids.data()),
                               alert.user_ids.size() * sizeof(std::uint32_t));
    Row row(statement);
    row.number(number).number(alert.word0).number(alert.word1).number(alert.word2);
    row.number(alert.send_type).text(alert.firm_id).number(alert.type).number(alert.perms);
    row.number(alert.perms_ex).number(alert.perms_ex2).number(alert.flags);
    row.text(alert.client_code).bytes(alert.data_id).number(alert.short0).bytes(alert.body);
    row.number(alert.body.size()).number(alert.word4).number(alert.word3).number(alert.word6);
    row.number(alert.word5).number(alert.quad0).bytes(codes).bytes(ids).number(alert.quad1);
    row.insert();
}

// Once with the alert's stored form in one column, once with a column for each field.
void writeTables(const fs::path& path, const std::vector<sample::Alert>& alerts) {
    sqlite3* opened = nullptr;
    checkTables(opened, sqlite3_open(path.c_str(), &opened));
    const Tables tables(opened, sqlite3_close);
    execute(opened, "begin");
    execute(opened, "create table stored (number integer primary key, body blob)");
    execute(opened,
            "create table fields (number integer primary key, word0, word1, word2, send_type, "
            "firm_id, type, perms, perms_ex, perms_ex2, flags, client_code, data_id, short0, body, "
            "body_size, word4, word3, word6, word5, quad0, class_codes, user_ids, quad1)");
    const Statement stored = prepared(opened, "insert into stored values (?, ?)");
    const Statement fields = prepared(
        opened, "insert into fields values (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    for (std::uint32_t number = 0; number < alerts.size(); ++number)
        Row(stored.get()).number(number).bytes(sample::encodeAlert(alerts[number])).insert();
    for (std::uint32_t number = 0; number < alerts.size(); ++number)
        insertFields(fields.get(), number, alerts[number]);
    execute(opened, "commit");
}

void writeAlerts(const fs::path& folder, const std::vector<sample::Alert>& alerts) {
    sample::writeFile(folder / kAlertsFile, sample::encodeAlertFile(alerts));
    DatabaseWriter writer((folder / kAlertsDatabase).c_str(), MDB_INTEGERKEY);
    for (std::uint32_t number = 0; number < alerts.size(); ++number)
        writer.add(number, sample::encodeAlert(alerts[number]));
    writer.commit();
    writeTables(folder / kAlertsTables, alerts);
}

} // namespace

void writeMappedFiles(const fs::path& folder, const sample::Market& market) {
    sample::MarketOptions options;
    options.classes = kClasses;
    options.securities = kSecurities;
    options.params = sample::kSlotParams;
    options.limits = options.positions = options.changes = options.alerts = 0;
    options.slots = false;
    sample::Market wide = sample::makeMarket(options);
    shuffleNumbers(wide);
    sample::writeFile(folder / kWideClassFile, sample::encodeClassFile(wide.classes));
    writeSlots(folder / kFewValuesFile, folder / kFewValuesDatabase, wide, 40);
    writeSlots(folder / kAllValuesFile, folder / kAllValuesDatabase, wide, sample::kSlotParams);
    writeJournal(folder / kJournalFile, folder / kJournalDatabase, market);
    writeAlerts(folder, market.alerts);
}

} // namespace bench
