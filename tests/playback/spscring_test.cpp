#include "playback/spscring.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(SpscRing, WrapsAroundAndRefusesWhatDoesNotFit)
{
    SpscRing<int> ring(5); // rounded up to 8
    ASSERT_EQ(ring.capacity(), 8u);
    const std::vector<int> in { 1, 2, 3, 4, 5, 6 };
    EXPECT_EQ(ring.push(in.data(), 6), 6u);
    std::vector<int> out(4);
    EXPECT_EQ(ring.pop(out.data(), 4), 4u);
    EXPECT_EQ(out, (std::vector<int> { 1, 2, 3, 4 }));
    // Six free places, of which four are only reachable across the end of the storage.
    const std::vector<int> more { 7, 8, 9, 10, 11, 12, 13 };
    EXPECT_EQ(ring.push(more.data(), 7), 6u);
    EXPECT_EQ(ring.writable(), 0u);
    EXPECT_EQ(ring.peek(0), 5);
    EXPECT_EQ(ring.drop(1), 1u);
    out.assign(10, 0);
    EXPECT_EQ(ring.pop(out.data(), 10), 7u);
    EXPECT_EQ(std::vector<int>(out.begin(), out.begin() + 7), (std::vector<int> { 6, 7, 8, 9, 10, 11, 12 }));
    EXPECT_EQ(ring.totalWritten(), 12u);
    EXPECT_EQ(ring.totalRead(), 12u);
    EXPECT_EQ(ring.readable(), 0u);
}

TEST(SpscRing, TwoThreadsSeeEveryItemOnceInOrder)
{
    SpscRing<unsigned> ring(256);
    constexpr unsigned kItems = 2'000'000;
    std::thread producer([&] {
        std::vector<unsigned> chunk(97);
        unsigned next = 0;
        while (next < kItems) {
            const size_t n = std::min<size_t>(chunk.size(), kItems - next);
            for (size_t i = 0; i < n; ++i)
                chunk[i] = next + unsigned(i);
            size_t done = 0;
            while (done < n)
                done += ring.push(chunk.data() + done, n - done);
            next += unsigned(n);
        }
    });
    std::vector<unsigned> chunk(61);
    unsigned expected = 0;
    bool inOrder = true;
    while (expected < kItems) {
        const size_t n = ring.pop(chunk.data(), chunk.size());
        for (size_t i = 0; i < n; ++i)
            inOrder = inOrder && chunk[i] == expected++;
    }
    producer.join();
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(ring.readable(), 0u);
}
