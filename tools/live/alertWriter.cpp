// Appending to an alert.vd that is in use.

#include "live/alertWriter.h"

#include <algorithm>
#include <cstring>

#include "live/words.h"

namespace live {

namespace {

using sample::kAlertHeaderWords;
using sample::kAlertTableWords;
using sample::kAlertWordSize;

constexpr std::uint64_t kMappingUnit = 65'536;
constexpr std::uint64_t kReadAhead = 480; // what a reader fetches at once from where a body begins
constexpr std::uint64_t kDoubledBelow = 100'000'000;
constexpr std::uint64_t kMaxWords = 1ull << 40;

} // namespace

AlertWriter::AlertWriter(const std::string& path) : m_file(path) {
    reach(kAlertHeaderWords);
    if (load<std::uint64_t>(word(sample::alertHeader::kMagic0)) != sample::kAlertMagic ||
        load<std::uint64_t>(word(sample::alertHeader::kMagic1)) != sample::kAlertMagic)
        throw Error(Error::Kind::Malformed, path + ": the file has another magic number");
}

unsigned char* AlertWriter::word(std::uint64_t index) {
    if (index >= m_size / kAlertWordSize)
        throw Error(Error::Kind::Malformed,
                    m_file.path() + ": word " + std::to_string(index) + " is not in the file");
    return m_view.at(index * kAlertWordSize);
}

// Makes file and view hold so many words and what a reader fetches behind them.  The file grows by
// the rule of all who map it: doubled while it is small.
void AlertWriter::reach(std::uint64_t words) {
    if (words > kMaxWords)
        throw Error(Error::Kind::Malformed, m_file.path() + ": the next free word lies too far");
    const std::uint64_t needed =
        (words * kAlertWordSize + kReadAhead + kMappingUnit - 1) / kMappingUnit * kMappingUnit;
    if (needed <= m_size)
        return;
    const std::uint64_t held = m_file.size();
    if (held < needed)
        m_file.growTo(held,
                      std::max(needed, held < kDoubledBelow ? 2 * held : held + kDoubledBelow));
    const std::uint64_t size = m_file.size();
    m_view = m_file.map(0, size);
    m_size = size;
}

std::uint64_t AlertWriter::count() {
    return shared<std::uint64_t>(word(sample::alertHeader::kCount)).load();
}

std::uint64_t AlertWriter::takeBlock(std::uint64_t words) {
    for (;;) {
        std::uint64_t stored = load<std::uint64_t>(word(sample::alertHeader::kNextFree));
        const std::uint64_t block = std::max(stored, kAlertHeaderWords);
        reach(std::min(block, kMaxWords + 1) + words);
        if (shared<std::uint64_t>(word(sample::alertHeader::kNextFree))
                .compare_exchange_strong(stored, block + words))
            return block;
    }
}

// The table that the word links to, made and linked where there is none.
std::uint64_t AlertWriter::tableAt(std::uint64_t linkWord) {
    std::uint64_t table = shared<std::uint64_t>(word(linkWord)).load();
    if (table != 0)
        return table;
    const std::uint64_t made = takeBlock(kAlertTableWords);
    std::memset(word(made), 0, kAlertTableWords * kAlertWordSize);
    if (shared<std::uint64_t>(word(linkWord)).compare_exchange_strong(table, made))
        return made;
    return table;
}

std::uint64_t AlertWriter::append(const sample::Alert& alert) {
    const std::uint64_t number = count();
    if (number >= sample::kAlertMaxRecords)
        throw Error(Error::Kind::Malformed, m_file.path() + ": no table reaches the next record");
    const std::string body = sample::encodeAlert(alert);
    const std::uint64_t root = tableAt(sample::alertHeader::kRoot);
    const std::uint64_t slot =
        tableAt(root + number / kAlertTableWords) + number % kAlertTableWords;
    word(slot); // the tables must lie in the file before anything is taken for the record

    const std::uint64_t bodyWord = takeBlock((body.size() + kAlertWordSize - 1) / kAlertWordSize);
    std::memcpy(word(bodyWord), body.data(), body.size());
    const std::uint64_t head = takeBlock(sample::kAlertHeadWords);
    store(word(head + sample::alertHead::kField), alert.word1);
    store(word(head + sample::alertHead::kBody), bodyWord);
    shared<std::uint64_t>(word(slot)).store(head, std::memory_order_release);
    shared<std::uint64_t>(word(sample::alertHeader::kCount))
        .store(number + 1, std::memory_order_release);
    return number;
}

} // namespace live
