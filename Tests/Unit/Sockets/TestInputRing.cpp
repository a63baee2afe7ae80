#include "Sockets/InputRing.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string ReadFrom(InputRing& ring, std::size_t size)
{
    std::string bytes(size, '?');
    EXPECT_TRUE(ring.Read(bytes.data(), size));
    return bytes;
}

} // namespace

// Every place at which a run of bytes can meet the end of the storage.
TEST(InputRing, KeepsBytesInOrderAcrossTheEndOfTheStorage)
{
    for (std::size_t start = 0; start < 8; ++start) {
        for (std::size_t size = 1; size <= 8; ++size) {
            InputRing ring(8);
            const std::string before(start, 'b');
            const std::string text = std::string("12345678").substr(0, size);
            // One byte stays, so that the ring does not start again at its beginning.
            ASSERT_TRUE(ring.Write(before.data(), start));
            ASSERT_TRUE(ring.Remove(start > 0 ? start - 1 : 0));
            const std::size_t held = start > 0 ? 1 : 0;
            const bool fits = size <= 8 - held;
            ASSERT_EQ(ring.Write(text.data(), size), fits) << start << " " << size;
            ASSERT_EQ(ring.GetLength(), held + (fits ? size : 0));
            ASSERT_TRUE(ring.Remove(held));
            EXPECT_EQ(ReadFrom(ring, ring.GetLength()), fits ? text : "") << start << " " << size;
        }
    }
}

TEST(InputRing, RefusesToReadMoreThanItHolds)
{
    InputRing ring(8);
    ASSERT_TRUE(ring.Write("abc", 3));
    EXPECT_FALSE(ring.Remove(4));
    EXPECT_EQ(ReadFrom(ring, 3), "abc");
}
