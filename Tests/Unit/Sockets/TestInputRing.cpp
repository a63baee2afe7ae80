#include "Sockets/InputRing.h"

#include <gtest/gtest.h>

#include <string>

// Every place at which a run of bytes can meet the end of the storage.
TEST(InputRing, KeepsBytesInOrderAcrossTheEndOfTheStorageAndGivesNoMoreThanItHolds)
{
    for (std::size_t start = 0; start < 8; ++start) {
        for (std::size_t size = 1; size <= 8; ++size) {
            InputRing ring(8);
            // One byte stays, so that the ring does not start again at its beginning.
            const std::size_t held = start > 0 ? 1 : 0;
            ASSERT_TRUE(ring.Write("bbbbbbbb", start) && ring.Remove(start - held));
            const std::string text = std::string("12345678").substr(0, size <= 8 - held ? size : 0);
            ASSERT_EQ(ring.Write("12345678", size), !text.empty()) << start << " " << size;
            ASSERT_EQ(ring.GetLength(), held + text.size());
            EXPECT_FALSE(ring.Remove(ring.GetLength() + 1));
            ASSERT_TRUE(ring.Remove(held));
            std::string bytes(text.size(), '?');
            EXPECT_TRUE(ring.Read(bytes.data(), bytes.size()));
            EXPECT_EQ(bytes, text) << start << " " << size;
        }
    }
}
