// The decoder behind AudioDecoder::openStream(): FFmpeg reads the URL (HTTP from the live
// relay), its MP3 demuxer splits the stream into frames, and the decoded frames are turned
// into the engine's stereo float at its rate as they come. A stream has no length and
// nowhere to seek to, so none of the file decoder's frame bookkeeping is needed here.
//
// The relay makes MP3 of every station, so the format is not probed: probing waits for
// blocks of 2, 4, 8 ... KB to fill, which a real-time stream takes seconds to deliver.
//
// Every blocking FFmpeg call checks interruptCallback() at least every 100 ms (FFmpeg's
// network poll period): that is how interrupt() and the I/O time-out reach a read that
// waits for data, on whichever thread it runs.

#include "playback/audiodecoder.h"

#include "playback/framesamples.h"

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace {

using Clock = std::chrono::steady_clock;

// A glitch in a stream is skipped; this many damaged packets in a row is not audio.
constexpr int kMaxDamagedInARow = 64;
// How long, and how often, a server that answers "busy" (5XX) is asked again.
constexpr Clock::duration kBusyRetrySpan = std::chrono::seconds(3);
constexpr Clock::duration kBusyRetryPause = std::chrono::milliseconds(250);

QString avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

class StreamDecoder final : public AudioDecoder {
public:
    StreamDecoder(const QString &url, int outputRate, std::shared_ptr<std::atomic<bool>> abort, int timeoutMs)
        : m_url(url)
        , m_requestedRate(outputRate)
        , m_abort(std::move(abort))
        , m_timeout(std::chrono::milliseconds(std::max(1, timeoutMs)))
    {
    }
    ~StreamDecoder() override;
    StreamDecoder(const StreamDecoder &) = delete;
    StreamDecoder &operator=(const StreamDecoder &) = delete;

    bool open(QString *error);

    const Info &info() const override { return m_info; }
    int outputRate() const override { return m_outRate; }
    qint64 length() const override { return -1; }
    bool seek(qint64) override { return false; }
    qint64 read(float *out, qint64 frames) override;
    qint64 position() const override { return m_pos; }
    QString lastError() const override { return m_error; }
    void interrupt() override { m_abort->store(true, std::memory_order_relaxed); }

private:
    static int interruptCallback(void *opaque);
    // One attempt at the connection and the stream's head; FFmpeg's result code.
    int connect();
    // Decodes until there are frames in m_pending; false at the end of the stream or on
    // failure (m_failed tells which).
    bool produce();
    bool convert(const AVFrame *frame);
    bool damaged(int code);
    bool fail(const QString &why);
    // Why an FFmpeg call failed with `code`: interrupted, timed out, or what FFmpeg says.
    [[nodiscard]] QString failure(int code) const;

    const QString m_url;
    const int m_requestedRate;
    const std::shared_ptr<std::atomic<bool>> m_abort;
    const Clock::duration m_timeout;
    // Reading thread: when the present wait for data began, and whether it lasted too long.
    Clock::time_point m_waitingSince = Clock::now();
    bool m_timedOut = false;

    Info m_info;
    int m_outRate = 0;
    AVFormatContext *m_fmt = nullptr;
    AVCodecContext *m_codec = nullptr;
    AVPacket *m_packet = nullptr;
    AVFrame *m_frame = nullptr;
    int m_stream = -1;
    SwrContext *m_resampler = nullptr; // stereo float at m_resamplerRate -> the output rate
    int m_resamplerRate = 0;
    std::vector<float> m_stage; // one decoded frame as stereo float at its own rate
    std::vector<float> m_pending; // output frames ready for read()
    size_t m_pendingAt = 0; // frames of m_pending already read
    qint64 m_pos = 0;
    int m_damagedInARow = 0;
    bool m_draining = false; // the demuxer reached the end; the codec gives what it holds
    bool m_ended = false;
    bool m_failed = false;
    QString m_error;
};

StreamDecoder::~StreamDecoder()
{
    swr_free(&m_resampler);
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    avcodec_free_context(&m_codec);
    avformat_close_input(&m_fmt);
}

int StreamDecoder::interruptCallback(void *opaque)
{
    auto *self = static_cast<StreamDecoder *>(opaque);
    if (self->m_abort->load(std::memory_order_relaxed))
        return 1;
    if (Clock::now() - self->m_waitingSince > self->m_timeout) {
        self->m_timedOut = true;
        return 1;
    }
    return 0;
}

QString StreamDecoder::failure(int code) const
{
    if (m_abort->load(std::memory_order_relaxed))
        return QStringLiteral("interrupted");
    if (m_timedOut)
        return QStringLiteral("no data for %1 s").arg(std::chrono::duration<double>(m_timeout).count());
    return avError(code);
}

bool StreamDecoder::fail(const QString &why)
{
    m_failed = true;
    m_error = why;
    return false;
}

int StreamDecoder::connect()
{
    m_fmt = avformat_alloc_context();
    if (!m_fmt)
        return AVERROR(ENOMEM);
    m_fmt->interrupt_callback = AVIOInterruptCB { &StreamDecoder::interruptCallback, this };
    AVDictionary *options = nullptr;
    // A station's address is never a local file or a playlist of other addresses.
    av_dict_set(&options, "protocol_whitelist", "http,https,tcp,tls", 0);
    // A live stream has no other place to go: no range requests.
    av_dict_set(&options, "seekable", "0", 0);
    const int rc = avformat_open_input(&m_fmt, m_url.toUtf8().constData(), av_find_input_format("mp3"), &options);
    av_dict_free(&options);
    return rc;
}

bool StreamDecoder::open(QString *error)
{
    m_waitingSince = Clock::now();
    m_packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    if (!m_packet || !m_frame) {
        *error = QStringLiteral("cannot open %1: out of memory").arg(m_url);
        return false;
    }
    int rc = connect();
    // The relay serves one listener at a time, and may not have noticed yet that the one
    // before (this player, before a pause) has gone: it answers 503 for a moment.
    const Clock::time_point busyUntil = Clock::now() + std::min<Clock::duration>(m_timeout, kBusyRetrySpan);
    while (rc == AVERROR_HTTP_SERVER_ERROR && Clock::now() + kBusyRetryPause < busyUntil) {
        for (const Clock::time_point resume = Clock::now() + kBusyRetryPause; Clock::now() < resume;) {
            if (m_abort->load(std::memory_order_relaxed)) {
                *error = QStringLiteral("cannot open %1: interrupted").arg(m_url);
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        m_waitingSince = Clock::now();
        rc = connect();
    }
    if (rc < 0) {
        *error = QStringLiteral("cannot open %1: %2").arg(m_url, failure(rc));
        return false;
    }
    // Not av_find_best_stream(): it passes over streams whose rate is not known yet, and
    // the MP3 demuxer leaves that to the decoder.
    for (unsigned i = 0; i < m_fmt->nb_streams && m_stream < 0; ++i) {
        if (m_fmt->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
            m_stream = int(i);
    }
    if (m_stream < 0) {
        *error = QStringLiteral("%1 holds no audio").arg(m_url);
        return false;
    }
    for (unsigned i = 0; i < m_fmt->nb_streams; ++i)
        m_fmt->streams[i]->discard = int(i) == m_stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    const AVStream *st = m_fmt->streams[m_stream];
    const AVCodec *codec = avcodec_find_decoder(st->codecpar->codec_id);
    m_codec = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!m_codec) {
        *error = QStringLiteral("no decoder for %1").arg(m_url);
        return false;
    }
    avcodec_parameters_to_context(m_codec, st->codecpar);
    m_codec->pkt_timebase = st->time_base;
    if ((rc = avcodec_open2(m_codec, codec, nullptr)) < 0) {
        *error = QStringLiteral("cannot decode %1: %2").arg(m_url, avError(rc));
        return false;
    }
    m_info.codec = QString::fromLatin1(avcodec_get_name(st->codecpar->codec_id));
    m_info.container = QString::fromLatin1(m_fmt->iformat->name);
    // The first frame gives the true rate and channels, and a stream that is no audio
    // fails here, on the opening thread, rather than later on a deck.
    if (!produce()) {
        *error = m_failed ? m_error : QStringLiteral("%1 ended before any audio").arg(m_url);
        return false;
    }
    return true;
}

qint64 StreamDecoder::read(float *out, qint64 frames)
{
    // The time-out counts from here: while the deck's feed was full nobody was reading.
    m_waitingSince = Clock::now();
    qint64 done = 0;
    while (done < frames) {
        const qint64 available = qint64(m_pending.size() / 2 - m_pendingAt);
        if (available == 0) {
            m_pending.clear();
            m_pendingAt = 0;
            if (m_ended || m_failed || !produce())
                break;
            continue;
        }
        const qint64 n = std::min(available, frames - done);
        std::copy_n(m_pending.data() + 2 * m_pendingAt, 2 * n, out + 2 * done);
        m_pendingAt += size_t(n);
        done += n;
    }
    m_pos += done;
    return done == 0 && m_failed ? -1 : done;
}

bool StreamDecoder::produce()
{
    while (m_pending.size() / 2 <= m_pendingAt) {
        const int rc = avcodec_receive_frame(m_codec, m_frame);
        if (rc >= 0) {
            m_damagedInARow = 0;
            const bool converted = convert(m_frame);
            av_frame_unref(m_frame);
            if (!converted)
                return false;
            continue;
        }
        if (rc == AVERROR_EOF) {
            m_ended = true;
            return false;
        }
        if (rc != AVERROR(EAGAIN)) {
            if (!damaged(rc))
                return false;
            continue;
        }
        if (m_draining) {
            m_ended = true;
            return false;
        }
        const int got = av_read_frame(m_fmt, m_packet);
        // FFmpeg's HTTP client reports the close of a body without a length (all a live
        // stream has) as an I/O error, "stream ends prematurely": either way it ended.
        if (got == AVERROR_EOF || (got == AVERROR(EIO) && !m_abort->load() && !m_timedOut)) {
            m_draining = true;
            avcodec_send_packet(m_codec, nullptr);
            continue;
        }
        if (got < 0)
            return fail(QStringLiteral("cannot read %1: %2").arg(m_url, failure(got)));
        m_waitingSince = Clock::now();
        if (m_packet->stream_index != m_stream) {
            av_packet_unref(m_packet);
            continue;
        }
        const int sent = avcodec_send_packet(m_codec, m_packet);
        av_packet_unref(m_packet);
        if (sent == AVERROR(ENOMEM))
            return fail(QStringLiteral("cannot decode %1: %2").arg(m_url, avError(sent)));
        if (sent < 0 && !damaged(sent))
            return false;
    }
    return true;
}

bool StreamDecoder::damaged(int code)
{
    if (++m_damagedInARow > kMaxDamagedInARow)
        return fail(QStringLiteral("cannot decode %1: %2").arg(m_url, avError(code)));
    return true;
}

bool StreamDecoder::convert(const AVFrame *frame)
{
    const int n = frame->nb_samples;
    const int channels = frame->ch_layout.nb_channels;
    const int rate = frame->sample_rate > 0 ? frame->sample_rate : m_codec->sample_rate;
    if (n <= 0)
        return true;
    if (channels < 1 || channels > 2 || rate <= 0)
        return fail(QStringLiteral("%1 has %2 channels at %3 Hz: live play takes mono or stereo")
                        .arg(m_url)
                        .arg(channels)
                        .arg(rate));
    if (m_info.fileRate == 0) {
        m_info.fileRate = rate;
        m_info.fileChannels = channels;
        m_outRate = m_requestedRate > 0 ? m_requestedRate : rate;
    }
    m_stage.resize(size_t(2 * n));
    if (!FrameSamples::toStereo(frame, m_stage.data()))
        return fail(QStringLiteral("cannot decode %1: unknown sample format").arg(m_url));
    if (rate == m_outRate) {
        m_pending.insert(m_pending.end(), m_stage.begin(), m_stage.end());
        return true;
    }
    if (!m_resampler || m_resamplerRate != rate) {
        // A station that changes its rate mid-stream gets a new resampler (and a click).
        swr_free(&m_resampler);
        AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        if (swr_alloc_set_opts2(
                &m_resampler, &stereo, AV_SAMPLE_FMT_FLT, m_outRate, &stereo, AV_SAMPLE_FMT_FLT, rate, 0, nullptr)
                < 0
            || swr_init(m_resampler) < 0)
            return fail(QStringLiteral("cannot resample %1 to %2 Hz").arg(m_url).arg(m_outRate));
        m_resamplerRate = rate;
    }
    const int room = swr_get_out_samples(m_resampler, n);
    const size_t at = m_pending.size();
    m_pending.resize(at + size_t(2 * std::max(room, 0)));
    uint8_t *outPlanes[] = { reinterpret_cast<uint8_t *>(m_pending.data() + at) };
    const uint8_t *inPlanes[] = { reinterpret_cast<const uint8_t *>(m_stage.data()) };
    const int got = swr_convert(m_resampler, outPlanes, room, inPlanes, n);
    m_pending.resize(at + size_t(2 * std::max(got, 0)));
    return true;
}

} // namespace

std::unique_ptr<AudioDecoder> AudioDecoder::openStream(
    const QString &url, int outputRate, std::shared_ptr<std::atomic<bool>> abort, int timeoutMs, QString *error)
{
    static std::once_flag once;
    std::call_once(once, [] {
        // Failures reach the user through our own errors, not FFmpeg's console chatter.
        av_log_set_level(AV_LOG_FATAL);
        avformat_network_init();
    });
    QString ignored;
    QString &why = error ? *error : ignored;
    if (!abort)
        abort = std::make_shared<std::atomic<bool>>(false);
    auto decoder = std::make_unique<StreamDecoder>(url, outputRate, std::move(abort), timeoutMs);
    if (!decoder->open(&why))
        return nullptr;
    return decoder;
}
