// Encoding of alert.vd.

#include "sample/alertFile.h"

#include <algorithm>
#include <stdexcept>

#include "sample/bytes.h"

namespace sample {

namespace {

constexpr std::uint64_t kMappingUnit = 65'536;
constexpr std::uint64_t kReadAhead = 480; // what a reader fetches at once from where a body begins

void checkNumbers(std::size_t alerts, const std::vector<std::uint64_t>& numbers) {
    if (!numbers.empty() && numbers.size() != alerts)
        throw std::invalid_argument("each alert needs a number");
    for (std::size_t i = 1; i < numbers.size(); ++i)
        if (numbers[i] <= numbers[i - 1])
            throw std::invalid_argument("the numbers of alerts must rise");
    const std::uint64_t last = numbers.empty() ? alerts : numbers.back() + 1;
    if (last > kAlertMaxRecords)
        throw std::length_error("no table reaches the number of an alert");
}

// The file while it grows, addressed by words.
class Builder {
  public:
    explicit Builder(std::uint64_t gapWords) : m_gapWords(gapWords) {
        m_bytes.assign(kAlertHeaderWords * kAlertWordSize, '\0');
    }

    void putWord(std::uint64_t word, std::uint64_t value) {
        putNumber(m_bytes, word * kAlertWordSize, value);
    }

    std::uint64_t end() const { return m_bytes.size() / kAlertWordSize; }

    std::uint64_t addTable() {
        const std::uint64_t word = beginBlock();
        m_bytes.append(kAlertTableWords * kAlertWordSize, '\0');
        return word;
    }

    std::uint64_t addHead(std::uint32_t field) {
        const std::uint64_t word = beginBlock();
        appendFill(m_bytes, 0, kAlertHeadWords * kAlertWordSize);
        putNumber(m_bytes, (word + alertHead::kField) * kAlertWordSize, field);
        return word;
    }

    std::uint64_t addBody(const std::string& body) {
        const std::uint64_t word = beginBlock();
        m_bytes.append(body);
        appendFill(m_bytes, body.size(), -body.size() % kAlertWordSize);
        return word;
    }

    std::string take() { return std::move(m_bytes); }

  private:
    std::uint64_t beginBlock() {
        appendFill(m_bytes, 0, m_gapWords * kAlertWordSize);
        return end();
    }

    std::uint64_t m_gapWords;
    std::string m_bytes;
};

// The word of the slot, after the tables on the way to it are there.
std::uint64_t slotOf(Builder& builder, AlertFileLayout& made, std::uint64_t number) {
    if (made.root == 0)
        made.root = builder.addTable();
    const std::uint64_t high = number / kAlertTableWords;
    auto found = made.tables.find(high);
    if (found == made.tables.end()) {
        found = made.tables.emplace(high, builder.addTable()).first;
        builder.putWord(made.root + high, found->second);
    }
    return found->second + number % kAlertTableWords;
}

std::uint64_t usualSize(std::uint64_t bytes) {
    const std::uint64_t needed = bytes + kReadAhead;
    return (needed + kMappingUnit - 1) / kMappingUnit * kMappingUnit;
}

void applyDamage(std::string& bytes,
                 const std::vector<std::pair<std::uint64_t, std::uint64_t>>& damage) {
    for (const auto& [word, value] : damage) {
        if (word >= bytes.size() / kAlertWordSize)
            throw std::out_of_range("a damaged word lies behind the end of the file");
        putNumber(bytes, word * kAlertWordSize, value);
    }
}

} // namespace

std::string encodeAlert(const Alert& alert, AlertBodyLayout* layout) {
    AlertBodyLayout made;
    std::string out;
    appendNumber(out, alert.word0);
    appendNumber(out, alert.word1);
    appendNumber(out, alert.word2);
    appendNumber(out, alert.send_type);
    appendText(out, alert.firm_id, kAlertCodeSize);
    appendNumber(out, alert.type);
    appendNumber(out, alert.perms);
    appendNumber(out, alert.perms_ex);
    appendNumber(out, alert.perms_ex2);
    appendNumber(out, alert.flags);
    appendText(out, alert.client_code, kAlertCodeSize);
    made.dataId = out.size();
    appendNumber(out, alert.storedDataIdLength.value_or(alert.data_id.size()));
    out.append(alert.data_id);
    appendNumber(out, alert.short0);
    made.body = out.size();
    appendNumber(out, alert.storedBodyLength.value_or(alert.body.size()));
    out.append(alert.body);
    made.bodySize = out.size();
    appendNumber(out, alert.body_size.value_or(alert.body.size()));
    appendNumber(out, alert.word4);
    appendNumber(out, alert.word3);
    appendNumber(out, alert.word6);
    appendNumber(out, alert.word5);
    appendNumber(out, alert.quad0);
    made.classCodes = out.size();
    appendNumber(out, alert.storedClassCodes.value_or(alert.class_codes.size()));
    for (const std::string& code : alert.class_codes)
        appendText(out, code, kAlertCodeSize);
    made.userIds = out.size();
    appendNumber(out, alert.storedUserIds.value_or(alert.user_ids.size()));
    for (const std::uint32_t id : alert.user_ids)
        appendNumber(out, id);
    appendNumber(out, alert.quad1);
    made.size = out.size();
    if (layout)
        *layout = made;
    return out;
}

std::string encodeAlertFile(const std::vector<Alert>& alerts, const AlertFileOptions& options,
                            AlertFileLayout* layout) {
    checkNumbers(alerts.size(), options.numbers);
    Builder builder(options.gapWords);
    AlertFileLayout made;
    made.alerts.reserve(alerts.size());
    for (std::size_t i = 0; i < alerts.size(); ++i) {
        AlertPlace place;
        place.number = options.numbers.empty() ? i : options.numbers[i];
        place.slot = slotOf(builder, made, place.number);
        const std::string body = encodeAlert(alerts[i]);
        place.bodySize = body.size();
        place.head = builder.addHead(options.headField.value_or(alerts[i].word1));
        place.body = builder.addBody(body);
        builder.putWord(place.head + alertHead::kBody, place.body);
        builder.putWord(place.slot, place.head);
        made.alerts.push_back(place);
    }
    made.nextFree = alerts.empty() ? 0 : builder.end();
    made.count = alerts.empty() ? 0 : made.alerts.back().number + 1;
    builder.putWord(alertHeader::kMagic0, options.magic0);
    builder.putWord(alertHeader::kMagic1, options.magic1);
    builder.putWord(alertHeader::kNextFree, options.storedNextFree.value_or(made.nextFree));
    builder.putWord(alertHeader::kRoot, options.storedRoot.value_or(made.root));
    builder.putWord(alertHeader::kCount, options.storedCount.value_or(made.count));
    std::string out = builder.take();
    out.resize(options.fileSize.value_or(usualSize(out.size())));
    applyDamage(out, options.damage);
    made.fileSize = out.size();
    if (layout)
        *layout = std::move(made);
    return out;
}

} // namespace sample
