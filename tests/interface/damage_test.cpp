// Damaged files on the disk through the shared library: every load ends in a known way, leaves the
// file as it was and does not hold it, and a good file loads afterwards.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "../../fuzz/reference/classDifference.h"
#include "../../fuzz/reference/damageSample.h"
#include "../../fuzz/reference/flatFields.h"
#include "support/tempFolder.h"
#include "vdreader/readers.h"

namespace {

namespace fs = std::filesystem;

class FileDamage : public testing::Test {
  protected:
    FileDamage()
        : m_sample(reference::makeDamageSample()),
          m_path(m_folder.write("class.vd", m_sample.bytes)),
          m_good(m_folder.write("good.vd", m_sample.bytes)) {}

    // Result, text and what the walks hand out against the second reader of the format; then the
    // good file.  Empty, or what differs.
    std::string loadDifference(const std::string& bytes) {
        const auto wanted = reference::readClassFile(bytes, m_path);
        const std::int32_t result = init_vdreader_classes_file(m_path.c_str());
        if (result != (wanted.failure.empty() ? 1 : 0))
            return "result " + std::to_string(result) + " for the text " + wanted.failure;
        if (result == 0 && wanted.failure != get_vdreader_error())
            return "text " + std::string(get_vdreader_error()) + " for " + wanted.failure;
        if (result == 0 && for_each_class(reference::walks::takeClass) != 0)
            return "a walk works after a load that failed";
        const std::string found =
            result == 1 ? difference(reference::loadedClasses(), wanted) : std::string();
        if (!found.empty())
            return found;
        return init_vdreader_classes_file(m_good.c_str()) == 1
                   ? ""
                   : "a good file does not load afterwards";
    }

    TempFolder m_folder;
    reference::DamageSample m_sample;
    std::string m_path;
    std::string m_good;
};

TEST_F(FileDamage, EveryThirdCutGivesTheTextOfItsPlace) {
    for (std::size_t size = m_sample.bytes.size(); size-- > 0;) {
        // All of the head and of the blocks, and each third byte of the records.
        if (size > 200 && size < m_sample.layout.classes[0].securitiesBlock - 50 && size % 3 != 0)
            continue;
        fs::resize_file(m_path, size);
        const std::string cut = m_sample.bytes.substr(0, size);
        const std::string text = reference::cutFailure(m_sample, size, m_path);
        ASSERT_EQ(text, reference::readClassFile(cut, m_path).failure) << "cut at " << size;
        ASSERT_EQ("", loadDifference(cut)) << "cut at " << size;
        if (size % 64 == 0) {
            ASSERT_EQ(cut, m_folder.read("class.vd")) << "cut at " << size;
        }
    }
    EXPECT_EQ(0u, fs::file_size(m_path));
    EXPECT_EQ(m_sample.bytes, m_folder.read("good.vd"));
}

TEST_F(FileDamage, EveryByteOfHeadAndRecordChanged) {
    std::string bytes = m_sample.bytes;
    std::fstream file(m_path, std::ios::binary | std::ios::in | std::ios::out);
    const auto put = [&](std::size_t at, char value) {
        bytes[at] = value;
        file.seekp(static_cast<std::streamoff>(at));
        file.put(value);
        file.flush();
    };
    const std::size_t end = sample::kRecordsOffset + sample::kClassRecordSize;
    for (std::size_t at = 0; at < end; ++at) {
        const char stored = bytes[at];
        for (const int change : {0x01, 0x80}) {
            put(at, static_cast<char>(stored ^ change));
            ASSERT_EQ("", loadDifference(bytes)) << "byte " << at;
        }
        put(at, stored);
    }
    file.close();
    EXPECT_EQ(m_sample.bytes, m_folder.read("class.vd"));
}

// ---- flat files: few walks, since each of them holds a stream for good ----

std::size_t records;
std::string fieldsThatDiffer;
std::string wantedBytes;

template <class Record>
std::int32_t take(Record* record) {
    const std::size_t size = reference::sizeOf(record);
    if (fieldsThatDiffer.empty())
        fieldsThatDiffer =
            reference::fieldDifference(record, wantedBytes.substr(records * size, size));
    ++records;
    return 1;
}

class FlatFileDamage : public testing::TestWithParam<bool> {};

TEST_P(FlatFileDamage, CutFileGivesItsWholeRecords) {
    const bool positions = GetParam();
    const std::size_t size = positions ? reference::kPositionSize : reference::kLimitSize;
    const TempFolder folder;
    wantedBytes.clear();
    for (std::size_t i = 0; i < 3 * size; ++i)
        wantedBytes.push_back(static_cast<char>(i * 5 + i / 256));
    const std::string key = positions ? "fclipos" : "flimits";
    for (std::size_t cut = 0; cut <= wantedBytes.size(); cut += cut % size < 2 ? 1 : size / 6) {
        // A file of its own for each walk: an earlier one is still held.
        const std::string name = std::to_string(cut) + ".vd";
        const std::string path = folder.write(name, wantedBytes.substr(0, cut));
        const std::string ini = folder.write("host.ini", "[s]\n" + key + "=" + path + "\n");
        records = 0;
        fieldsThatDiffer.clear();
        ASSERT_EQ(1, positions ? init_vdreader_futpositions(ini.c_str(), "s")
                               : init_vdreader_futlimits(ini.c_str(), "s"));
        ASSERT_EQ(1, positions ? for_each_futposition(take<sFutPosition>)
                               : for_each_futlimit(take<sFutLimit>));
        ASSERT_EQ(cut / size, records) << "cut at " << cut;
        ASSERT_EQ("", fieldsThatDiffer);
        ASSERT_EQ(wantedBytes.substr(0, cut), folder.read(name));
    }
}

INSTANTIATE_TEST_SUITE_P(Files, FlatFileDamage, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Positions" : "Limits"; });

} // namespace
