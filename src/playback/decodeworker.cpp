#include "playback/decodeworker.h"

#include "playback/audiodecoder.h"

// The worker sleeps until the render thread has made this much room: a full chunk at least,
// and enough that it does not wake for every few blocks.
static constexpr size_t kRefillFrames = DeckFeed::kFrames / 4;

DecodeWorker::DecodeWorker(DeckFeed &feed)
    : m_feed(feed)
    , m_scratch(size_t(2 * kChunkFrames))
{
    m_thread = std::thread([this] { run(); });
}

DecodeWorker::~DecodeWorker()
{
    interruptSource();
    m_quit = true;
    wake();
    m_thread.join();
}

void DecodeWorker::interruptSource()
{
    // Only the owner thread replaces m_decoder, so reading the pointer here without the
    // lock races with nothing; interrupt() itself is safe from any thread.
    if (m_decoder)
        m_decoder->interrupt();
}

void DecodeWorker::setSource(std::unique_ptr<AudioDecoder> decoder, uint32_t generation, int64_t fileFrame)
{
    // A network source may hold m_mutex in a read that waits for data: it is cut short
    // first, so the owner waits at most for FFmpeg's next look at its interrupt flag.
    interruptSource();
    {
        std::lock_guard lock(m_mutex);
        m_decoder.swap(decoder);
        m_generation = generation;
        m_startFrame = fileFrame;
        m_markPending = m_decoder != nullptr;
        m_newSource = true;
        m_atEnd = m_decoder == nullptr;
        m_error.clear();
        m_knownLength = m_decoder ? m_decoder->length() : -1;
        m_canFill = m_decoder != nullptr;
    }
    wake();
    // The old decoder closes here, on the owner thread, outside the lock.
}

bool DecodeWorker::seek(int64_t fileFrame, uint32_t generation)
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_decoder || !m_decoder->seek(fileFrame))
            return false;
        m_generation = generation;
        m_startFrame = fileFrame;
        m_markPending = true;
        m_newSource = false;
        m_atEnd = false;
        m_error.clear();
        m_canFill = true;
    }
    wake();
    return true;
}

QString DecodeWorker::error() const
{
    std::lock_guard lock(m_mutex);
    return m_error;
}

void DecodeWorker::wake()
{
    m_wakeups.fetch_add(1);
    m_wakeups.notify_one();
}

void DecodeWorker::consumed()
{
    // A worker asleep at the end of its file stays asleep: only a command has work for it.
    if (m_sleeping.load() && m_canFill.load(std::memory_order_relaxed) && m_feed.frames.writable() >= 2 * kRefillFrames
        && m_sleeping.exchange(false))
        wake();
}

bool DecodeWorker::step()
{
    std::lock_guard lock(m_mutex);
    if (!m_decoder || m_feed.markers.writable() == 0)
        return false;
    const uint64_t here = m_feed.frames.totalWritten() / 2;
    if (m_markPending) {
        m_feed.markers.push(FeedMarker { FeedMarker::Kind::start, m_newSource, m_generation, here, m_startFrame });
        m_markPending = false;
        return true;
    }
    if (m_atEnd || m_feed.frames.writable() < m_scratch.size())
        return false;
    const qint64 read = m_decoder->read(m_scratch.data(), kChunkFrames);
    if (read > 0) {
        m_feed.frames.push(m_scratch.data(), size_t(2 * read));
        return true;
    }
    FeedMarker::Kind kind = FeedMarker::Kind::end;
    if (read < 0) {
        kind = FeedMarker::Kind::failed;
        m_error = m_decoder->lastError();
    } else if (m_decoder->length() >= 0 && m_decoder->position() < m_decoder->length() - m_decoder->outputRate() / 2) {
        // The decoder found the end well before the length the file announced: it was cut
        // short under us, and its last seconds are not there to play. (A few frames short
        // is a header that rounds differently, not worth a failure after a whole track.)
        kind = FeedMarker::Kind::failed;
        m_error = QStringLiteral("The file ended early (%1 of %2 frames)")
                      .arg(m_decoder->position())
                      .arg(m_decoder->length());
    } else {
        m_knownLength = m_decoder->position();
    }
    m_feed.markers.push(FeedMarker { kind, false, m_generation, here, 0 });
    m_atEnd = true;
    m_canFill = false;
    return true;
}

void DecodeWorker::run()
{
    while (!m_quit.load()) {
        const uint32_t seen = m_wakeups.load();
        if (step())
            continue;
        m_sleeping.store(true);
        // Re-check after announcing the sleep: the render thread may have made room just
        // before it looked at m_sleeping.
        if (m_canFill.load() && m_feed.frames.writable() >= 2 * kRefillFrames && m_feed.markers.writable() > 0) {
            m_sleeping.store(false);
            continue;
        }
        m_wakeups.wait(seen);
        m_sleeping.store(false);
    }
}
