#pragma once

#include <QByteArray>
#include <QDebug>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

// A broken invariant in a fuzz target: print what was expected and abort, so libFuzzer
// keeps the input as a crash file. Checks stay on in every build type.
#define FUZZ_CHECK(condition)                                                                                     \
    do {                                                                                                          \
        if (!(condition)) {                                                                                       \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                  \
            std::abort();                                                                                         \
        }                                                                                                         \
    } while (false)

// Like FUZZ_CHECK for two values Qt can print, which are shown when they differ.
#define FUZZ_CHECK_EQ(actual, expected)                                                                           \
    do {                                                                                                          \
        if (!((actual) == (expected))) {                                                                          \
            std::fprintf(stderr, "%s:%d: check failed: %s == %s\n", __FILE__, __LINE__, #actual, #expected);     \
            qWarning().noquote() << "  actual:  " << (actual);                                                    \
            qWarning().noquote() << "  expected:" << (expected);                                                  \
            std::abort();                                                                                         \
        }                                                                                                         \
    } while (false)

template <typename T>
QDebug operator<<(QDebug debug, const std::optional<T> &value)
{
    if (!value)
        return debug << "(absent)";
    return debug << *value;
}

namespace FuzzInput {

// The fuzzer's bytes as a QByteArray without copying; valid for the call.
inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A small deterministic generator for choices a target makes from a seed in the input
// (chunk sizes), so every run of one input makes the same choices.
class SplitMix {
public:
    explicit SplitMix(quint64 seed) : m_state(seed) { }
    quint64 next()
    {
        quint64 z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    quint64 below(quint64 bound) { return bound == 0 ? 0 : next() % bound; }

private:
    quint64 m_state;
};

} // namespace FuzzInput
