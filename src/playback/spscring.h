#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

// A lock-free ring between exactly one producer thread and one consumer thread, for
// trivially copyable items (float samples, small messages). The storage is allocated once
// by the constructor; push() and pop() never allocate, lock or wait, so the consumer may
// be the audio callback.
//
// The counters run freely (64 bits never wrap in practice) and count every item ever
// pushed or popped; that lets the producer tag positions in the stream ("from item N on,
// ...") and the consumer recognise them.
template <typename T> class SpscRing {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    // `minCapacity` is rounded up to a power of two.
    explicit SpscRing(size_t minCapacity)
    {
        size_t capacity = 1;
        while (capacity < minCapacity)
            capacity <<= 1;
        m_items.resize(capacity);
        m_mask = capacity - 1;
    }
    SpscRing(const SpscRing &) = delete;
    SpscRing &operator=(const SpscRing &) = delete;

    [[nodiscard]] size_t capacity() const { return m_items.size(); }

    // Producer side.
    [[nodiscard]] size_t writable() const
    {
        return capacity() - size_t(m_written.load(std::memory_order_relaxed) - m_read.load(std::memory_order_seq_cst));
    }
    [[nodiscard]] uint64_t totalWritten() const { return m_written.load(std::memory_order_relaxed); }
    // Copies up to `count` items in and returns how many fitted.
    size_t push(const T *items, size_t count)
    {
        const uint64_t w = m_written.load(std::memory_order_relaxed);
        count = std::min(count, writable());
        copyIn(size_t(w & m_mask), items, count);
        m_written.store(w + count, std::memory_order_release);
        return count;
    }
    bool push(const T &item) { return push(&item, 1) == 1; }

    // Consumer side.
    [[nodiscard]] size_t readable() const
    {
        return size_t(m_written.load(std::memory_order_acquire) - m_read.load(std::memory_order_relaxed));
    }
    [[nodiscard]] uint64_t totalRead() const { return m_read.load(std::memory_order_relaxed); }
    // The item `offset` places ahead of the read position; readable() must exceed `offset`.
    [[nodiscard]] const T &peek(size_t offset = 0) const
    {
        return m_items[size_t((m_read.load(std::memory_order_relaxed) + offset) & m_mask)];
    }
    // Copies up to `count` items out (or drops them when `items` is null) and returns how many.
    size_t pop(T *items, size_t count)
    {
        const uint64_t r = m_read.load(std::memory_order_relaxed);
        count = std::min(count, readable());
        if (items)
            copyOut(size_t(r & m_mask), items, count);
        // seq_cst pairs with the producer's check of writable() before it goes to sleep.
        m_read.store(r + count, std::memory_order_seq_cst);
        return count;
    }
    size_t drop(size_t count) { return pop(nullptr, count); }

private:
    void copyIn(size_t at, const T *items, size_t count)
    {
        const size_t first = std::min(count, capacity() - at);
        std::memcpy(m_items.data() + at, items, first * sizeof(T));
        std::memcpy(m_items.data(), items + first, (count - first) * sizeof(T));
    }
    void copyOut(size_t at, T *items, size_t count) const
    {
        const size_t first = std::min(count, capacity() - at);
        std::memcpy(items, m_items.data() + at, first * sizeof(T));
        std::memcpy(items + first, m_items.data(), (count - first) * sizeof(T));
    }

    std::vector<T> m_items;
    size_t m_mask = 0;
    // On separate cache lines: each is written by one side and read by the other.
    alignas(64) std::atomic<uint64_t> m_written { 0 };
    alignas(64) std::atomic<uint64_t> m_read { 0 };
};
