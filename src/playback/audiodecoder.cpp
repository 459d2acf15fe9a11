#include "playback/audiodecoder.h"

#include "playback/framesamples.h"
#include "playback/mpegheaders.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numeric>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

// Frames decoded and thrown away before a seek target so that a lossy codec's state (MDCT
// overlap, the MP3 bit reservoir, SBR) is what a decode from the start would have there.
constexpr qint64 kLossyPrerollFrames = 8192;
constexpr int kMp3PrerollPackets = 10;
// Frames the resampler is started ahead of a seek target, so its filter has settled.
constexpr qint64 kResamplerLeadFrames = 512;
// A few damaged frames (a glitch in a recorded stream) play as silence; this many in a row
// is a file that cannot be read any more.
constexpr int kMaxDamagedInARow = 64;
constexpr int kMaxSilencedSeconds = 10;

QString avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

bool isMovFamily(const AVInputFormat *format)
{
    return format && QByteArray(format->name).startsWith("mov,");
}

// Containers whose stream duration is the decoded frame count exactly.
bool durationIsExact(const AVInputFormat *format, AVCodecID codec)
{
    const QByteArray name = format ? QByteArray(format->name) : QByteArray();
    if (name == "wav" || name == "flac" || name == "aiff" || name == "w64")
        return true;
    return isMovFamily(format) && codec != AV_CODEC_ID_AAC;
}

bool isLossless(AVCodecID codec)
{
    const AVCodecDescriptor *d = avcodec_descriptor_get(codec);
    return d && (d->props & AV_CODEC_PROP_LOSSLESS) && !(d->props & AV_CODEC_PROP_LOSSY);
}

class FfmpegDecoder final : public AudioDecoder {
public:
    FfmpegDecoder(const QString &path, int outputRate)
        : m_path(path)
        , m_requestedRate(outputRate)
    {
    }
    ~FfmpegDecoder() override { closeAll(); }

    bool open(QString *error);

    const Info &info() const override { return m_info; }
    int outputRate() const override { return m_outRate; }
    qint64 length() const override { return m_length; }
    bool seek(qint64 frame) override;
    qint64 read(float *out, qint64 frames) override;
    qint64 position() const override { return m_pos; }
    QString lastError() const override { return m_error; }

private:
    bool openContainer(QString *error);
    bool openMp3(QString *error);
    bool openCodec(const AVCodecParameters *par, QString *error);
    bool setUpConversion(QString *error);
    void closeAll();
    bool restart();
    bool resetResampler();

    // Fills m_pending with more output; false at the end of the output or on failure
    // (m_failed tells which).
    bool produce();
    // One decoded frame (or a stretch of silence standing in for a damaged MP3 frame) at
    // the file rate, with the file-frame index of its first sample. False at the end of
    // the input.
    bool decodeFrame();
    bool sendNextPacket(bool *ended);
    void acceptFileFrames(qint64 index, const float *stereo, qint64 frames);
    void finishInput();
    void emitOutput(const float *stereo, qint64 frames);
    bool fail(const QString &what);
    // A frame the codec rejected: counted, and silence keeps the timeline (false once too
    // many came in a row).
    bool damagedFrame(int code);
    bool ensureMp3Walk();

    QString m_path;
    int m_requestedRate = 0;
    int m_outRate = 0;
    Info m_info;
    qint64 m_length = -1;

    AVFormatContext *m_fmt = nullptr;
    AVCodecContext *m_codec = nullptr;
    AVPacket *m_packet = nullptr;
    AVFrame *m_frame = nullptr;
    SwrContext *m_downmix = nullptr; // more than two channels -> stereo, at the file rate
    SwrContext *m_resampler = nullptr; // stereo at the file rate -> stereo at the output rate
    int m_stream = -1;
    AVRational m_timeBase { 1, 1 };
    qint64 m_origin = AV_NOPTS_VALUE; // timestamp, in file frames, of the first decoded frame
    qint64 m_lossyPreroll = 0;

    // MP3s are demuxed by our own frame walk: FFmpeg's MP3 seeking guesses positions, and a
    // frame-exact seek needs to know which frame starts where.
    bool m_ownMp3 = false;
    QFile m_mp3File;
    GaplessPlanner::Mp3Start m_mp3;
    GaplessPlanner::Mp3Trim m_mp3Trim;
    std::vector<qint64> m_mp3Offsets; // empty until walked
    qint64 m_mp3Frames = 0; // frames the length is made of
    qint64 m_nextPacket = 0;
    QByteArray m_packetBytes;

    // File-rate bookkeeping (file frames, counted from the first frame a full decode delivers).
    qint64 m_fileNext = 0; // index of the next file frame the decoder will give
    qint64 m_fileDropBelow = 0; // frames before this (a seek target) are thrown away
    qint64 m_fileAccepted = 0; // index one past the last file frame passed on
    bool m_syncFromPts = false; // the next frame's place comes from its timestamp (after a seek)
    bool m_resync = false; // frames were lost: the next frame's timestamp places it
    int m_damagedInARow = 0;
    bool m_restartedOnce = false; // a seek fell back to decoding from the start (once per seek)
    bool m_inputDone = false;
    bool m_flushed = false;
    bool m_failed = false;
    std::vector<float> m_stage; // one decoded frame as stereo float at the file rate
    std::vector<float> m_resampled; // the same at the output rate

    // Output-rate side.
    std::vector<float> m_pending; // stereo frames ready for read()
    size_t m_pendingAt = 0; // frames of m_pending already read
    qint64 m_outDrop = 0; // output frames still to drop after a resampled seek
    qint64 m_pos = 0;
    qint64 m_outProduced = 0; // output index one past the last frame put into m_pending or dropped
    QString m_error;
};

bool FfmpegDecoder::open(QString *error)
{
    return openContainer(error);
}

bool FfmpegDecoder::openContainer(QString *error)
{
    int rc = avformat_open_input(&m_fmt, QFile::encodeName(m_path).constData(), nullptr, nullptr);
    if (rc < 0) {
        *error = QStringLiteral("cannot open %1: %2").arg(m_path, avError(rc));
        return false;
    }
    m_stream = av_find_best_stream(m_fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    AVStream *st = m_stream >= 0 ? m_fmt->streams[m_stream] : nullptr;
    // Most containers describe the stream in their header; probing packets costs time.
    if (!st || st->codecpar->sample_rate <= 0 || st->codecpar->ch_layout.nb_channels <= 0
        || st->codecpar->codec_id == AV_CODEC_ID_NONE) {
        if ((rc = avformat_find_stream_info(m_fmt, nullptr)) < 0) {
            *error = QStringLiteral("cannot read %1: %2").arg(m_path, avError(rc));
            return false;
        }
        m_stream = av_find_best_stream(m_fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        st = m_stream >= 0 ? m_fmt->streams[m_stream] : nullptr;
    }
    if (!st || st->codecpar->sample_rate <= 0) {
        *error = QStringLiteral("%1 holds no audio").arg(m_path);
        return false;
    }
    for (unsigned i = 0; i < m_fmt->nb_streams; ++i)
        m_fmt->streams[i]->discard = int(i) == m_stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    m_timeBase = st->time_base;
    m_info.fileRate = st->codecpar->sample_rate;
    m_info.fileChannels = st->codecpar->ch_layout.nb_channels;
    m_info.codec = QString::fromLatin1(avcodec_get_name(st->codecpar->codec_id));
    m_info.container = QString::fromLatin1(m_fmt->iformat->name);
    m_outRate = m_requestedRate > 0 ? m_requestedRate : m_info.fileRate;
    m_lossyPreroll = isLossless(st->codecpar->codec_id) ? 0 : kLossyPrerollFrames;

    if (st->codecpar->codec_id == AV_CODEC_ID_MP3 && QByteArray(m_fmt->iformat->name) == "mp3") {
        if (openMp3(error))
            return setUpConversion(error);
        if (!error->isEmpty())
            return false;
        // Not a stream of Layer III frames we can walk: FFmpeg's demuxer takes it.
    }

    if (!openCodec(st->codecpar, error) || !setUpConversion(error))
        return false;
    // The first frame fixes the timestamp origin that seeks are measured from.
    if (!produce() && m_failed) {
        *error = m_error;
        return false;
    }
    if (durationIsExact(m_fmt->iformat, st->codecpar->codec_id) && st->duration > 0) {
        m_info.fileLength = av_rescale_q(st->duration, m_timeBase, AVRational { 1, m_info.fileRate });
    } else if (isMovFamily(m_fmt->iformat) && st->codecpar->codec_id == AV_CODEC_ID_AAC && m_codec->frame_size > 0
        && m_origin != AV_NOPTS_VALUE) {
        // FFmpeg drops the priming named by the edit list but decodes every packet whole,
        // the last one's padding included: the length ends one codec frame after the last
        // packet's timestamp.
        const int entries = avformat_index_get_entries_count(st);
        if (entries > 0) {
            const AVIndexEntry *last = avformat_index_get_entry(st, entries - 1);
            m_info.fileLength = av_rescale_q(last->timestamp, m_timeBase, AVRational { 1, m_info.fileRate })
                + m_codec->frame_size - m_origin;
        }
    }
    if (m_info.fileLength >= 0)
        m_length = av_rescale_rnd(m_info.fileLength, m_outRate, m_info.fileRate, AV_ROUND_NEAR_INF);
    return true;
}

bool FfmpegDecoder::openMp3(QString *error)
{
    m_mp3File.setFileName(m_path);
    if (!m_mp3File.open(QIODevice::ReadOnly))
        return false;
    const auto start = GaplessPlanner::mp3Info(m_mp3File);
    if (!start || start->header.layer != 3) {
        m_mp3File.close();
        return false;
    }
    m_mp3 = *start;
    if (m_mp3.xing && m_mp3.xing->frames) {
        m_mp3Frames = *m_mp3.xing->frames;
    } else if (m_mp3.vbriFrames) {
        m_mp3Frames = *m_mp3.vbriFrames;
    } else {
        if (!ensureMp3Walk()) {
            m_mp3File.close();
            return false;
        }
        m_mp3Frames = qint64(m_mp3Offsets.size()) - 1;
    }
    m_mp3Trim = GaplessPlanner::mp3Trim(m_mp3, m_mp3Frames);
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_MP3);
    m_codec = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!m_codec)
        return false;
    m_codec->sample_rate = m_mp3.header.sampleRate;
    av_channel_layout_default(&m_codec->ch_layout, m_mp3.header.channels);
    const int rc = avcodec_open2(m_codec, codec, nullptr);
    if (rc < 0) {
        *error = QStringLiteral("cannot decode %1: %2").arg(m_path, avError(rc));
        return false;
    }
    m_packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    m_ownMp3 = true;
    avformat_close_input(&m_fmt);
    m_info.fileRate = m_mp3.header.sampleRate;
    m_info.fileChannels = m_mp3.header.channels;
    m_outRate = m_requestedRate > 0 ? m_requestedRate : m_info.fileRate;
    m_info.fileLength = m_mp3Trim.end - m_mp3Trim.start;
    m_length = av_rescale_rnd(m_info.fileLength, m_outRate, m_info.fileRate, AV_ROUND_NEAR_INF);
    m_lossyPreroll = 0;
    m_fileNext = -m_mp3Trim.start;
    return true;
}

bool FfmpegDecoder::ensureMp3Walk()
{
    if (!m_mp3Offsets.empty())
        return true;
    m_mp3Offsets = GaplessPlanner::walkFrames(m_mp3File, m_mp3);
    return m_mp3Offsets.size() > 1;
}

bool FfmpegDecoder::openCodec(const AVCodecParameters *par, QString *error)
{
    const AVCodec *codec = avcodec_find_decoder(par->codec_id);
    if (!codec) {
        *error = QStringLiteral("no decoder for %1").arg(m_path);
        return false;
    }
    m_codec = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(m_codec, par);
    // The decoder moves timestamps past the priming it drops only when it knows their unit.
    m_codec->pkt_timebase = m_timeBase;
    const int rc = avcodec_open2(m_codec, codec, nullptr);
    if (rc < 0) {
        *error = QStringLiteral("cannot decode %1: %2").arg(m_path, avError(rc));
        return false;
    }
    m_packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    return true;
}

bool FfmpegDecoder::setUpConversion(QString *error)
{
    if (m_outRate != m_info.fileRate && !resetResampler()) {
        *error = QStringLiteral("cannot resample %1 to %2 Hz").arg(m_path).arg(m_outRate);
        return false;
    }
    return true;
}

bool FfmpegDecoder::resetResampler()
{
    if (m_outRate == m_info.fileRate)
        return true;
    swr_free(&m_resampler);
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    if (swr_alloc_set_opts2(&m_resampler, &stereo, AV_SAMPLE_FMT_FLT, m_outRate, &stereo, AV_SAMPLE_FMT_FLT,
            m_info.fileRate, 0, nullptr)
        < 0)
        return false;
    return swr_init(m_resampler) >= 0;
}

void FfmpegDecoder::closeAll()
{
    swr_free(&m_downmix);
    swr_free(&m_resampler);
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    avcodec_free_context(&m_codec);
    avformat_close_input(&m_fmt);
}

bool FfmpegDecoder::fail(const QString &what)
{
    m_failed = true;
    m_error = what;
    return false;
}

// Back to the state right after opening: the only exact way to the first frames of codecs
// that drop priming at the start of the stream.
bool FfmpegDecoder::restart()
{
    m_fileNext = 0;
    m_fileAccepted = 0;
    m_resync = false;
    m_damagedInARow = 0;
    m_inputDone = false;
    m_flushed = false;
    m_syncFromPts = false;
    if (m_ownMp3) {
        avcodec_flush_buffers(m_codec);
        m_nextPacket = 0;
        m_fileNext = -m_mp3Trim.start;
        return true;
    }
    // A fresh decoder, not a flushed one: AAC's noise substitution runs a generator that
    // only a new decoder starts again where the first decode started it.
    avcodec_free_context(&m_codec);
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    QString error;
    if (!openCodec(m_fmt->streams[m_stream]->codecpar, &error))
        return fail(error);
    // Seeking to the very start makes the demuxers hand out their start-skip again.
    const int rc = avformat_seek_file(m_fmt, m_stream, INT64_MIN, INT64_MIN, INT64_MIN, 0);
    if (rc < 0 && avformat_seek_file(m_fmt, -1, INT64_MIN, INT64_MIN, INT64_MIN, AVSEEK_FLAG_BYTE) < 0)
        return fail(QStringLiteral("cannot rewind %1: %2").arg(m_path, avError(rc)));
    return true;
}

bool FfmpegDecoder::seek(qint64 frame)
{
    if (frame < 0 || (m_length >= 0 && frame > m_length) || m_failed)
        return false;
    // The file frame to decode from: the target itself, or for a resampled output a frame
    // a little earlier on which file and output frames coincide.
    qint64 fileTarget = frame;
    qint64 outStart = frame;
    if (m_outRate != m_info.fileRate) {
        const qint64 g = std::gcd(qint64(m_info.fileRate), qint64(m_outRate));
        const qint64 inStep = m_info.fileRate / g;
        const qint64 outStep = m_outRate / g;
        const qint64 exact = frame * m_info.fileRate / m_outRate;
        fileTarget = std::max<qint64>(0, (exact - kResamplerLeadFrames) / inStep) * inStep;
        outStart = fileTarget / inStep * outStep;
    }
    const qint64 savedPos = m_pos;
    m_pending.clear();
    m_pendingAt = 0;
    m_restartedOnce = false;
    m_error.clear();
    if (!resetResampler())
        return fail(QStringLiteral("cannot resample %1").arg(m_path));

    bool ok = true;
    if (m_ownMp3) {
        if (!ensureMp3Walk())
            return fail(QStringLiteral("%1 holds no MP3 frames").arg(m_path));
        const int spf = m_mp3.header.samplesPerFrame;
        const qint64 packet = (fileTarget + m_mp3Trim.start) / spf - kMp3PrerollPackets;
        ok = restart();
        if (ok && packet > 0) {
            m_nextPacket = packet;
            m_fileNext = packet * spf - m_mp3Trim.start;
        }
    } else if (fileTarget - m_lossyPreroll <= 0 || m_origin == AV_NOPTS_VALUE) {
        ok = restart();
    } else {
        const qint64 ts
            = av_rescale_q(fileTarget - m_lossyPreroll + m_origin, AVRational { 1, m_info.fileRate }, m_timeBase);
        avcodec_flush_buffers(m_codec);
        const int rc = avformat_seek_file(m_fmt, m_stream, INT64_MIN, ts, ts, 0);
        if (rc < 0) {
            ok = restart();
        } else {
            m_inputDone = false;
            m_flushed = false;
            m_syncFromPts = true;
            m_resync = false;
            m_damagedInARow = 0;
        }
    }
    if (!ok) {
        m_pos = savedPos;
        return false;
    }
    m_fileDropBelow = fileTarget;
    m_fileAccepted = fileTarget;
    m_outDrop = frame - outStart;
    m_pos = frame;
    m_outProduced = outStart;
    return true;
}

qint64 FfmpegDecoder::read(float *out, qint64 frames)
{
    if (m_failed)
        return -1;
    qint64 done = 0;
    while (done < frames) {
        if (m_length >= 0 && m_pos >= m_length)
            break;
        const qint64 available = qint64(m_pending.size() / 2 - m_pendingAt);
        if (available == 0) {
            m_pending.clear();
            m_pendingAt = 0;
            if (!produce()) {
                if (m_failed)
                    return -1;
                break;
            }
            continue;
        }
        qint64 n = std::min(available, frames - done);
        if (m_length >= 0)
            n = std::min(n, m_length - m_pos);
        std::copy_n(m_pending.data() + 2 * m_pendingAt, 2 * n, out + 2 * done);
        m_pendingAt += size_t(n);
        m_pos += n;
        done += n;
    }
    return done;
}

bool FfmpegDecoder::produce()
{
    while (m_pending.size() / 2 <= m_pendingAt) {
        if (m_flushed) {
            // The input is exhausted. A known length that the decode fell short of by more
            // than a codec frame means the file lost its end under us.
            if (m_length >= 0 && m_outProduced < m_length) {
                const qint64 missing = m_length - m_outProduced;
                const qint64 tolerance
                    = std::max<qint64>(4608, m_codec && m_codec->frame_size > 0 ? m_codec->frame_size : 0) * m_outRate
                        / m_info.fileRate
                    + 2;
                if (missing > tolerance && m_pos < m_length)
                    return fail(
                        QStringLiteral("%1 ends %2 frames early: truncated or damaged").arg(m_path).arg(missing));
                m_pending.assign(size_t(2 * missing), 0.0f);
                m_outProduced = m_length;
                return true;
            }
            return false;
        }
        if (!m_inputDone) {
            if (!decodeFrame()) {
                if (m_failed)
                    return false;
                m_inputDone = true;
            }
            continue;
        }
        finishInput();
    }
    return true;
}

void FfmpegDecoder::finishInput()
{
    if (m_resampler) {
        std::vector<float> tail(2 * 4096);
        while (true) {
            uint8_t *outPlanes[] = { reinterpret_cast<uint8_t *>(tail.data()) };
            const int got = swr_convert(m_resampler, outPlanes, 4096, nullptr, 0);
            if (got <= 0)
                break;
            emitOutput(tail.data(), got);
        }
    }
    m_flushed = true;
}

bool FfmpegDecoder::sendNextPacket(bool *ended)
{
    *ended = false;
    if (m_ownMp3) {
        if (!ensureMp3Walk())
            return fail(QStringLiteral("%1 holds no MP3 frames").arg(m_path));
        const qint64 walked = qint64(m_mp3Offsets.size()) - 1;
        if (m_nextPacket >= std::min(walked, m_mp3Frames)) {
            *ended = true;
            avcodec_send_packet(m_codec, nullptr);
            return true;
        }
        const qint64 at = m_mp3Offsets[size_t(m_nextPacket)];
        const qint64 size = m_mp3Offsets[size_t(m_nextPacket) + 1] - at;
        m_packetBytes.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
        m_packetBytes.fill('\0');
        if (!m_mp3File.seek(at) || m_mp3File.read(m_packetBytes.data(), size) != size)
            return fail(QStringLiteral("cannot read %1: the file was truncated or removed").arg(m_path));
        av_packet_unref(m_packet);
        m_packet->data = reinterpret_cast<uint8_t *>(m_packetBytes.data());
        m_packet->size = int(size);
        const int rc = avcodec_send_packet(m_codec, m_packet);
        av_packet_unref(m_packet);
        ++m_nextPacket;
        if (rc == AVERROR(ENOMEM))
            return fail(QStringLiteral("cannot decode %1: %2").arg(m_path, avError(rc)));
        return rc == 0 || damagedFrame(rc);
    }
    while (true) {
        const int rc = av_read_frame(m_fmt, m_packet);
        if (rc == AVERROR_EOF) {
            *ended = true;
            avcodec_send_packet(m_codec, nullptr);
            return true;
        }
        if (rc < 0)
            return fail(QStringLiteral("cannot read %1: %2").arg(m_path, avError(rc)));
        if (m_packet->stream_index != m_stream) {
            av_packet_unref(m_packet);
            continue;
        }
        const int sent = avcodec_send_packet(m_codec, m_packet);
        av_packet_unref(m_packet);
        // Decoders name damage in many ways (AAC's is often a bare -1); only running out
        // of memory is no damage.
        if (sent == AVERROR(ENOMEM))
            return fail(QStringLiteral("cannot decode %1: %2").arg(m_path, avError(sent)));
        return sent == 0 || damagedFrame(sent);
    }
}

bool FfmpegDecoder::decodeFrame()
{
    bool inputEnded = false;
    while (true) {
        bool got = false;
        const int rc = avcodec_receive_frame(m_codec, m_frame);
        if (rc >= 0) {
            got = true;
        } else if (rc == AVERROR_EOF) {
            return false;
        } else if (rc != AVERROR(EAGAIN)) {
            if (!damagedFrame(rc))
                return false;
            if (m_ownMp3)
                return true;
            continue;
        }
        if (got)
            break;
        if (inputEnded)
            return false;
        const qint64 acceptedBefore = m_fileAccepted;
        if (!sendNextPacket(&inputEnded))
            return false;
        if (m_fileAccepted != acceptedBefore)
            return true; // a damaged MP3 frame stood in by silence
    }
    m_damagedInARow = 0;
    const int n = m_frame->nb_samples;
    const int channels = m_frame->ch_layout.nb_channels;
    m_stage.resize(size_t(2 * n));
    if (channels <= 2) {
        if (!FrameSamples::toStereo(m_frame, m_stage.data()))
            return fail(QStringLiteral("cannot decode %1: unknown sample format").arg(m_path));
    } else {
        if (!m_downmix) {
            AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
            if (swr_alloc_set_opts2(&m_downmix, &stereo, AV_SAMPLE_FMT_FLT, m_frame->sample_rate, &m_frame->ch_layout,
                    AVSampleFormat(m_frame->format), m_frame->sample_rate, 0, nullptr)
                < 0)
                return fail(QStringLiteral("cannot mix %1 down to stereo").arg(m_path));
            // Float output would carry the sum of five channels past full scale.
            av_opt_set_double(m_downmix, "rematrix_maxval", 1.0, 0);
            if (swr_init(m_downmix) < 0)
                return fail(QStringLiteral("cannot mix %1 down to stereo").arg(m_path));
        }
        uint8_t *outPlanes[] = { reinterpret_cast<uint8_t *>(m_stage.data()) };
        const int got = swr_convert(m_downmix, outPlanes, n, const_cast<const uint8_t **>(m_frame->extended_data), n);
        if (got != n)
            return fail(QStringLiteral("cannot mix %1 down to stereo").arg(m_path));
    }

    if (m_origin == AV_NOPTS_VALUE && !m_ownMp3 && m_frame->sample_rate > 0
        && m_frame->sample_rate != m_info.fileRate) {
        // HE-AAC: the container names the core rate, the decoder delivers twice that. The
        // first frame, decoded while opening, says which.
        m_info.fileRate = m_frame->sample_rate;
        if (m_requestedRate <= 0)
            m_outRate = m_info.fileRate;
        swr_free(&m_resampler);
        if (!resetResampler())
            return fail(QStringLiteral("cannot resample %1 to %2 Hz").arg(m_path).arg(m_outRate));
    }
    qint64 index = m_fileNext;
    const int64_t pts = m_frame->best_effort_timestamp;
    if (!m_ownMp3 && pts == AV_NOPTS_VALUE && m_syncFromPts) {
        // After a seek, a frame without a timestamp has no known place.
        m_syncFromPts = false;
        av_frame_unref(m_frame);
        return restart();
    }
    if (!m_ownMp3 && pts != AV_NOPTS_VALUE) {
        const qint64 at = av_rescale_q(pts, m_timeBase, AVRational { 1, m_info.fileRate });
        if (m_origin == AV_NOPTS_VALUE)
            m_origin = at;
        if (m_resync && !m_syncFromPts) {
            // Frames were lost to damage: silence takes their place, so everything after
            // stays where it belongs.
            const qint64 placed = at - m_origin;
            if (placed - m_fileNext > qint64(m_info.fileRate) * kMaxSilencedSeconds)
                return fail(QStringLiteral("cannot decode %1: too much of it is damaged").arg(m_path));
            std::vector<float> gap(size_t(2 * std::max<qint64>(placed - m_fileNext, 0)), 0.0f);
            if (!gap.empty())
                acceptFileFrames(m_fileNext, gap.data(), placed - m_fileNext);
            index = placed;
        }
        if (m_syncFromPts) {
            index = at - m_origin;
            m_syncFromPts = false;
            if (index > m_fileDropBelow && !m_restartedOnce) {
                // The demuxer landed after the target: only a decode from the start is exact.
                m_restartedOnce = true;
                av_frame_unref(m_frame);
                return restart();
            }
        }
    }
    m_resync = false;
    av_frame_unref(m_frame);
    m_fileNext = index + n;
    acceptFileFrames(index, m_stage.data(), n);
    return true;
}

bool FfmpegDecoder::damagedFrame(int code)
{
    if (++m_damagedInARow > kMaxDamagedInARow)
        return fail(QStringLiteral("cannot decode %1: %2").arg(m_path, avError(code)));
    if (!m_ownMp3) {
        m_resync = true; // the next frame's timestamp tells how much was lost
        return true;
    }
    // One MP3 packet is one frame: silence of a frame's length keeps the rest in place.
    const int spf = m_mp3.header.samplesPerFrame;
    m_stage.assign(size_t(2 * spf), 0.0f);
    const qint64 index = m_fileNext;
    m_fileNext += spf;
    acceptFileFrames(index, m_stage.data(), spf);
    return true;
}

void FfmpegDecoder::acceptFileFrames(qint64 index, const float *stereo, qint64 frames)
{
    // Never the same frame twice, even when a timestamp after damage points back.
    qint64 begin = std::max({ index, m_fileDropBelow, m_fileAccepted });
    qint64 end = index + frames;
    if (m_info.fileLength >= 0)
        end = std::min(end, m_info.fileLength);
    if (end <= begin)
        return;
    m_fileAccepted = end;
    const float *from = stereo + 2 * (begin - index);
    const qint64 count = end - begin;
    if (!m_resampler) {
        emitOutput(from, count);
        return;
    }
    const int maxOut = swr_get_out_samples(m_resampler, int(count));
    m_resampled.resize(size_t(2 * std::max(maxOut, 0) + 2));
    uint8_t *outPlanes[] = { reinterpret_cast<uint8_t *>(m_resampled.data()) };
    const uint8_t *inPlanes[] = { reinterpret_cast<const uint8_t *>(from) };
    const int got = swr_convert(m_resampler, outPlanes, maxOut, inPlanes, int(count));
    if (got > 0)
        emitOutput(m_resampled.data(), got);
}

void FfmpegDecoder::emitOutput(const float *stereo, qint64 frames)
{
    const qint64 skip = std::min(m_outDrop, frames);
    m_outDrop -= skip;
    stereo += 2 * skip;
    frames -= skip;
    m_outProduced += skip;
    if (m_length >= 0)
        frames = std::min(frames, m_length - m_outProduced);
    if (frames <= 0)
        return;
    m_pending.insert(m_pending.end(), stereo, stereo + 2 * frames);
    m_outProduced += frames;
}

} // namespace

std::unique_ptr<AudioDecoder> AudioDecoder::open(const QString &path, int outputRate, QString *error)
{
    // Failures reach the user through our own errors; FFmpeg's console chatter ("Estimating
    // duration from bitrate") would only clutter orvida-cli's stderr.
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_FATAL); });
    QString ignored;
    QString &why = error ? *error : ignored;
    auto decoder = std::make_unique<FfmpegDecoder>(path, outputRate);
    if (!decoder->open(&why))
        return nullptr;
    return decoder;
}
