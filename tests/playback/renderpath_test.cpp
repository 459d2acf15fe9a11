#include "decodedaudio.h"
#include "signal.h"

#include "playback/audioengine.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <pthread.h>

// Proof that the render path neither allocates nor locks: this test binary replaces the
// global operator new/delete and, beneath them, the C allocator (rubberband and FFmpeg
// allocate with malloc and posix_memalign), and interposes pthread's mutex locking (under
// std::mutex and std::condition_variable); it counts every call made on a thread while
// t_counting is set, that is, inside AudioEngine::renderOffline().
//
// Every other test of the binary runs through these replacements too; outside a counted
// render they only forward.

namespace {
thread_local bool t_counting = false;
std::atomic<int> g_allocations { 0 }, g_frees { 0 }, g_locks { 0 };
int count(std::atomic<int> &counter)
{
    if (t_counting)
        ++counter;
    return 0;
}
} // namespace

// glibc's own entry points: the allocator's under their __libc_ names, the locks under
// the names glibc keeps behind a symbol version. Forwarding to them needs no dlsym(),
// which could itself lock or allocate.
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);
int __pthread_mutex_lock(pthread_mutex_t *);
int __pthread_mutex_trylock(pthread_mutex_t *);
}
__asm__(".symver __pthread_mutex_lock,__pthread_mutex_lock@GLIBC_2.2.5");
__asm__(".symver __pthread_mutex_trylock,__pthread_mutex_trylock@GLIBC_2.2.5");

extern "C" {
// clang-format off
void *malloc(size_t n) { count(g_allocations); return __libc_malloc(n); }
void *calloc(size_t k, size_t n) { count(g_allocations); return __libc_calloc(k, n); }
void *realloc(void *p, size_t n) { count(g_allocations); return __libc_realloc(p, n); }
void *aligned_alloc(size_t a, size_t n) { count(g_allocations); return __libc_memalign(a, n); }
int posix_memalign(void **p, size_t a, size_t n) { count(g_allocations); *p = __libc_memalign(a, n); return *p ? 0 : ENOMEM; }
void free(void *p) { if (p) count(g_frees); __libc_free(p); }
int pthread_mutex_lock(pthread_mutex_t *m) { count(g_locks); return __pthread_mutex_lock(m); }
int pthread_mutex_trylock(pthread_mutex_t *m) { count(g_locks); return __pthread_mutex_trylock(m); }
}
void *operator new(size_t n) { if (void *p = malloc(n ? n : 1)) return p; throw std::bad_alloc(); }
void *operator new[](size_t n) { return operator new(n); }
void operator delete(void *p) noexcept { free(p); }
void operator delete[](void *p) noexcept { free(p); }
void operator delete(void *p, size_t) noexcept { free(p); }
void operator delete[](void *p, size_t) noexcept { free(p); }
// clang-format on

TEST(RenderPath, TwoDecksWithEqualiserFaderStretchAndSeekNeitherAllocateNorLock)
{
    QTemporaryDir dir;
    const QString a = dir.filePath(QStringLiteral("a.mp3"));
    const QString b = dir.filePath(QStringLiteral("b.mp3"));
    ASSERT_TRUE(DecodedAudio::makeSweep(a, 20, 44100, 2, { "-c:a", "libmp3lame" }));
    ASSERT_TRUE(DecodedAudio::makeSweep(b, 20, 44100, 2, { "-c:a", "libmp3lame", "-b:a", "96k" }));
    AudioEngine engine({ AudioEngine::Output::offline, 44100, 512 });
    QString error;
    ASSERT_TRUE(engine.load(0, a, 0, &error) && engine.load(1, b, 1, &error)) << error.toStdString();
    engine.setRate(1, 1.05);
    engine.play(0);
    engine.play(1, 3000);

    // The counters work: an allocation, a C allocation and a lock in the counted region
    // are all seen.
    static int *volatile probe = nullptr;
    static void *volatile cProbe = nullptr;
    std::mutex mutex;
    t_counting = true;
    probe = new int(1);
    delete probe;
    cProbe = std::malloc(16);
    std::free(cProbe);
    mutex.lock();
    mutex.unlock();
    t_counting = false;
    ASSERT_EQ(g_allocations.exchange(0), 2);
    ASSERT_EQ(g_frees.exchange(0), 2);
    ASSERT_EQ(g_locks.exchange(0), 1);

    std::vector<float> block(2 * 700);
    int loudBlocks = 0;
    for (int call = 0; call < 600; ++call) { // 9.5 s
        switch (call % 50) {
        case 5:
            engine.setBandGain(0, call % 11, -6.0f + float(call % 7));
            break;
        case 15:
            engine.setBandGain(1, AudioEngine::kBassSwapBand, call % 100 < 50 ? -24.0f : 0.0f);
            break;
        case 25:
            engine.setVolume(0, float(call % 9) / 8);
            break;
        case 35:
            engine.setRate(1, call % 100 < 50 ? 0.97 : 1.04);
            break;
        case 45:
            engine.setBandBypass(0, call % 11, call % 100 < 50);
            break;
        }
        if (call == 300) {
            ASSERT_TRUE(engine.seek(1, 2.0)); // the stretcher restarts on the render thread
        }
        if (call == 400)
            engine.setRate(0, 1.02); // deck 0 enters the stretcher mid-play
        t_counting = true;
        engine.renderOffline(block.data(), 700);
        t_counting = false;
        loudBlocks += Signal::rmsDb(block, 0, 700) > -40 ? 1 : 0;
    }
    EXPECT_EQ(g_allocations.load(), 0);
    EXPECT_EQ(g_frees.load(), 0);
    EXPECT_EQ(g_locks.load(), 0);
    // The decks did play, both of them, deck 1 stretched.
    EXPECT_GT(loudBlocks, 550);
    EXPECT_EQ(engine.state(0), AudioEngine::DeckState::playing);
    EXPECT_EQ(engine.state(1), AudioEngine::DeckState::playing);
    EXPECT_GT(*engine.position(1), 2.0 + 100 * 700 * 0.97 / 44100);
}
