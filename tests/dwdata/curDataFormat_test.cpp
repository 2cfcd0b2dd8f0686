// docs/formats/data.md against the structures.

#include <gtest/gtest.h>

#include <cstddef>
#include <map>

#include "FileAlloc/FILE_BLOCK.h"
#include "dwdata/CURDATA_HEADER.h"
#include "support/formatDoc.h"
#include "vdreader/curdata.hpp"

namespace {

struct Place {
    long offset;
    long size;
};
using Places = std::map<std::string, Place>;

#define PLACE(Record, field)                                            \
  {                                                                     \
#    field, {                                                           \
      static_cast<long>(offsetof(Record, field)), sizeof(Record::field) \
    }                                                                   \
  }

void expectSame(const std::string& heading, const Places& places) {
    const auto documented = docFields("data.md", heading);
    EXPECT_EQ(documented.size(), places.size()) << heading;
    for (const DocField& field : documented) {
        const auto place = places.find(field.name);
        ASSERT_NE(place, places.end()) << field.name;
        EXPECT_EQ(field.offset, place->second.offset) << field.name;
        EXPECT_EQ(field.size, place->second.size) << field.name;
    }
}

} // namespace

TEST(CurDataFormat, HeadOfABlockIsDocumented) {
    using R = FileWorkLibrary::FILE_BLOCK;
    expectSame("## Blocks", {PLACE(R, marker), PLACE(R, capacity), PLACE(R, used), PLACE(R, point),
                             PLACE(R, elements)});
}

TEST(CurDataFormat, FileHeaderIsDocumented) {
    using R = CURDATA_HEADER;
    expectSame("## File header",
               {PLACE(R, signature), PLACE(R, elements), PLACE(R, maxSecs), PLACE(R, dataPageCount),
                PLACE(R, dataPageSize), PLACE(R, firstDataPage), PLACE(R, eventPageSize),
                PLACE(R, firstEventPage), PLACE(R, currentEventPage), PLACE(R, closeStamp),
                PLACE(R, eventPageCount)});
}

TEST(CurDataFormat, SlotIsDocumented) {
    using R = VD_DATA_CUST;
    expectSame("## Slot", {PLACE(R, lock), PLACE(R, filled), PLACE(R, class_id), PLACE(R, mask),
                           PLACE(R, values)});
}

TEST(CurDataFormat, ChangeRecordIsDocumented) {
    using R = ENC_DATA;
    expectSame("## Change record", {PLACE(R, dataField2), PLACE(R, dataField1),
                                    PLACE(R, dataField3), PLACE(R, maskSize), PLACE(R, longCount),
                                    PLACE(R, doubleCount), PLACE(R, sec_id), PLACE(R, class_id)});
}
