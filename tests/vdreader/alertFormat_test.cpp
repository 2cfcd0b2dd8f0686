// docs/formats/alert.md against the container and the decoder.

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "Alerts/alertDecoder.h"
#include "libn/storage.h"
#include "support/formatDoc.h"
#include "support/tempFolder.h"

namespace {

std::string number(std::uint64_t value, long size) {
    return {reinterpret_cast<const char*>(&value), static_cast<std::size_t>(size)};
}

// A block made by a table of the document alone: named fields as given, all others set.
std::string block(const std::string& heading, const std::map<std::string, std::uint64_t>& values) {
    std::string bytes;
    std::size_t used = 0;
    for (const DocField& field : docFields("alert.md", heading)) {
        EXPECT_EQ(field.offset, static_cast<long>(bytes.size())) << field.name;
        const auto value = values.find(field.name);
        if (value == values.end()) {
            bytes.append(static_cast<std::size_t>(field.size), 'x');
        } else {
            bytes += number(value->second, field.size);
            ++used;
        }
    }
    EXPECT_EQ(used, values.size());
    return bytes;
}

#define FIELD(name)                                                                              \
  {                                                                                              \
#    name,                                                                                       \
        [](const sAlertDesc&                                                                     \
               a) { return std::string(reinterpret_cast<const char*>(&a.name), sizeof a.name); } \
  }
#define VECTOR(name)                                                                               \
  {                                                                                                \
#    name, [](const sAlertDesc& a) {                                                             \
      return std::string(reinterpret_cast<const char*>(a.name.data()),                           \
                         a.name.size() * sizeof a.name[0]);                                      \
    } \
  }

const std::map<std::string, std::string (*)(const sAlertDesc&)> kFields = {
    FIELD(word0),        FIELD(word1),     FIELD(word2),    FIELD(send_type), FIELD(firm_id),
    FIELD(type),         FIELD(perms),     FIELD(perms_ex), FIELD(perms_ex2), FIELD(flags),
    FIELD(client_code),  VECTOR(data_id),  FIELD(short0),   VECTOR(body),     FIELD(body_size),
    FIELD(word4),        FIELD(word3),     FIELD(word6),    FIELD(word5),     FIELD(quad0),
    VECTOR(class_codes), VECTOR(user_ids), FIELD(quad1)};

// Sizes of the parts that the document gives as multiples of a count.
const std::map<std::string, std::size_t> kElements = {
    {"data_id", 1}, {"body", 1}, {"class_codes", 13}, {"user_ids", 4}};
constexpr std::size_t kCount = 5;

// The body by the document, each field filled with a byte of its own, and what each field holds.
std::string documentedBody(std::map<std::string, std::string>& values) {
    std::string bytes;
    char fill = 1; // the fourth, send_type, keeps a value that stays
    for (const DocField& field : docFields("alert.md", "## Record body")) {
        const std::size_t of = field.name.find(" of `");
        if (of == std::string::npos) {
            values[field.name] = std::string(static_cast<std::size_t>(field.size), fill);
            bytes += values[field.name];
        } else {
            const std::string name = field.name.substr(of + 5);
            values[name] = std::string(kElements.at(name) * kCount, fill);
            bytes += number(kCount, field.size) + values[name];
        }
        ++fill;
    }
    return bytes;
}

} // namespace

TEST(AlertFormat, FileByTheDocumentIsRead) {
    std::map<std::string, std::string> values;
    const std::string body = documentedBody(values);
    const std::uint64_t root = 120, table = root + 16384, head = table + 16384, place = head + 10;
    std::string file = block("## Header", {{"first magic", 888888888},
                                           {"second magic", 888888888},
                                           {"next free", place + 100},
                                           {"root", root},
                                           {"count", 8}});
    ASSERT_EQ(file.size(), 800u);
    file.resize(place * 8, '\0');
    file.replace((root + 0) * 8, 8, number(table, 8));
    file.replace((table + 7) * 8, 8, number(head, 8));
    const std::string stored =
        block("## Record head", {{"body", place}, {"early `word1", 0x11223344}});
    file.replace(head * 8, stored.size(), stored);
    file += body;

    const TempFolder folder;
    libn::storage::RecordFile records(folder.write("alert.vd", file), 888888888, 3276800);
    EXPECT_EQ(records.count, 8u);
    sAlertDesc alert;
    records.readRecord(7, alert.word1, [&](auto& in) {
        EXPECT_EQ(alert.word1, 0x11223344u);
        decodeAlert(in, alert);
    });
    EXPECT_EQ(values.size(), kFields.size());
    for (const auto& [name, value] : values) {
        const auto field = kFields.find(name);
        ASSERT_NE(field, kFields.end()) << name;
        EXPECT_EQ(field->second(alert), value) << name;
    }
}

TEST(AlertFormat, SizesOfTheDocumentAreThoseOfTheStructure) {
    sAlertDesc alert;
    for (const DocField& field : docFields("alert.md", "## Record body"))
        if (const auto found = kFields.find(field.name); found != kFields.end()) {
            EXPECT_EQ(found->second(alert).size(), static_cast<std::size_t>(field.size))
                << field.name;
        }
}
