// The traced allocation entry points of a process that does not start the tracer.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "vdreader/memtrace.h"

TEST(MemTraceInterface, BlockGrowsAndKeepsItsBytes) {
    void* block = memTraceMalloc(16, "host.cpp", 1);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x5A, 16);
    block = memTraceRealloc(block, 1 << 20, "host.cpp", 2);
    ASSERT_NE(block, nullptr);
    const unsigned char kept[16] = {0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A,
                                    0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A};
    EXPECT_EQ(std::memcmp(block, kept, sizeof kept), 0);
    memTraceFree(block, "host.cpp", 3);
}

TEST(MemTraceInterface, NullMayBeFreedAndGrown) {
    memTraceFree(nullptr, "host.cpp", 1);
    void* const block = memTraceRealloc(nullptr, 8, "host.cpp", 2);
    ASSERT_NE(block, nullptr);
    std::memcpy(block, "1234567", 8);
    EXPECT_STREQ(static_cast<const char*>(block), "1234567");
    memTraceFree(block, "host.cpp", 3);
}

TEST(MemTraceInterface, ForeignMemoryComesBackAsItIs) {
    char own[8] = "1234567";
    EXPECT_EQ(memTraceAddPtr(own, sizeof own, "host.cpp", 1), own);
    EXPECT_EQ(memTraceDelPtr(own), own);
    EXPECT_STREQ(own, "1234567");
}
