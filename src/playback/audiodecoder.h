#pragma once

#include <QString>

#include <atomic>
#include <memory>

// Decodes one audio file into interleaved stereo 32-bit float frames at the engine's rate.
//
// Frame counts are exact: length() is what read() delivers from the start to the end, and
// seek(n) is followed by frame n itself (the decoder runs the pre-roll a codec needs and
// drops it), so two decks can be joined on a sample. Nothing is decoded to find the length
// when the container or the MP3 headers know it.
//
// Not thread-safe, except interrupt(): one thread uses an instance at a time (a deck's
// decode worker, or an analysis task). Opening a file reads only headers.
class AudioDecoder {
public:
    struct Info {
        int fileRate = 0;      // the codec's own sample rate: the frame unit of gapless bounds
        int fileChannels = 0;
        QString codec;         // FFmpeg's codec name: "mp3", "aac", "flac", "pcm_s16le", ...
        QString container;     // FFmpeg's format name: "mp3", "mov,mp4,m4a,3gp,3g2,mj2", "wav", ...
        qint64 fileLength = -1; // exact frames at fileRate, -1 when it cannot be known without decoding
    };

    // `outputRate` 0 keeps the file's own rate. Absent with `error` set when the file
    // cannot be opened or holds no audio stream.
    [[nodiscard]] static std::unique_ptr<AudioDecoder> open(const QString &path, int outputRate,
                                                            QString *error = nullptr);
    // An MP3 stream from an http(s) URL (what the live relay serves): no length, no
    // seeking. Blocks until the first audio is decoded, so it belongs on the thread pool.
    // A blocked open or read gives up once `abort` is set, or once nothing arrived for
    // `timeoutMs`; the decoder's interrupt() sets `abort`.
    [[nodiscard]] static std::unique_ptr<AudioDecoder> openStream(const QString &url, int outputRate,
        std::shared_ptr<std::atomic<bool>> abort, int timeoutMs, QString *error = nullptr);
    virtual ~AudioDecoder() = default;

    [[nodiscard]] virtual const Info &info() const = 0;
    [[nodiscard]] virtual int outputRate() const = 0;
    // Exact frames at the output rate; -1 when unknown (see Info::fileLength).
    [[nodiscard]] virtual qint64 length() const = 0;

    // The next read() starts with output frame `frame` exactly. False when the file cannot
    // seek there (then the position is unchanged).
    [[nodiscard]] virtual bool seek(qint64 frame) = 0;
    // Writes up to `frames` stereo frames to `out` (2 * frames floats). Returns the frames
    // written, 0 at the end of the file, -1 when the file cannot be read any more (damaged,
    // deleted or truncated under us); the reason is in lastError().
    [[nodiscard]] virtual qint64 read(float *out, qint64 frames) = 0;
    [[nodiscard]] virtual qint64 position() const = 0; // the output frame the next read() starts with
    [[nodiscard]] virtual QString lastError() const = 0;
    // Any thread: makes a read() blocked on the network return soon with -1, and every
    // later one too. Files never block for long, so for them it does nothing.
    virtual void interrupt() { }

protected:
    AudioDecoder() = default;
};
