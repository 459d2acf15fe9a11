#include "playback/wavwriter.h"

#include <QtEndian>

#include <array>
#include <cstring>
#include <limits>

namespace {

constexpr int kChannels = 2;
constexpr int kBytesPerFrame = kChannels * int(sizeof(float));
constexpr qint64 kHeaderBytes = 58; // RIFF + fmt (18) + fact + data headers

// Everything up to the first sample; `frames` fills in the sizes.
std::array<char, kHeaderBytes> header(int rate, qint64 frames)
{
    std::array<char, kHeaderBytes> h{};
    const quint32 dataBytes = quint32(frames * kBytesPerFrame);
    auto put32 = [&](int at, quint32 v) { qToLittleEndian(v, h.data() + at); };
    auto put16 = [&](int at, quint16 v) { qToLittleEndian(v, h.data() + at); };
    std::memcpy(h.data(), "RIFF", 4);
    put32(4, quint32(kHeaderBytes - 8) + dataBytes);
    std::memcpy(h.data() + 8, "WAVEfmt ", 8);
    put32(16, 18);
    put16(20, 3); // IEEE float
    put16(22, kChannels);
    put32(24, quint32(rate));
    put32(28, quint32(rate * kBytesPerFrame));
    put16(32, kBytesPerFrame);
    put16(34, 32);
    put16(36, 0); // no extension
    std::memcpy(h.data() + 38, "fact", 4);
    put32(42, 4);
    put32(46, quint32(frames));
    std::memcpy(h.data() + 50, "data", 4);
    put32(54, dataBytes);
    return h;
}

} // namespace

WavWriter::~WavWriter()
{
    if (m_file.isOpen())
        m_file.close();
}

bool WavWriter::fail(const QString &what)
{
    m_error = QStringLiteral("%1: %2").arg(what, m_file.errorString());
    return false;
}

bool WavWriter::open(const QString &path, int sampleRate)
{
    m_file.setFileName(path);
    m_rate = sampleRate;
    m_frames = 0;
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(QStringLiteral("cannot create %1").arg(path));
    const auto h = header(m_rate, 0);
    if (m_file.write(h.data(), h.size()) != qint64(h.size()))
        return fail(QStringLiteral("cannot write %1").arg(path));
    return true;
}

bool WavWriter::write(const float *interleaved, qint64 frames)
{
    // A RIFF size is 32 bits: past 4 GiB of samples the header could not describe the file.
    constexpr qint64 kMaxFrames = (std::numeric_limits<quint32>::max() - kHeaderBytes) / kBytesPerFrame;
    if (m_frames + frames > kMaxFrames) {
        m_error = QStringLiteral("%1: longer than a WAV file can hold").arg(m_file.fileName());
        return false;
    }
    static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "WAV samples are written in memory order");
    const qint64 bytes = frames * kBytesPerFrame;
    if (m_file.write(reinterpret_cast<const char *>(interleaved), bytes) != bytes)
        return fail(QStringLiteral("cannot write %1").arg(m_file.fileName()));
    m_frames += frames;
    return true;
}

bool WavWriter::finish()
{
    const auto h = header(m_rate, m_frames);
    if (!m_file.seek(0) || m_file.write(h.data(), h.size()) != qint64(h.size()) || !m_file.flush())
        return fail(QStringLiteral("cannot write %1").arg(m_file.fileName()));
    m_file.close();
    return true;
}
