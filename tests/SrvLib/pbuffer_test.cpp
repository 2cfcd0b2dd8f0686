#include "Buffers/pbuffer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <typeinfo>

#include "libn/memTraceTable.h"
#include "support/raised.h"
#include "vdreader/errors.hpp"

using ServantsLibrary::pbuffer;

TEST(ListNode, FieldsStandInTheirOrder) {
    static_assert(offsetof(pbuffer, page) == 0);
    static_assert(offsetof(pbuffer, viewBase) == 8);
    static_assert(offsetof(pbuffer, viewSize) == 16);
    static_assert(offsetof(pbuffer, magic) == 24);
    static_assert(offsetof(pbuffer, next) == 32);
    static_assert(offsetof(pbuffer, prev) == 40);
    EXPECT_EQ(sizeof(pbuffer), 48u);
}

TEST(ListNode, ComesZeroedWithItsMagic) {
    const std::uint32_t mallocs = memCountMalloc, frees = memCountFree;
    pbuffer* node = ServantsLibrary::newNode();
    EXPECT_EQ(memCountMalloc - mallocs, 1u);
    EXPECT_EQ(node->magic, 0x56172811u);
    EXPECT_EQ(node->page, nullptr);
    EXPECT_EQ(node->viewBase, nullptr);
    EXPECT_EQ(node->viewSize, 0u);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->prev, nullptr);
    ServantsLibrary::freeNode(node);
    EXPECT_EQ(memCountFree - frees, 1u);
    ServantsLibrary::freeNode(nullptr);
}

TEST(ListNode, AnyOtherMagicRaises) {
    pbuffer node{};
    node.magic = 0x56172811;
    EXPECT_EQ(raisedText([&] { ServantsLibrary::checkNode(node); }), "(nothing)");
    for (const std::uint32_t magic : {0u, 0x56172810u, 0x11281756u, 0xFFFFFFFFu}) {
        node.magic = magic;
        try {
            ServantsLibrary::checkNode(node);
            ADD_FAILURE() << "nothing raised";
        } catch (const CEmptyError& failure) {
            EXPECT_EQ(typeid(failure), typeid(CEmptyError));
            EXPECT_STREQ(failure.what(), "MAGIC !!! IS INCORRECT");
            EXPECT_EQ(failure.code, 0);
        }
    }
}
